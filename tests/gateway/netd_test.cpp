// The network-daemon stand-in: what it replies must have the real daemon's members, order and types, byte for
// byte, since the daemon's reader is tested against it.
#include "support/gateway.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace {

constexpr char nothing_inactive[] =
    R"("inactive":{"ipv4-address":[],"ipv6-address":[],"route":[],"dns-server":[],)"
    R"("dns-search":[],"neighbors":[]})";

std::string up_head(const std::string &device, const std::string &protocol, const std::string &lower)
{
    return R"({"up":true,"pending":false,"available":true,"autostart":true,"dynamic":false,"uptime":0,"l3_device":")" +
           device + R"(","proto":")" + protocol + R"(","device":")" + lower + R"(",)";
}

class netd_test : public gateway_test {
protected:
    // Starts the stand-in and waits until everything is up.
    void start_settled(const netd_options &options = {})
    {
        gateway.start_netd(options);
        gateway.hurry_netd();
        gateway.settle_netd();
    }

    bus_reply status(const std::string &interface)
    {
        return gateway.call_object("network.interface." + interface, "status");
    }

    // The reply with its uptime, the one member that differs from run to run, as 0.
    std::string timeless_status(const std::string &interface)
    {
        constexpr std::string_view key = "\"uptime\":";
        std::string text = status(interface).text;
        const size_t value = text.find(key) + key.size();
        return text.replace(value, text.find(',', value) - value, "0");
    }

    void set_interface_option(const std::string &option, const std::string &value)
    {
        gateway.uci_set("network.wan_1." + option, value);
        gateway.reload_netd();
        gateway.settle_netd();
    }

    // What the hotplug scripts are told from now on, as "ifup wan_1 pon.100".
    void note_events()
    {
        gateway.write_file("/etc/hotplug.d/iface/50-note",
                           "echo \"$ACTION $INTERFACE ${DEVICE-unset}\" >> /tmp/events\n");
        gateway.write_file("/tmp/events", "");
    }
    std::string events() const { return gateway.file("/tmp/events"); }

    text_lines default_routes() const
    {
        text_lines routes = gateway.ip_routes("main");
        std::erase_if(routes, [](const std::string &route) { return !route.starts_with("default"); });
        return routes;
    }

    bool device_exists(const std::string &device) { return gateway.exists("/sys/class/net/" + device); }

    std::string device_attribute(const std::string &device, const std::string &attribute)
    {
        std::string text = gateway.file("/sys/class/net/" + device + "/" + attribute);
        text.pop_back();
        return text;
    }
};

TEST_F(netd_test, a_dhcp_interface_reports_its_lease)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));

    start_settled();

    EXPECT_EQ(
        up_head("pon.100", "dhcp", "pon.100") +
            R"("metric":0,"dns_metric":0,"delegation":true,"ipv4-address":[{"address":"198.51.100.23","mask":24}],)"
            R"("ipv6-address":[],"ipv6-prefix":[],"ipv6-prefix-assignment":[],"route":[{"target":"0.0.0.0",)"
            R"("mask":0,"nexthop":"198.51.100.1","source":"198.51.100.23/32"}],)"
            R"("dns-server":["198.51.100.53","203.0.113.53"],"dns-search":["isp.example"],"neighbors":[],)" +
            nothing_inactive + R"(,"data":{"leasetime":86400}})",
        timeless_status("wan_1"));
}

TEST_F(netd_test, a_dialled_interface_reports_its_peer)
{
    gateway.store_wan(routed_pppoe(2, {.vid = 200, .ip_protocol = 3}));

    start_settled();

    EXPECT_EQ(
        up_head("pppoe-wan_2", "pppoe", "pon.200") +
            R"("updated":["addresses","routes"],"metric":0,"dns_metric":0,"delegation":true,)"
            R"("ipv4-address":[{"address":"100.64.3.9","mask":32,"ptpaddress":"100.64.0.1"}],)"
            R"("ipv6-address":[{"address":"fe80::3c1f:9aff:fe02:11","mask":128}],"ipv6-prefix":[],)"
            R"("ipv6-prefix-assignment":[],"route":[{"target":"0.0.0.0","mask":0,"nexthop":"100.64.0.1",)"
            R"("source":"0.0.0.0/0"}],"dns-server":["203.0.113.1","203.0.113.2"],"dns-search":[],"neighbors":[],)" +
            nothing_inactive + R"(,"data":{}})",
        timeless_status("wan_2"));
}

TEST_F(netd_test, a_dialled_interface_brings_its_ipv6_side_along)
{
    gateway.store_wan(routed_pppoe(2, {.vid = 200, .ip_protocol = 3}));

    start_settled();

    EXPECT_EQ(
        R"({"up":true,"pending":false,"available":true,"autostart":true,"dynamic":true,"uptime":0,)"
        R"("l3_device":"pppoe-wan_2","proto":"dhcpv6","device":"pppoe-wan_2","metric":0,"dns_metric":0,)"
        R"("delegation":true,"ipv4-address":[],"ipv6-address":[{"address":"2001:db8:2:1::9","mask":128,)"
        R"("preferred":1800,"valid":3600}],"ipv6-prefix":[{"address":"2001:db8:ab00::","mask":56,"preferred":1800,)"
        R"("valid":3600,"class":"wan_2_6","assigned":{"lan":{"address":"2001:db8:ab00::","mask":60}}}],)"
        R"("ipv6-prefix-assignment":[],"route":[{"target":"::","mask":0,"nexthop":"fe80::1","metric":512,)"
        R"("valid":1700,"source":"2001:db8:ab00::/56"},{"target":"::","mask":0,"nexthop":"fe80::1","metric":512,)"
        R"("valid":1700,"source":"2001:db8:2:1::9/128"}],"dns-server":["2001:db8::53","2001:db8::54"],)"
        R"("dns-search":[],"neighbors":[],)" +
            std::string(nothing_inactive) + R"(,"data":{"passthru":"00170020"}})",
        timeless_status("wan_2_6"));
}

TEST_F(netd_test, a_dialled_interface_for_ipv4_only_has_no_ipv6_side)
{
    gateway.store_wan(routed_pppoe(2, {.ip_protocol = 1}));

    start_settled();

    EXPECT_EQ(0U, status("wan_2").at("ipv6-address").size());
    EXPECT_FALSE(gateway.object_exists("network.interface.wan_2_6"));
}

TEST_F(netd_test, a_static_interface_reports_what_is_configured)
{
    wan_config config = routed_static(3, {.vid = 300, .ip_protocol = 3});
    gateway.store_wan(config);
    gateway.uci_delete("network.lan.ip6assign");

    start_settled();

    EXPECT_EQ(
        up_head("pon.300", "static", "pon.300") +
            R"("metric":0,"dns_metric":0,"delegation":true,"ipv4-address":[{"address":"192.0.2.12","mask":24}],)"
            R"("ipv6-address":[{"address":"2001:db8:3::10","mask":64}],)"
            R"("ipv6-prefix":[{"address":"2001:db8:300::","mask":56,"class":"wan_3","assigned":{}}],)"
            R"("ipv6-prefix-assignment":[],"route":[{"target":"0.0.0.0","mask":0,"nexthop":"192.0.2.1",)"
            R"("source":"0.0.0.0/0"},{"target":"::","mask":0,"nexthop":"2001:db8:3::1","source":"::/0"}],)"
            R"("dns-server":["192.0.2.53","2001:db8:3::53"],"dns-search":[],"neighbors":[],)" +
            nothing_inactive + R"(,"data":{}})",
        timeless_status("wan_3"));
}

TEST_F(netd_test, the_ipv6_interface_of_a_dhcp_wan_is_an_object_of_its_own)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .ip_protocol = 2}));

    start_settled();

    EXPECT_FALSE(gateway.object_exists("network.interface.wan_1"));
    const bus_reply reply = status("wan_1_v6");
    EXPECT_EQ(reply.at("proto"), "dhcpv6");
    EXPECT_EQ(reply.at("dynamic"), false);
    EXPECT_EQ(reply.at("ipv6-prefix").at(0).at("class"), "wan_1_v6");
}

TEST_F(netd_test, a_tunnel_has_an_address_and_no_device_below)
{
    wan_config config = routed_dhcp(1, {.ip_protocol = 2});
    config.ipv6DsLite = 1;
    strcpy(config.ipv6AddrDsLite, "2001:db8::aaaa");
    gateway.store_wan(config);

    start_settled();

    const bus_reply reply = status("dslite_1");
    EXPECT_EQ(reply.at("l3_device"), "ds-dslite_1");
    EXPECT_FALSE(reply.json().has("device"));
    EXPECT_EQ(reply.at("ipv4-address").at(0).at("address"), "192.0.0.2");
    EXPECT_EQ(reply.at("route").at(0).at("nexthop"), "0.0.0.0");
}

TEST_F(netd_test, prefixes_are_shared_with_the_lan_unless_delegation_is_off)
{
    gateway.store_wan(routed_dhcp(1, {.ip_protocol = 2}));
    wan_config kept = routed_dhcp(2, {.ip_protocol = 2});
    kept.ipv6PrefixProxy = 0;
    gateway.store_wan(kept);

    start_settled();

    EXPECT_EQ(status("lan").at("ipv6-prefix-assignment").text(),
              R"([{"address":"2001:db8:aa00::","mask":60,"preferred":1800,"valid":3600,)"
              R"("local-address":{"address":"2001:db8:aa00::1","mask":60}}])");
    EXPECT_EQ(status("wan_2_v6").at("delegation"), false);
    EXPECT_EQ(status("wan_2_v6").at("ipv6-prefix").at(0).at("assigned").size(), 0U);
}

TEST_F(netd_test, routes_and_servers_that_are_not_wanted_are_inactive)
{
    gateway.store_wan(routed_dhcp(1));
    start_settled();

    set_interface_option("defaultroute", "0");
    set_interface_option("peerdns", "0");
    gateway.uci_add_list("network.wan_1.dns", "192.0.2.8");
    gateway.uci_add_list("network.wan_1.dns", "192.0.2.9");
    gateway.reload_netd();
    gateway.settle_netd();

    const bus_reply reply = status("wan_1");
    EXPECT_EQ(reply.at("route").text(), "[]");
    EXPECT_EQ(reply.at("dns-server").text(), R"(["192.0.2.8","192.0.2.9"])");
    EXPECT_EQ(reply.at("dns-search").text(), "[]");
    EXPECT_EQ(
        reply.at("inactive").text(),
        R"({"ipv4-address":[],"ipv6-address":[],"route":[{"target":"0.0.0.0","mask":0,)"
        R"("nexthop":"198.51.100.1","source":"198.51.100.23/32"}],)"
        R"("dns-server":["198.51.100.53","203.0.113.53"],"dns-search":["isp.example"],"neighbors":[]})");
}

TEST_F(netd_test, configured_servers_come_before_learnt_ones)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.uci_add_list("network.wan_1.dns", "192.0.2.8");

    start_settled();

    EXPECT_EQ(status("wan_1").at("dns-server").text(), R"(["192.0.2.8","198.51.100.53","203.0.113.53"])");
}

TEST_F(netd_test, optional_numbers_are_reported_when_they_are_set)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.uci_set("network.wan_1.metric", "7");
    gateway.uci_set("network.wan_1.ip4table", "101");

    start_settled();

    EXPECT_EQ(status("wan_1").at("metric"), 7);
    EXPECT_EQ(status("wan_1").at("ip4table"), 101);
    EXPECT_FALSE(status("wan_1").json().has("ip6table"));
}

TEST_F(netd_test, a_disabled_interface_is_down_and_does_not_start)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.uci_set("network.wan_1.disabled", "1");

    start_settled();

    EXPECT_EQ(
        R"({"up":false,"pending":false,"available":true,"autostart":false,"dynamic":false,"proto":"dhcp",)"
        R"("device":"pon.100","data":{}})",
        status("wan_1").text);
}

TEST_F(netd_test, an_interface_is_pending_before_it_is_up)
{
    gateway.start_bus();
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    const child_process slow_daemon({"gateway-netd", "--no-links", "--no-hotplug", "--pending", "60000"});
    ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network"); }));

    EXPECT_EQ(
        R"({"up":false,"pending":true,"available":true,"autostart":true,"dynamic":false,"proto":"pppoe",)"
        R"("device":"pon.200","data":{}})",
        status("wan_2").text);
}

TEST_F(netd_test, at_a_real_pace_coming_up_takes_seconds)
{
    gateway.start_bus();
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    const child_process daemon({"gateway-netd", "--no-links", "--no-hotplug", "--pace", "real"});
    ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network"); }));

    ASSERT_TRUE(wait_until(
        [this] { return status("lan").at("up").boolean() && status("lan").at("uptime").integer() >= 1; }));
    EXPECT_EQ(status("wan_1").at("pending"), true);

    EXPECT_TRUE(wait_until([this] { return status("wan_1").at("up").boolean(); }));
}

TEST_F(netd_test, settling_ends_when_what_was_pending_is_gone)
{
    const struct {
        const char *trace;
        std::function<void()> end_pending;
    } cases[] = {
        {"no longer configured",
         [this] {
             gateway.uci_delete("network.wan_2");
             gateway.reload_netd();
         }},
        {"taken down", [this] { (void)gateway.call_object("network.interface.wan_2", "down"); }},
    };
    gateway.start_bus();
    for (const char *interface : {"loopback", "lan"})
        gateway.uci_set("network." + std::string(interface) + ".auto", "0");
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        gateway.store_wan(routed_pppoe(2));
        const child_process slow_daemon({"gateway-netd", "--no-links", "--no-hotplug", "--pending", "60000"});
        ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network"); }));
        // A reply that is laid down unannounced is found when the request to settle is there.
        gateway.write_file("/gateway/netd/found", "silent\n");
        child_process settled({"ubus", "-t", "60", "call", "gateway-netd", "settle"});
        ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network.interface.found"); }));
        ASSERT_EQ(status("wan_2").at("pending"), true);
        EXPECT_TRUE(settled.running());

        row.end_pending();

        EXPECT_EQ(settled.wait(), 0);
        gateway.remove("/gateway/netd/found");
    }
}

TEST_F(netd_test, uptime_counts_seconds)
{
    start_settled();
    ASSERT_EQ(status("lan").at("up"), true);

    EXPECT_TRUE(wait_until([this] { return status("lan").at("uptime").integer() >= 1; }));
}

TEST_F(netd_test, an_interface_without_its_device_is_not_available)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.uci_set("network.wan_1.device", "nosuch0");

    start_settled({.links = true});

    EXPECT_EQ(status("wan_1").at("available"), false);
    EXPECT_EQ(status("wan_1").at("up"), false);
}

TEST_F(netd_test, reload_adds_and_removes_interfaces)
{
    gateway.store_wan(routed_dhcp(1));
    start_settled();

    gateway.uci_delete("network.wan_1");
    gateway.store_wan(routed_dhcp(2));
    gateway.reload_netd();

    EXPECT_EQ(status("wan_1").status, 4);
    EXPECT_TRUE(gateway.object_exists("network.interface.wan_2"));
}

TEST_F(netd_test, a_reload_that_cannot_read_the_configuration_changes_nothing)
{
    gateway.store_wan(routed_dhcp(1));
    start_settled();

    gateway.set_config("network", "no configuration\n");
    const bus_reply reload = gateway.call_object("network", "reload");

    EXPECT_NE(reload.status, 0);
    EXPECT_EQ(status("wan_1").at("up"), true);
}

TEST_F(netd_test, events_reach_the_hotplug_scripts_in_order)
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

TEST_F(netd_test, a_new_dhcp_interface_begins_with_going_down)
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

TEST_F(netd_test, a_modified_wan_is_told_down_then_updated_without_an_address_then_up)
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

TEST_F(netd_test, a_client_that_fails_is_told_and_is_tried_again_at_the_next_reload)
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

TEST_F(netd_test, what_did_not_come_up_says_why_behind_everything_else)
{
    gateway.script_interface("wan_2", "failing AUTH_FAILED");
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));

    start_settled();

    EXPECT_EQ(
        R"({"up":false,"pending":false,"available":true,"autostart":true,"dynamic":false,"proto":"pppoe",)"
        R"("device":"pon.200","data":{},"errors":[{"subsystem":"pppoe","code":"AUTH_FAILED"}]})",
        status("wan_2").text);
}

TEST_F(netd_test, a_storm_of_changes_comes_through_as_few_events)
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

TEST_F(netd_test, a_changed_interface_goes_down_and_up_and_others_stay)
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

TEST_F(netd_test, a_device_section_that_only_moved_leaves_its_interface_up)
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

TEST_F(netd_test, restart_takes_everything_down_and_up_again)
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

TEST_F(netd_test, down_and_up_act_on_one_interface)
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

TEST_F(netd_test, the_dump_is_every_interface_s_status_behind_its_name)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.script_interface("wan_9", R"(json {"up":true,"x":1})");
    start_settled();
    gateway.script_interface("loopback", "absent");

    const json_value interfaces = gateway.call_object("network.interface", "dump").at("interface");

    ASSERT_EQ(interfaces.size(), 3U);
    EXPECT_EQ(interfaces.at(0).at("interface"), "lan");
    EXPECT_EQ(interfaces.at(1).text(), R"({"interface":"wan_1",)" + status("wan_1").text.substr(1));
    EXPECT_EQ(interfaces.at(2).text(), R"({"interface":"wan_9","up":true,"x":1})");
}

TEST_F(netd_test, a_vlan_device_has_its_parent_its_identifier_and_its_priorities)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .prio = 5, .mtu = 1400}));
    start_settled({.links = true});

    EXPECT_EQ(
        gateway.call_object("network.device", "status", R"({"name":"pon.100"})").text,
        R"({"present":true,"type":"8021q","up":true,"parent":"pon","vid":100,"egress_qos_mapping":["0:5"],)"
        R"("mtu":1400,"macaddr":"00:11:22:33:45:01"})");
}

TEST_F(netd_test, devices_are_reported_as_far_as_they_are_known)
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

TEST_F(netd_test, renewing_brings_back_what_the_kernel_has_lost)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled({.links = true});
    const text_lines routes = gateway.ip_routes("main");
    ASSERT_EQ(run_program({"/usr/sbin/ip", "addr", "flush", "dev", "pon.100"}).status, 0);
    ASSERT_NE(gateway.ip_routes("main"), routes);

    EXPECT_EQ(gateway.call_object("network.interface.wan_1", "renew").status, 0);

    EXPECT_EQ(gateway.ip_routes("main"), routes);
}

TEST_F(netd_test, an_interface_can_be_added_without_being_configured)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start_settled();

    const char request[] =
        R"({"name":"wan_1_x","proto":"dhcpv6","device":"@wan_1","peerdns":false,"metric":7})";
    EXPECT_EQ(gateway.call_object("network", "add_dynamic", request).status, 0);
    gateway.settle_netd();

    EXPECT_EQ(status("wan_1_x").at("up"), true);
    EXPECT_EQ(status("wan_1_x").at("dynamic"), true);
    EXPECT_EQ(status("wan_1_x").at("device"), "pon.100");
    EXPECT_EQ(status("wan_1_x").at("metric"), 7);
    EXPECT_EQ(status("wan_1_x").at("dns-server").text(), "[]");
    EXPECT_EQ(gateway.call_object("network", "add_dynamic", R"({"name":"x","device":"@nosuch"})").status, 4);
    EXPECT_EQ(gateway.call_object("network", "add_dynamic", R"({"proto":"dhcp"})").status, 2);
}

TEST_F(netd_test, without_hotplug_no_script_is_started)
{
    gateway.store_wan(routed_dhcp(1));

    start_settled({.hotplug = false});

    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(netd_test, a_hotplug_script_may_ask_about_its_interface)
{
    gateway.write_file("/etc/hotplug.d/iface/50-ask",
                       "ubus -S call network.interface.$INTERFACE status > /tmp/status-$INTERFACE\n");
    gateway.store_wan(routed_dhcp(1));

    start_settled({.hotplug = true});

    EXPECT_EQ(json_value::parse(gateway.file("/tmp/status-wan_1")).at("up"), true);
}

TEST_F(netd_test, interface_events_are_sent_on_the_bus)
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

TEST_F(netd_test, devices_addresses_and_routes_appear_in_the_kernel)
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

TEST_F(netd_test, a_default_route_replaces_one_of_the_same_metric_for_good)
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

TEST_F(netd_test, a_wan_whose_default_route_was_replaced_leaves_the_other_s)
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

TEST_F(netd_test, default_routes_of_different_metrics_stand_beside_each_other)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    gateway.uci_set("network.wan_2.metric", "10");

    start_settled({.links = true});

    EXPECT_EQ(default_routes(), (text_lines{"default via 198.51.100.1 dev pon.100",
                                            "default via 198.51.100.1 dev pon.200 metric 10"}));
}

TEST_F(netd_test, a_vlan_device_has_its_parent_s_mtu_at_most)
{
    gateway.store_wan(routed_static(3, {.mtu = 1400}));
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .mtu = 1500}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200, .mtu = 1300}));

    start_settled({.links = true});

    EXPECT_EQ(device_attribute("pon", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.100", "mtu"), "1400");
    EXPECT_EQ(device_attribute("pon.200", "mtu"), "1300");
}

TEST_F(netd_test, a_vlan_device_without_its_parent_is_not_there)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.uci_set("network." + gateway.device_section(1).value() + ".ifname", "nosuch0");

    start_settled({.links = true});

    EXPECT_FALSE(device_exists("pon.100"));
    EXPECT_EQ(status("wan_1").at("available"), false);
}

TEST_F(netd_test, setting_up_the_untagged_wan_interrupts_the_vlans_and_caps_them_for_good)
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

class two_wans_on_one_vlan_test : public netd_test {
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

TEST_F(netd_test, devices_of_removed_wans_disappear)
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

TEST_F(netd_test, a_start_takes_the_policy_rules_of_others)
{
    for (const char *family : {"-4", "-6"})
        ASSERT_EQ(run_program({"/usr/sbin/ip", family, "rule", "add", "oif", "pon", "lookup", "150"}).status,
                  0);

    start_settled({.links = true});

    EXPECT_EQ(gateway.ip_rules(), kernel_rules);
    EXPECT_EQ(run_program({"/usr/sbin/ip", "-6", "rule"}).output,
              "0:\tfrom all lookup local\n32766:\tfrom all lookup main\n");
}

TEST_F(netd_test, after_a_restart_route_scripts_have_their_rules_back_and_bridged_wans_have_not)
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

TEST_F(netd_test, an_orderly_end_leaves_no_device)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_pppoe(2, {.vid = 200}));
    start_settled({.links = true});

    gateway.stop_netd();

    EXPECT_FALSE(device_exists("pon.100") || device_exists("pon.200") || device_exists("pppoe-wan_2"));
    EXPECT_EQ(gateway.ip_routes("main"), text_lines{});
}

TEST_F(netd_test, vlans_that_a_killed_daemon_has_left_cannot_be_claimed_until_they_are_deleted)
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

TEST_F(netd_test, an_untagged_interface_that_goes_leaves_the_uplink_clean)
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

TEST_F(netd_test, devices_named_as_ports_are_put_into_the_bridge)
{
    start_settled({.links = true});

    gateway.store_wan(bridged_wan(4, "1000", {.vid = 400}));
    gateway.reload_netd();

    EXPECT_TRUE(gateway.exists("/sys/class/net/br-lan/brif/pon.400"));
    EXPECT_TRUE(gateway.exists("/sys/class/net/br-lan/brif/eth0.1"));
}

TEST_F(netd_test, without_links_the_kernel_is_left_alone)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));

    start_settled({.links = false});

    EXPECT_FALSE(device_exists("pon.100"));
    EXPECT_EQ(status("wan_1").at("available"), true);
}

TEST_F(netd_test, a_laid_down_object_is_replied_exactly)
{
    gateway.store_wan(routed_dhcp(1));
    start_settled();

    gateway.script_interface("wan_1",
                             R"(json {"up":true,"uptime":2147483648,"route":[{"nexthop":"::"}],"x":null})");

    EXPECT_EQ(status("wan_1").text, R"({"up":true,"uptime":2147483648,"route":[{"nexthop":"::"}],"x":null})");
}

TEST_F(netd_test, laid_down_replies_are_read_at_every_request)
{
    start_settled();
    gateway.script_interface("lan", R"(json {"n":1})");
    ASSERT_EQ(status("lan").at("n"), 1);

    gateway.write_file("/gateway/netd/lan", R"(json {"n":2})");
    EXPECT_EQ(status("lan").at("n"), 2);

    gateway.unscript_interface("lan");
    EXPECT_EQ(status("lan").at("up"), true);
}

TEST_F(netd_test, an_interface_laid_down_as_absent_is_not_on_the_bus)
{
    gateway.store_wan(routed_dhcp(1));
    start_settled();

    gateway.script_interface("wan_1", "absent");
    EXPECT_FALSE(gateway.object_exists("network.interface.wan_1"));
    EXPECT_EQ(status("wan_1").status, 4);
    EXPECT_EQ(status("wan_1").text, "");

    gateway.unscript_interface("wan_1");
    EXPECT_EQ(status("wan_1").at("up"), true);
}

TEST_F(netd_test, a_hangup_signal_makes_absent_interfaces_disappear)
{
    gateway.start_bus();
    const child_process daemon({"gateway-netd", "--no-links", "--no-hotplug"});
    ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network"); }));
    gateway.write_file("/gateway/netd/lan", "absent\n");

    kill(daemon.pid(), SIGHUP);

    EXPECT_TRUE(wait_until([this] { return !gateway.object_exists("network.interface.lan"); }));
}

TEST_F(netd_test, an_interface_can_be_laid_down_without_being_configured)
{
    start_settled();

    gateway.script_interface("wan_9", R"(json {"up":false})");
    EXPECT_EQ(status("wan_9").text, R"({"up":false})");

    gateway.unscript_interface("wan_9");
    EXPECT_EQ(status("wan_9").status, 4);
}

TEST_F(netd_test, a_reply_can_be_laid_down_for_an_interface_that_is_brought_along)
{
    gateway.script_interface("wan_2_6", "slow 0.1");
    gateway.store_wan(routed_pppoe(2, {.ip_protocol = 3}));

    start_settled();

    EXPECT_EQ(status("wan_2_6").at("dynamic"), true);
    EXPECT_EQ(status("wan_2_6").at("up"), true);
}

TEST_F(netd_test, a_malformed_reply_prints_as_something_that_is_no_json)
{
    start_settled();

    gateway.script_interface("lan", "malformed");

    EXPECT_EQ(status("lan").status, 0);
    EXPECT_NE(status("lan").text, "");
    EXPECT_FALSE(status("lan").json());
}

TEST_F(netd_test, a_silent_reply_has_no_data)
{
    start_settled();

    gateway.script_interface("lan", "silent");

    EXPECT_EQ(status("lan").status, 0);
    EXPECT_EQ(status("lan").text, "");
}

TEST_F(netd_test, a_big_reply_is_valid_and_longer_than_2048_bytes)
{
    start_settled();

    gateway.script_interface("lan", "big");

    EXPECT_GT(status("lan").text.size(), 2048U);
    EXPECT_EQ(status("lan").at("up"), true);
}

TEST_F(netd_test, a_slow_reply_holds_up_nobody_else)
{
    start_settled();
    gateway.script_interface("lan", R"(slow 1.5 {"late":true})");
    const auto started = std::chrono::steady_clock::now();
    background_call slow("network.interface.lan", "status", "{}");

    EXPECT_EQ(status("loopback").at("up"), true);
    const auto other = std::chrono::steady_clock::now() - started;
    const bus_reply reply = slow.wait();
    const auto whole = std::chrono::steady_clock::now() - started;

    EXPECT_EQ(reply.text, R"({"late":true})");
    EXPECT_LT(other, std::chrono::seconds(1));
    EXPECT_GE(whole, std::chrono::milliseconds(1400));
}

TEST_F(netd_test, a_slow_reply_can_be_the_usual_one_or_any_other)
{
    start_settled();

    gateway.script_interface("lan", "slow 0.1");
    EXPECT_EQ(status("lan").at("up"), true);
    gateway.script_interface("lan", "slow 0.1 silent");
    EXPECT_EQ(status("lan").text, "");
}

TEST_F(netd_test, an_unknown_mode_is_an_error_and_no_reply)
{
    start_settled();

    for (const char *text : {"nonsense", "", "json {broken", "slow", "slow soon"}) {
        SCOPED_TRACE(text);
        gateway.script_interface("lan", text);
        EXPECT_EQ(status("lan").status, 9);
        EXPECT_EQ(status("lan").text, "");
    }
}

TEST_F(netd_test, the_board_is_described_as_the_file_says)
{
    start_settled();
    EXPECT_EQ(gateway.call_object("boardinfo", "all").text,
              R"({"lan":{"numOfPorts":4},"lan_phy":{"numOfPorts":0},"wlan_2g":{"numOfPorts":2},)"
              R"("wlan_5g":{"numOfPorts":2}})");

    gateway.set_ports({.lan = 1});
    EXPECT_EQ(gateway.call_object("boardinfo", "all").at("lan").at("numOfPorts"), 1);

    gateway.remove_board_description();
    EXPECT_FALSE(gateway.object_exists("boardinfo"));

    gateway.set_board_description("{\"other\":[]}");
    EXPECT_EQ(gateway.call_object("boardinfo", "all").text, "{\"other\":[]}");
}

TEST_F(netd_test, a_board_description_that_is_no_json_is_an_error)
{
    gateway.set_board_description("lan 4");

    start_settled();

    EXPECT_EQ(gateway.call_object("boardinfo", "all").status, 9);
}

TEST_F(netd_test, it_returns_to_a_restarted_bus_with_all_objects)
{
    start_settled();

    gateway.stop_bus();
    gateway.start_bus();

    EXPECT_TRUE(wait_until([this] {
        return gateway.object_exists("network") && gateway.object_exists("network.interface.lan") &&
               gateway.object_exists("boardinfo");
    }));
    EXPECT_EQ(status("lan").at("up"), true);
}

TEST_F(netd_test, a_termination_signal_ends_it_with_status_0)
{
    gateway.start_bus();
    child_process daemon({"gateway-netd", "--no-links", "--no-hotplug"});
    ASSERT_TRUE(wait_until([this] { return gateway.object_exists("network"); }));

    EXPECT_EQ(daemon.stop(SIGTERM), 0);
}

TEST_F(netd_test, without_a_bus_it_says_so_and_fails)
{
    const program_result result = run_program({"gateway-netd"});

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "gateway-netd: no bus\n");
}

TEST_F(netd_test, a_wrong_command_line_prints_the_usage)
{
    for (const program_arguments &args :
         {program_arguments{"gateway-netd", "--nosuch"}, program_arguments{"gateway-netd", "word"},
          program_arguments{"gateway-netd", "--pace", "slow"}}) {
        const program_result result = run_program(args);
        EXPECT_EQ(result.status, 1);
        EXPECT_NE(result.errors.find("Usage: gateway-netd"), std::string::npos);
    }
}

} // namespace
