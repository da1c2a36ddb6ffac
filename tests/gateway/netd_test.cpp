// The network-daemon stand-in: what it replies must have the real daemon's members, order and types, byte for
// byte, since the daemon's reader is tested against it.
#include "gateway/netd_fixture.h"

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

class netd_test : public netd_fixture {};

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
    gateway.script_interface("lan", R"(slow 4 {"late":true})");
    const auto started = std::chrono::steady_clock::now();
    background_call slow("network.interface.lan", "status", "{}");

    EXPECT_EQ(status("loopback").at("up"), true);
    const auto other = std::chrono::steady_clock::now() - started;
    const bus_reply reply = slow.wait();
    const auto whole = std::chrono::steady_clock::now() - started;

    EXPECT_EQ(reply.text, R"({"late":true})");
    EXPECT_LT(other, std::chrono::seconds(4));
    EXPECT_GE(whole, std::chrono::milliseconds(3900));
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
