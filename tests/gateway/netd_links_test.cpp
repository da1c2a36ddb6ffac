// The network-daemon stand-in: the devices, addresses, routes and rules that it makes, and leaves, in the
// kernel.
#include "gateway/netd_fixture.h"

namespace {

class netd_links_test : public netd_fixture {};

TEST_F(netd_links_test, a_vlan_device_has_its_parent_its_identifier_and_its_priorities)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .prio = 5, .mtu = 1400}));
    start_settled({.links = true});

    EXPECT_EQ(
        gateway.call_object("network.device", "status", R"({"name":"pon.100"})").text,
        R"({"present":true,"type":"8021q","up":true,"parent":"pon","vid":100,"egress_qos_mapping":["0:5"],)"
        R"("mtu":1400,"macaddr":"00:11:22:33:45:01"})");
}

TEST_F(netd_links_test, devices_are_reported_as_far_as_they_are_known)
{
    start_settled({.links = true});

    const auto status_of = [this](const std::string &name) {
        return gateway.call_object("network.device", "status", "{\"name\":\"" + name + "\"}");
    };
    EXPECT_EQ(status_of("pon").at("type"), "Network device");
    EXPECT_EQ(status_of("br-lan").at("type"), "bridge");
    EXPECT_EQ(status_of("br-lan").at("bridge-members").at(0), "eth0.1");
    EXPECT_EQ(status_of("nosuch0").status, 4);
    EXPECT_EQ(gateway.call_object("network.device", "status").status, 2);
}

TEST_F(netd_links_test, renewing_brings_back_what_the_kernel_has_lost)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.links = true});
    const text_lines routes = gateway.ip_routes("main");
    ASSERT_EQ(run_program({"/usr/sbin/ip", "addr", "flush", "dev", "pon.100"}).status, 0);
    ASSERT_NE(gateway.ip_routes("main"), routes);

    EXPECT_EQ(gateway.call_object("network.interface.wan_1", "renew").status, 0);

    EXPECT_EQ(gateway.ip_routes("main"), routes);
}

TEST_F(netd_links_test, devices_addresses_and_routes_appear_in_the_kernel)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .ip_protocol = 3, .mtu = 1400}));
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));

    start_settled({.links = true});

    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.100", "address"), "00:11:22:33:45:01");
    EXPECT_TRUE(device_exists("far-pon.100"));
    const std::string v4 = run_program({"/usr/sbin/ip", "-4", "-br", "addr"}).output;
    EXPECT_NE(v4.find("198.51.100.23/24"), std::string::npos) << v4;
    EXPECT_NE(v4.find("100.64.3.9 peer 100.64.0.1/32"), std::string::npos) << v4;
    const std::string v6 =
        run_program({"/usr/sbin/ip", "-6", "-br", "addr", "show", "dev", "pon.100"}).output;
    EXPECT_NE(v6.find("2001:db8:1:1::9/128"), std::string::npos) << v6;
}

TEST_F(netd_links_test, a_default_route_replaces_one_of_the_same_metric_for_good)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.links = true});
    EXPECT_EQ(default_routes(), text_lines{"default via 198.51.100.1 dev pon.100"});

    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    gateway.reload_netd();
    gateway.settle_netd();
    EXPECT_EQ(default_routes(), text_lines{"default via 100.64.0.1 dev pppoe-wan_2"});

    gateway.uci_delete("network.wan_2");
    gateway.reload_netd();
    EXPECT_EQ(default_routes(), text_lines{}) << "wan_1 does not notice";
    EXPECT_EQ(status("wan_1").at("route").size(), 1U);

    (void)gateway.call_object("network.interface.wan_1", "down");
    (void)gateway.call_object("network.interface.wan_1", "up");
    gateway.settle_netd();
    EXPECT_EQ(default_routes(), text_lines{"default via 198.51.100.1 dev pon.100"});
}

TEST_F(netd_links_test, a_wan_whose_default_route_was_replaced_leaves_the_other_s)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.links = true});
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    gateway.reload_netd();
    gateway.settle_netd();

    gateway.uci_delete("network.wan_1");
    gateway.reload_netd();

    EXPECT_EQ(default_routes(), text_lines{"default via 100.64.0.1 dev pppoe-wan_2"});
}

TEST_F(netd_links_test, default_routes_of_different_metrics_stand_beside_each_other)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    gateway.uci_set("network.wan_2.metric", "10");

    start_settled({.links = true});

    EXPECT_EQ(default_routes(), (text_lines{"default via 198.51.100.1 dev pon.100",
                                            "default via 198.51.100.1 dev pon.200 metric 10"}));
}

TEST_F(netd_links_test, a_vlan_device_has_its_parent_s_mtu_at_most)
{
    gateway.store_wan(routed_static(3, {.mtu = 1400}));
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .mtu = 1500}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200, .mtu = 1300}));

    start_settled({.links = true});

    EXPECT_EQ(device_attribute("pon", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.200", "mtu"), "1300");
}

TEST_F(netd_links_test, a_vlan_device_without_its_parent_is_not_there)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.uci_set("network." + gateway.device_section(1).value() + ".ifname", "nosuch0");

    start_settled({.links = true});

    EXPECT_FALSE(device_exists("pon.100"));
    EXPECT_EQ(status("wan_1").at("available"), false);
}

TEST_F(netd_links_test, setting_up_the_untagged_wan_interrupts_the_vlans_and_caps_them_for_good)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .mtu = 1500}));
    start_settled({.links = true, .hotplug = true, .held = true});
    note_events();

    gateway.store_wan(routed_static(3, {.mtu = 1400}));
    gateway.reload_netd();

    ASSERT_TRUE(wait_until([this] { return events() == "ifdown wan_1 unset\n"; })) << events();
    EXPECT_EQ(status("wan_1").at("pending"), true);
    gateway.hurry_netd();
    gateway.settle_netd();
    EXPECT_EQ(events(), "ifdown wan_1 unset\nifup wan_1 pon.100\nifup wan_3 pon\n");
    EXPECT_EQ(device_attribute("pon", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon", "address"), "00:11:22:33:45:03");
    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.100", "address"), "00:11:22:33:45:01");

    gateway.uci_set("network." + gateway.device_section(3).value() + ".mtu", "1500");
    gateway.reload_netd();
    EXPECT_EQ(device_attribute("pon", "mtu"), "1500");
    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
}

class two_wans_on_one_vlan_test : public netd_fixture {
protected:
    two_wans_on_one_vlan_test()
    {
        gateway.store_wan(routed_dhcp(1, {.vid = 100}));
        gateway.store_wan(routed_dhcp(2, {.vid = 100}));
    }

    void set_device_option(unsigned id, const std::string &option, const std::string &value)
    {
        gateway.uci_set("network." + gateway.device_section(id).value() + "." + option, value);
    }
    // The network daemon sees no difference then.
    void give_both_one_address() { set_device_option(1, "macaddr", "00:11:22:33:45:02"); }
};

TEST_F(two_wans_on_one_vlan_test, the_last_section_rules_both)
{
    set_device_option(1, "mtu", "1300");
    set_device_option(2, "mtu", "1400");

    start_settled({.links = true});

    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.100", "address"), "00:11:22:33:45:02");
}

TEST_F(two_wans_on_one_vlan_test, sections_that_differ_drop_both_at_every_reload)
{
    start_settled({.links = true, .hotplug = true, .held = true});
    const std::string before = device_attribute("pon.100", "ifindex");
    note_events();

    gateway.reload_netd();
    ASSERT_TRUE(wait_until([this] { return events() == "ifdown wan_1 unset\nifdown wan_2 unset\n"; }))
        << events();
    gateway.hurry_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifdown wan_1 unset\nifdown wan_2 unset\nifup wan_1 pon.100\nifup wan_2 pon.100\n");
    EXPECT_NE(device_attribute("pon.100", "ifindex"), before);
}

TEST_F(two_wans_on_one_vlan_test, both_have_one_address_which_goes_with_either)
{
    give_both_one_address();
    start_settled({.links = true});
    const std::string address = R"([{"address":"198.51.100.23","mask":24}])";
    ASSERT_EQ(status("wan_1").at("ipv4-address").text(), address);
    ASSERT_EQ(status("wan_2").at("ipv4-address").text(), address);

    gateway.uci_delete("network." + gateway.device_section(1).value());
    gateway.uci_delete("network.wan_1");
    gateway.reload_netd();

    EXPECT_EQ(status("wan_2").at("up"), true);
    EXPECT_EQ(status("wan_2").at("ipv4-address").text(), address) << "it does not notice";
    const std::string left =
        run_program({"/usr/sbin/ip", "-4", "-br", "addr", "show", "dev", "pon.100"}).output;
    EXPECT_EQ(left.find("198.51.100.23"), std::string::npos) << left;
}

TEST_F(two_wans_on_one_vlan_test, options_of_other_programs_make_no_difference)
{
    give_both_one_address();
    start_settled({.links = true, .hotplug = true});
    const std::string before = device_attribute("pon.100", "ifindex");
    note_events();

    set_device_option(1, "lkname", "1_OTHER_R_VID_100");
    set_device_option(1, "wanMode", "0");
    set_device_option(1, "port_binding", "eth0.1");
    gateway.uci_set("network.wan_1.napt", "0");
    gateway.reload_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "");
    EXPECT_EQ(device_attribute("pon.100", "ifindex"), before);
}

TEST_F(two_wans_on_one_vlan_test, another_priority_makes_the_link_anew)
{
    give_both_one_address();
    start_settled({.links = true, .hotplug = true});
    const std::string before = device_attribute("pon.100", "ifindex");

    for (const unsigned id : {1U, 2U})
        gateway.uci_add_list("network." + gateway.device_section(id).value() + ".egress_qos_mapping", "0:5");
    gateway.reload_netd();

    EXPECT_NE(device_attribute("pon.100", "ifindex"), before);
}

TEST_F(netd_links_test, devices_of_removed_wans_disappear)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    start_settled({.links = true});
    ASSERT_TRUE(device_exists("pon.100") && device_exists("pon.200") && device_exists("pppoe-wan_2"));

    for (const unsigned id : {1U, 2U}) {
        gateway.uci_delete("network." + gateway.device_section(id).value());
        gateway.uci_delete("network.wan_" + std::to_string(id));
    }
    gateway.reload_netd();

    EXPECT_FALSE(device_exists("pon.100") || device_exists("pon.200") || device_exists("pppoe-wan_2"));
    EXPECT_TRUE(device_exists("pon"));
    const text_lines lan_only = {"192.168.1.0/24 dev br-lan proto kernel scope link src 192.168.1.1"};
    EXPECT_EQ(gateway.ip_routes("main"), lan_only);
}

const text_lines kernel_rules = {"0: from all lookup local", "32766: from all lookup main",
                                 "32767: from all lookup default"};

TEST_F(netd_links_test, a_start_takes_the_policy_rules_of_others)
{
    for (const char *family : {"-4", "-6"})
        ASSERT_EQ(run_program({"/usr/sbin/ip", family, "rule", "add", "oif", "pon", "lookup", "150"}).status,
                  0);

    start_settled({.links = true});

    EXPECT_EQ(gateway.ip_rules(), kernel_rules);
    EXPECT_EQ(run_program({"/usr/sbin/ip", "-6", "rule"}).output,
              "0:\tfrom all lookup local\n32766:\tfrom all lookup main\n");
}

TEST_F(netd_links_test, after_a_restart_route_scripts_have_their_rules_back_and_bridged_wans_have_not)
{
    start_settled({.links = true, .hotplug = true});
    gateway.start_korvel();
    for (const wan_config &wan :
         {routed_dhcp(1, {.vid = 100, .bind = "1"}), bridged_wan(2, "01", {.vid = 200})})
        ASSERT_EQ(gateway.call("add", add_request(wan)).at("status"), 0);
    gateway.settle_netd();
    const text_lines of_the_routed = gateway.ip_rules();
    ASSERT_GT(of_the_routed.size(), kernel_rules.size());
    (void)gateway.run_script("/etc/korvel/rule_wan_2.sh");
    ASSERT_EQ(gateway.ip_rules().size(), of_the_routed.size() + 1);

    ASSERT_EQ(run_program({"/etc/init.d/network", "restart"}).status, 0);
    gateway.settle_netd();

    EXPECT_EQ(gateway.ip_rules(), of_the_routed);
}

TEST_F(netd_links_test, an_orderly_end_leaves_no_device)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    start_settled({.links = true});

    gateway.stop_netd();

    EXPECT_FALSE(device_exists("pon.100") || device_exists("pon.200") || device_exists("pppoe-wan_2"));
    EXPECT_EQ(gateway.ip_routes("main"), text_lines{});
}

TEST_F(netd_links_test, vlans_that_a_killed_daemon_has_left_cannot_be_claimed_until_they_are_deleted)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.links = true});

    gateway.stop_netd(SIGKILL);
    ASSERT_TRUE(device_exists("pon.100"));
    start_settled({.links = true});

    EXPECT_EQ(
        R"({"up":false,"pending":false,"available":true,"autostart":true,"dynamic":false,"proto":"dhcp",)"
        R"("device":"pon.100","data":{},"errors":[{"subsystem":"interface","code":"DEVICE_CLAIM_FAILED"}]})",
        status("wan_1").text);

    ASSERT_EQ(run_program({"/usr/sbin/ip", "link", "delete", "pon.100"}).status, 0);
    gateway.reload_netd();
    gateway.settle_netd();
    EXPECT_EQ(status("wan_1").at("up"), true);
    EXPECT_FALSE(status("wan_1").json().has("errors"));
}

TEST_F(netd_links_test, an_untagged_interface_that_goes_leaves_the_uplink_clean)
{
    gateway.store_wan(routed_static(3, {.ip_protocol = 3}));
    start_settled({.links = true});
    ASSERT_NE(run_program({"/usr/sbin/ip", "-br", "addr", "show", "dev", "pon"}).output.find("192.0.2.12/24"),
              std::string::npos);

    gateway.uci_delete("network.wan_3");
    gateway.reload_netd();

    const std::string left = run_program({"/usr/sbin/ip", "-br", "addr", "show", "dev", "pon"}).output;
    EXPECT_EQ(left.find("192.0.2.12"), std::string::npos) << left;
    EXPECT_EQ(left.find("2001:db8"), std::string::npos) << left;
}

TEST_F(netd_links_test, devices_named_as_ports_are_put_into_the_bridge)
{
    start_settled({.links = true});

    gateway.store_wan(bridged_wan(4, "1000", {.vid = 400}));
    gateway.reload_netd();

    EXPECT_TRUE(gateway.exists("/sys/class/net/br-lan/brif/pon.400"));
    EXPECT_TRUE(gateway.exists("/sys/class/net/br-lan/brif/eth0.1"));
}

TEST_F(netd_links_test, without_links_the_kernel_is_left_alone)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));

    start_settled({.links = false});

    EXPECT_FALSE(device_exists("pon.100"));
    EXPECT_EQ(status("wan_1").at("available"), true);
}

} // namespace
