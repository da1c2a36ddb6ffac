// What the generated scripts do when a router's shell runs them: which rules are in force afterwards, and
// that none is left or doubled.
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "rules/route_rule.h"
#include "wan/wan_names.h"

#include "support/code_test.h"

#include <algorithm>

namespace {

// Machine rules that are always there.
const text_lines no_ip_rules = {"0: from all lookup local", "32766: from all lookup main",
                                "32767: from all lookup default"};

text_lines with_machine_rules(text_lines rules)
{
    rules.insert(rules.begin(), no_ip_rules[0]);
    rules.insert(rules.end(), no_ip_rules.begin() + 1, no_ip_rules.end());
    return rules;
}

class rule_script_test : public code_test {
protected:
    rule_script_test() { gateway.set_ports({.lan = 4}); }

    void expect_no_rules() const
    {
        EXPECT_EQ(gateway.ebtables_rules(), text_lines{});
        EXPECT_EQ(gateway.broute_rules(), text_lines{});
        EXPECT_EQ(gateway.ip_rules(), no_ip_rules);
        EXPECT_EQ(gateway.iptables_mangle_output(), text_lines{});
    }
};

std::string mark_rule(const char *port, const char *mark)
{
    return std::string("BROUTING -i ") + port + " -j mark --mark-or " + mark + " --mark-target CONTINUE";
}

class bridge_script_test : public rule_script_test {
protected:
    void write(const wan_config &wan)
    {
        const wan_rule_ctx ctx = rule_ctx(wan);
        wan_write_bridge_rule(&ctx);
        path_ = bridge_rule_path(wan.wanId).text;
    }
    void run(const program_arguments &args = {}) { (void)gateway.run_script(path_, args); }

    std::string path_;
};

TEST_F(bridge_script_test, a_run_installs_each_rule_once_however_often)
{
    const text_lines filter = {
        "INPUT -p IPv4 -i eth0.1 --ip-proto udp --ip-dport 67:68 -j DROP",
        "INPUT -p IPv6 -i eth0.1 --ip6-proto udp --ip6-dport 547 -j DROP",
        "INPUT -p IPv4 -i eth0.3 --ip-proto udp --ip-dport 67:68 -j DROP",
        "INPUT -p IPv6 -i eth0.3 --ip6-proto udp --ip6-dport 547 -j DROP",
        "FORWARD -i eth0.4 -o pon.100 -j DROP",
        "FORWARD -i pon.100 -o eth0.4 -j DROP",
        "FORWARD -i eth0.2 -o pon.100 -j DROP",
        "FORWARD -i pon.100 -o eth0.2 -j DROP",
        "OUTPUT -p IPv6 -o eth0.1 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP",
        "OUTPUT -p IPv6 -o eth0.3 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP",
        "OUTPUT -p IPv4 -o pon.100 --ip-proto udp --ip-dport 67:68 -j DROP",
        "OUTPUT -p IPv6 -o pon.100 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP",
        "OUTPUT -p IPv6 -o pon.100 --ip6-proto udp --ip6-dport 546 -j DROP",
    };
    write(bridged_wan(3, "1010", {.vid = 100, .disable_lan_dhcp = 1}));

    for (int times = 1; times <= 3; times++) {
        SCOPED_TRACE(times);
        run();

        EXPECT_EQ(gateway.ebtables_rules(), filter);
        EXPECT_EQ(gateway.broute_rules(),
                  (text_lines{mark_rule("eth0.3", "16384"), mark_rule("eth0.1", "16384")}));
        EXPECT_EQ(gateway.ip_rules(), with_machine_rules({"32765: from all fwmark 0x4000/0x4000 prohibit"}));
    }
}

TEST_F(bridge_script_test, dhcp_passes_where_it_is_not_blocked)
{
    write(bridged_wan(20, "1010", {.vid = 100}));

    run();

    EXPECT_EQ(gateway.ebtables_rules(),
              (text_lines{"FORWARD -i eth0.4 -o pon.100 -j DROP", "FORWARD -i pon.100 -o eth0.4 -j DROP",
                          "FORWARD -i eth0.2 -o pon.100 -j DROP", "FORWARD -i pon.100 -o eth0.2 -j DROP"}));
    EXPECT_EQ(gateway.ip_rules(),
              with_machine_rules({"32765: from all fwmark 0x80000000/0x80000000 prohibit"}));
}

TEST_F(bridge_script_test, the_argument_r_takes_back_every_rule_and_no_other)
{
    write(bridged_wan(4, "0100", {.vid = 200, .disable_lan_dhcp = 1}));
    run();
    const text_lines filter = gateway.ebtables_rules();
    const text_lines broute = gateway.broute_rules();
    const text_lines policy = gateway.ip_rules();
    write(bridged_wan(3, "1010", {.vid = 100, .disable_lan_dhcp = 1}));
    run();
    run();
    ASSERT_NE(gateway.ebtables_rules(), filter);

    run({"-r"});

    EXPECT_EQ(gateway.ebtables_rules(), filter);
    EXPECT_EQ(gateway.broute_rules(), broute);
    EXPECT_EQ(gateway.ip_rules(), policy);

    wan_remove_bridge_rule(4);
    expect_no_rules();
}

TEST_F(bridge_script_test, a_wan_of_every_port_cuts_off_nobody)
{
    write(bridged_wan(1, "1111"));

    run();

    EXPECT_EQ(gateway.ebtables_rules(), text_lines{});
    EXPECT_EQ(gateway.broute_rules().size(), 4U);
    run({"-r"});
    expect_no_rules();
}

TEST_F(rule_script_test, isolation_drops_between_wan_devices_in_both_directions)
{
    for (const char *device : {"pon.10", "pon.20", "pon.30"})
        gateway.uci_add_list("network.@device[0].ports", device);
    wan_write_isolate_rule();
    text_lines expected;
    for (const char *pair : {"10 20", "10 30", "20 10", "20 30", "30 10", "30 20"}) {
        const std::string text = pair;
        expected.insert(expected.begin(),
                        "FORWARD -i pon." + text.substr(0, 2) + " -o pon." + text.substr(3) + " -j DROP");
    }

    for (int times = 1; times <= 2; times++) {
        (void)gateway.run_script(isolate_rule_path);
        EXPECT_EQ(gateway.ebtables_rules(), expected) << times;
    }

    (void)gateway.run_script(isolate_rule_path, {"-r"});
    expect_no_rules();
}

class route_script_test : public rule_script_test {
protected:
    route_script_test()
    {
        run_ip({"addr", "replace", "203.0.113.9/24", "dev", "pon"});
        gateway.start_netd();
        script_wan("wan_3", {"203.0.113.53", "2001:db8::53", "0.0.0.0", "203.0.113.54"});
    }
    ~route_script_test() override { run_ip({"addr", "flush", "dev", "pon"}); }

    static void run_ip(program_arguments args)
    {
        args.insert(args.begin(), "ip");
        EXPECT_EQ(run_program(args).status, 0) << args[1];
    }

    // An interface that is up on the uplink, with these DNS servers.
    void script_wan(const std::string &interface, const text_lines &servers)
    {
        std::string list;
        for (const std::string &server : servers)
            list += (list.empty() ? "\"" : ",\"") + server + "\"";
        gateway.script_interface(
            interface,
            R"(json {"up":true,"l3_device":"pon","ipv4-address":[{"address":"203.0.113.9","mask":24}],)"
            R"("route":[{"target":"0.0.0.0","mask":0,"nexthop":"203.0.113.1"}],"dns-server":[)" +
                list + "]}");
    }

    void write(const wan_config &wan)
    {
        const wan_rule_ctx ctx = rule_ctx(wan);
        wan_write_route_rule(&ctx);
    }

    // What the hotplug system does on an interface's event.
    void event(const char *action, const char *interface = "wan_3")
    {
        (void)run_program({"hotplug-call", "iface"}, {{"ACTION", action}, {"INTERFACE", interface}});
    }

    size_t reloads_of_dnsmasq() const
    {
        const text_lines commands = gateway.commands();
        return static_cast<size_t>(
            std::count(commands.begin(), commands.end(), "/etc/init.d/dnsmasq reload"));
    }
};

const text_lines wan_3_policy = with_machine_rules({
    "32762: from all oif pon lookup 103",
    "32763: from 203.0.113.9 lookup 103",
    "32764: from all fwmark 0x4000/0x4000 lookup 103",
    "32765: from all fwmark 0x4000/0x4000 prohibit",
});

TEST_F(route_script_test, coming_up_installs_each_rule_once_however_often)
{
    write(routed_dhcp(3, {.vid = 100, .disable_lan_dhcp = 1, .bind = "1010"}));

    for (const char *action : {"ifup", "ifup", "ifupdate"}) {
        SCOPED_TRACE(action);
        event(action);

        EXPECT_EQ(gateway.ip_rules(), wan_3_policy);
        EXPECT_EQ(gateway.ip_routes("103"),
                  (text_lines{"default via 203.0.113.1 dev pon", "203.0.113.0/24 dev pon scope link"}));
        EXPECT_EQ(gateway.broute_rules(),
                  (text_lines{mark_rule("eth0.3", "16384"), mark_rule("eth0.1", "16384")}));
        EXPECT_EQ(
            gateway.ebtables_rules(),
            (text_lines{
                "INPUT -p IPv4 -i eth0.1 --ip-proto udp --ip-dport 67:68 -j DROP",
                "INPUT -p IPv6 -i eth0.1 --ip6-proto udp --ip6-dport 547 -j DROP",
                "INPUT -p IPv4 -i eth0.3 --ip-proto udp --ip-dport 67:68 -j DROP",
                "INPUT -p IPv6 -i eth0.3 --ip6-proto udp --ip6-dport 547 -j DROP",
                "OUTPUT -p IPv6 -o eth0.1 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP",
                "OUTPUT -p IPv6 -o eth0.3 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j "
                "DROP"}));
        EXPECT_EQ(gateway.iptables_mangle_output(),
                  text_lines{"-A OUTPUT -s 192.168.1.1/32 -d 192.168.1.0/24 -j MARK --set-xmark 0x0/0x4000"});
    }
}

TEST_F(route_script_test, going_down_takes_back_every_rule)
{
    write(routed_dhcp(3, {.vid = 100, .service = 2, .disable_lan_dhcp = 1, .bind = "1010"}));
    event("ifup");
    ASSERT_NE(gateway.ip_rules(), no_ip_rules);

    event("ifdown");

    expect_no_rules();
    EXPECT_EQ(gateway.ip_routes("103"), text_lines{});
}

TEST_F(route_script_test, removal_takes_back_every_rule_without_an_event)
{
    write(routed_dhcp(3, {.vid = 100, .service = 4, .disable_lan_dhcp = 1, .bind = "1010"}));
    event("ifup");
    ASSERT_NE(gateway.ip_rules(), no_ip_rules);

    wan_remove_route_rule(3);

    expect_no_rules();
    EXPECT_EQ(gateway.ip_routes("103"), text_lines{});
}

TEST_F(route_script_test, rules_go_although_the_interface_has_lost_its_address)
{
    write(routed_dhcp(3, {.vid = 100, .service = 2, .disable_lan_dhcp = 1, .bind = "1010"}));
    event("ifup");
    gateway.script_interface("wan_3", R"(json {"up":false})");

    event("ifdown");

    expect_no_rules();
}

TEST_F(route_script_test, other_actions_change_nothing)
{
    write(routed_dhcp(3, {.vid = 100, .bind = "1010"}));
    event("iflink");
    expect_no_rules();
    event("ifup");

    for (const char *action : {"iflink", "", "ifup-failed"})
        event(action);

    EXPECT_EQ(gateway.ip_rules(), wan_3_policy);
}

TEST_F(route_script_test, events_of_other_interfaces_do_not_count)
{
    write(routed_dhcp(3, {.vid = 100, .bind = "1010"}));

    for (const char *interface : {"wan_4", "lan", "wan", "dslite_3", "xwan_3", ""}) {
        SCOPED_TRACE(interface);
        event("ifup", interface);
        expect_no_rules();
    }

    event("ifup", "wan_3_v6");
    EXPECT_EQ(gateway.ip_rules(), wan_3_policy) << "the WAN's own IPv6 interface";
    event("ifdown", "lan");
    EXPECT_EQ(gateway.ip_rules(), wan_3_policy);
}

TEST_F(route_script_test, a_wan_without_ports_marks_nothing)
{
    write(routed_dhcp(3, {.vid = 100, .disable_lan_dhcp = 1}));

    event("ifup");

    EXPECT_EQ(gateway.ip_rules(), with_machine_rules({"32764: from all oif pon lookup 103",
                                                      "32765: from 203.0.113.9 lookup 103"}));
    EXPECT_EQ(gateway.broute_rules(), text_lines{});
    EXPECT_EQ(gateway.ebtables_rules(), text_lines{});
    EXPECT_EQ(gateway.ip_routes("103").size(), 2U);
    event("ifdown");
    expect_no_rules();
}

TEST_F(route_script_test, services_that_call_home_reach_their_own_servers)
{
    for (uint8_t service = 0; service < 8; service++) {
        SCOPED_TRACE(service);
        write(routed_dhcp(3, {.vid = 100, .service = service, .bind = "1010"}));

        event("ifup");

        text_lines expected = wan_3_policy;
        if (service == 2 || service == 4 || service == 5)
            expected.insert(expected.begin() + 1, {"32760: from all to 203.0.113.54 lookup 103",
                                                   "32761: from all to 203.0.113.53 lookup 103"});
        EXPECT_EQ(gateway.ip_rules(), expected);
        event("ifdown");
        EXPECT_EQ(gateway.ip_rules(), no_ip_rules);
    }
}

TEST_F(route_script_test, the_lans_dhcp_server_takes_over_the_wans_servers)
{
    write(routed_dhcp(3, {.vid = 100}));
    gateway.uci_set("dhcp.lan.dns_sync_with_wan", "wan_3");
    gateway.uci_add_list("dhcp.lan.dhcp_option", "6,192.0.2.1");
    gateway.clear_commands();

    for (const char *action : {"ifup", "ifupdate"}) {
        SCOPED_TRACE(action);
        event(action);
        EXPECT_EQ(gateway.uci_list("dhcp.lan.dhcp_option"),
                  text_lines{"6,203.0.113.53,0.0.0.0,203.0.113.54"});
        EXPECT_NE(gateway.config("dhcp").find("6,203.0.113.53"), std::string::npos) << "committed";
    }
    EXPECT_EQ(reloads_of_dnsmasq(), 2U);

    event("ifdown");
    EXPECT_EQ(gateway.uci_list("dhcp.lan.dhcp_option"), std::nullopt);
    EXPECT_EQ(gateway.config("dhcp").find("dhcp_option"), std::string::npos) << "committed";
    EXPECT_EQ(gateway.uci_get("dhcp.lan.dns_sync_with_wan"), "wan_3");
}

TEST_F(route_script_test, without_ipv4_servers_the_lan_gets_none)
{
    script_wan("wan_3", {"2001:db8::53"});
    write(routed_dhcp(3, {.vid = 100}));
    gateway.uci_set("dhcp.lan.dns_sync_with_wan", "wan_3");
    gateway.uci_add_list("dhcp.lan.dhcp_option", "6,192.0.2.1");

    event("ifup");

    EXPECT_EQ(gateway.uci_list("dhcp.lan.dhcp_option"), std::nullopt);
}

TEST_F(route_script_test, the_lans_ipv6_server_takes_over_the_wans_servers)
{
    script_wan("wan_3_v6", {"2001:db8::1", "203.0.113.53", "2001:db8::2"});
    for (const char *source : {"wan_3_v6", "wan_3"}) {
        SCOPED_TRACE(source);
        write(routed_dhcp(3, {.vid = 100}));
        gateway.uci_set("dhcp.lan.v6dns_sync_with_wan", source);
        gateway.uci_add_list("dhcp.lan.dns", "2001:db8::9");
        gateway.clear_commands();

        event("ifup", source);

        const text_lines expected = std::string(source) == "wan_3" ? text_lines{"2001:db8::53"}
                                                                   : text_lines{"2001:db8::1", "2001:db8::2"};
        EXPECT_EQ(gateway.uci_list("dhcp.lan.dns"), expected);
        EXPECT_NE(gateway.config("dhcp").find("list dns '" + expected.back() + "'"), std::string::npos)
            << "committed";
        EXPECT_EQ(reloads_of_dnsmasq(), 1U);

        event("ifdown");
        EXPECT_EQ(gateway.config("dhcp").find("list dns "), std::string::npos) << "committed";
    }
}

TEST_F(route_script_test, servers_of_another_wan_are_left_alone)
{
    write(routed_dhcp(3, {.vid = 100}));
    gateway.uci_set("dhcp.lan.dns_sync_with_wan", "wan_4");
    gateway.uci_set("dhcp.lan.v6dns_sync_with_wan", "wan_4_v6");
    gateway.uci_add_list("dhcp.lan.dhcp_option", "6,192.0.2.1");
    gateway.uci_add_list("dhcp.lan.dns", "2001:db8::9");
    const std::string before = gateway.config("dhcp");
    gateway.clear_commands();

    event("ifup");
    event("ifdown");
    (void)gateway.run_script(route_rule_path(3).text, {"-r"});

    EXPECT_EQ(gateway.config("dhcp"), before);
    EXPECT_EQ(reloads_of_dnsmasq(), 0U);
}

TEST_F(route_script_test, two_wans_keep_to_their_own_tables)
{
    write(routed_dhcp(3, {.vid = 100, .bind = "1000"}));
    event("ifup");
    const text_lines policy = gateway.ip_rules();
    const text_lines broute = gateway.broute_rules();
    const text_lines mangle = gateway.iptables_mangle_output();
    script_wan("wan_4", {});
    write(routed_dhcp(4, {.vid = 200, .bind = "0100"}));
    event("ifup", "wan_4");
    ASSERT_EQ(gateway.ip_routes("104").size(), 2U);
    ASSERT_NE(gateway.ip_rules(), policy);

    wan_remove_route_rule(4);

    EXPECT_EQ(gateway.ip_rules(), policy);
    EXPECT_EQ(gateway.broute_rules(), broute);
    EXPECT_EQ(gateway.iptables_mangle_output(), mangle);
    EXPECT_EQ(gateway.ip_routes("103").size(), 2U);
    EXPECT_EQ(gateway.ip_routes("104"), text_lines{});
}

} // namespace
