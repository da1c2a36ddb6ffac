// The network-daemon stand-in: what the hotplug scripts and the bus are told of interfaces, and when.
#include "gateway/netd_fixture.h"

namespace {

class netd_events_test : public netd_fixture {};

TEST_F(netd_events_test, events_reach_the_hotplug_scripts_in_order)
{
    start_settled({.hotplug = true});
    note_events();
    gateway.clear_commands();

    gateway.store_wan(routed_pppoe(2, {.vid = 200, .ip_protocol = 3}));
    gateway.reload_netd();
    gateway.settle_netd();
    gateway.uci_delete("network.wan_2");
    gateway.reload_netd();
    gateway.settle_netd();

    EXPECT_EQ(gateway.commands(),
              (text_lines{"hotplug-call iface ACTION=ifup INTERFACE=wan_2 DEVICE=pppoe-wan_2",
                          "hotplug-call iface ACTION=ifup INTERFACE=wan_2_6 DEVICE=pppoe-wan_2",
                          "hotplug-call iface ACTION=ifdown INTERFACE=wan_2_6",
                          "hotplug-call iface ACTION=ifdown INTERFACE=wan_2"}));
    EXPECT_EQ(events(), "ifup wan_2 pppoe-wan_2\nifup wan_2_6 pppoe-wan_2\n"
                        "ifdown wan_2_6 unset\nifdown wan_2 unset\n");
}

TEST_F(netd_events_test, a_new_dhcp_interface_begins_with_going_down)
{
    start_settled({.hotplug = true, .held = true});
    note_events();

    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.reload_netd();
    ASSERT_TRUE(wait_until([this] { return events() == "ifdown wan_1 unset\n"; })) << events();
    EXPECT_EQ(status("wan_1").at("pending"), true);
    gateway.hurry_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifdown wan_1 unset\nifup wan_1 pon.100\n");
}

TEST_F(netd_events_test, a_modified_wan_is_told_down_then_updated_without_an_address_then_up)
{
    start_settled({.hotplug = true, .held = true});
    gateway.start_korvel();
    ASSERT_EQ(gateway.call("add", add_request(routed_dhcp(1, {.vid = 100}))).at("status"), 0);
    gateway.hurry_netd();
    gateway.settle_netd();
    gateway.write_file("/etc/hotplug.d/iface/50-note",
                       ". /lib/functions/network.sh\nnetwork_get_ipaddr ADDRESS $INTERFACE\n"
                       "echo \"$ACTION $INTERFACE '$DEVICE' '$ADDRESS'\" >> /tmp/events\n");
    gateway.write_file("/tmp/events", "");
    // The two events' scripts run beside each other; the reload of the next service gives the first its time.
    gateway.write_file("/etc/init.d/dnsmasq",
                       "#!/bin/sh\ntries=0\nuntil grep -q ifdown /tmp/events || [ $tries -gt 2000 ]; do\n"
                       "sleep 0.01\ntries=$((tries + 1))\ndone\n",
                       0755);

    ASSERT_EQ(gateway.call("modify", modify_request(routed_dhcp(1, {.vid = 101}))).at("status"), 0);
    ASSERT_TRUE(wait_until([this] { return events().find("ifupdate") != std::string::npos; })) << events();
    gateway.hurry_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifdown wan_1 '' ''\nifupdate wan_1 '' ''\nifup wan_1 'pon.101' '198.51.100.23'\n");
}

TEST_F(netd_events_test, a_client_that_fails_is_told_and_is_tried_again_at_the_next_reload)
{
    start_settled({.hotplug = true});
    note_events();
    gateway.script_interface("wan_1_v6", "failing NO_ANSWER");

    gateway.store_wan(routed_dhcp(1, {.vid = 100, .ip_protocol = 2}));
    gateway.reload_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifup-failed wan_1_v6 unset\n");
    EXPECT_EQ(status("wan_1_v6").at("errors").text(), R"([{"subsystem":"dhcpv6","code":"NO_ANSWER"}])");
    gateway.unscript_interface("wan_1_v6");
    gateway.reload_netd();
    gateway.settle_netd();
    EXPECT_EQ(events(), "ifup-failed wan_1_v6 unset\nifup wan_1_v6 pon.100\n");
    EXPECT_FALSE(status("wan_1_v6").json().has("errors"));
}

TEST_F(netd_events_test, a_storm_of_changes_comes_through_as_few_events)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.hotplug = true});
    note_events();
    gateway.write_file("/etc/hotplug.d/iface/60-hold", "while [ -e /tmp/held ]; do sleep 0.01; done\n");
    gateway.write_file("/tmp/held", "");

    for (int change = 1; change <= 15; change++) {
        gateway.uci_set("network.wan_1.metric", std::to_string(change));
        gateway.reload_netd();
        gateway.hurry_netd();
    }
    gateway.remove("/tmp/held");
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifdown wan_1 unset\nifup wan_1 pon.100\n");
}

TEST_F(netd_events_test, a_changed_interface_goes_down_and_up_and_others_stay)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    start_settled({.hotplug = true});
    gateway.clear_commands();

    gateway.uci_set("network.wan_1.metric", "5");
    gateway.reload_netd();
    gateway.settle_netd();

    EXPECT_EQ(gateway.commands(),
              (text_lines{"hotplug-call iface ACTION=ifdown INTERFACE=wan_1",
                          "hotplug-call iface ACTION=ifup INTERFACE=wan_1 DEVICE=pon.100"}));
}

TEST_F(netd_events_test, a_device_section_that_only_moved_leaves_its_interface_up)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    start_settled({.hotplug = true});
    gateway.clear_commands();

    gateway.uci_delete("network." + gateway.device_section(1).value());
    gateway.uci_delete("network.wan_1");
    gateway.reload_netd();
    gateway.settle_netd();

    EXPECT_EQ(gateway.commands(), (text_lines{"hotplug-call iface ACTION=ifdown INTERFACE=wan_1"}));
}

TEST_F(netd_events_test, restart_takes_everything_down_and_up_again)
{
    start_settled({.hotplug = true, .held = true});
    note_events();

    ASSERT_EQ(gateway.call_object("network", "restart").status, 0);
    ASSERT_TRUE(wait_until([this] { return events() == "ifdown loopback unset\nifdown lan unset\n"; }))
        << events();
    gateway.hurry_netd();
    gateway.settle_netd();

    EXPECT_EQ(events(), "ifdown loopback unset\nifdown lan unset\nifup loopback lo\nifup lan br-lan\n");
}

TEST_F(netd_events_test, down_and_up_act_on_one_interface)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.hotplug = true});
    gateway.clear_commands();

    ASSERT_EQ(gateway.call_object("network.interface.wan_1", "down").status, 0);
    EXPECT_EQ(status("wan_1").at("up"), false);
    ASSERT_EQ(gateway.call_object("network.interface.wan_1", "up").status, 0);
    gateway.settle_netd();

    EXPECT_EQ(status("wan_1").at("up"), true);
    EXPECT_EQ(gateway.commands(),
              (text_lines{"hotplug-call iface ACTION=ifdown INTERFACE=wan_1",
                          "hotplug-call iface ACTION=ifup INTERFACE=wan_1 DEVICE=pon.100"}));
}

TEST_F(netd_events_test, without_hotplug_no_script_is_started)
{
    gateway.store_wan(routed_dhcp(1));

    start_settled({.hotplug = false});

    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(netd_events_test, a_hotplug_script_may_ask_about_its_interface)
{
    gateway.write_file("/etc/hotplug.d/iface/50-ask",
                       "ubus -S call network.interface.$INTERFACE status > /tmp/status-$INTERFACE\n");
    gateway.store_wan(routed_dhcp(1));

    start_settled({.hotplug = true});

    EXPECT_EQ(json_value::parse(gateway.file("/tmp/status-wan_1")).at("up"), true);
}

TEST_F(netd_events_test, interface_events_are_sent_on_the_bus)
{
    start_settled();
    child_process listener({"ubus", "listen", "network.interface"}, {}, "/tmp/heard");
    // The listener is there once it hears an event of somebody else.
    ASSERT_TRUE(wait_until([this] {
        run_program({"ubus", "send", "network.interface", R"({"action":"probe"})"});
        return !gateway.file("/tmp/heard").empty();
    }));

    gateway.store_wan(routed_dhcp(1));
    gateway.reload_netd();

    const std::string expected = R"({ "network.interface": {"action":"ifup","interface":"wan_1"} })";
    EXPECT_TRUE(wait_until([&] { return gateway.file("/tmp/heard").find(expected) != std::string::npos; }))
        << gateway.file("/tmp/heard");
}

} // namespace
