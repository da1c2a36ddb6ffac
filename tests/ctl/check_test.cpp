// Each finding of `check` is planted on a gateway where nothing is amiss, and found.
#include "ctl/ctl_test.h"
#include "ctl/findings.h"

#include <functional>
#include <set>

namespace {

class ctl_check_test : public ctl_test {
protected:
    // A dialled WAN with two ports, a DHCP one, a bridged one, with their scripts and rules.
    void start_three()
    {
        gateway.install_package();
        gateway.start_netd({.links = true, .hotplug = true});
        gateway.start_korvel();
        gateway.write_file("/tmp/password", "secret\n");
        ctl_ok({"add", "--pppoe", "alice", "--password-file", "/tmp/password", "--vlan", "100", "--ports",
                "lan1,lan2", "--no-lan-dhcp"});
        ctl_ok({"add", "--vlan", "200", "--service", "tr069"});
        ctl_ok(
            {"add", "--bridged", "--vlan", "300", "--service", "other", "--ports", "lan3", "--no-lan-dhcp"});
        gateway.settle_netd();
        ASSERT_TRUE(wait_until([&] { return ctl({"check"}).status == 0; }, std::chrono::seconds(20)))
            << ctl({"check"}).output;
    }
    // The same three without links and rules, for what is found without looking at the kernel.
    void store_three()
    {
        gateway.store_wan(routed_pppoe(1, {.vid = 100, .bind = "11000000"}));
        gateway.store_wan(routed_dhcp(2, {.vid = 200, .service = 2}));
        gateway.store_wan(bridged_wan(3, "00100000", {.vid = 300, .service = 3}));
        gateway.start_netd();
        gateway.start_korvel(); // writes the scripts
    }
    static void ctl_ok(const program_arguments &words)
    {
        const program_result result = ctl(words);
        ASSERT_EQ(0, result.status) << result.errors;
    }
    static void shell(const std::string &command)
    {
        const program_result result = run_program({"sh", "-c", command});
        ASSERT_EQ(0, result.status) << command << ": " << result.errors;
    }
    static std::multiset<unsigned> found()
    {
        std::multiset<unsigned> numbers;
        const json_value list = ctl_json({"check"}).at("findings");
        for (size_t i = 0; i < list.size(); i++)
            for (unsigned number = 1; number < 100; number++)
                if (list.at(i).at("number") == number)
                    numbers.insert(number);
        return numbers;
    }
};

TEST_F(ctl_check_test, nothing_is_amiss_on_a_gateway_that_works)
{
    start_three();

    EXPECT_EQ("Nothing is amiss.\n", ctl({"check"}).output);
    const json_value reply = ctl_json({"check"});
    EXPECT_EQ(reply.at("ok"), true);
    EXPECT_EQ(reply.at("exit"), 0);
    EXPECT_EQ(reply.at("findings").size(), 0U);
}

struct planted {
    finding number;
    const char *name;
    const char *command; // what plants it, in the gateway's shell
};

void PrintTo(const planted &row, std::ostream *out)
{
    *out << row.name;
}

const planted rows[] = {
    {finding::listed_without_device, "listed_without_device",
     "uci add_list network.korvel.wanList=9; uci set network.korvel.maxWanId=9; uci commit network"},
    {finding::listed_twice, "listed_twice", "uci add_list network.korvel.wanList=2; uci commit network"},
    {finding::device_not_listed, "device_not_listed",
     "uci del_list network.korvel.wanList=2; uci commit network"},
    {finding::device_without_name, "device_without_name",
     "uci add network device; uci set network.@device[-1].vid=77; uci commit network"},
    {finding::interface_without_wan, "interface_without_wan",
     "uci set network.wan_9=interface; uci commit network"},
    {finding::wan_without_interface, "wan_without_interface", "uci delete network.wan_2; uci commit network"},
    {finding::zone_entry_without_interface, "zone_entry_without_interface",
     "uci add_list firewall.@zone[1].network=wan_9; uci commit firewall"},
    {finding::interface_outside_zone, "interface_outside_zone",
     "uci del_list firewall.@zone[1].network=wan_2; uci commit firewall"},
    {finding::bridged_outside_bridge, "bridged_outside_bridge",
     "uci del_list network.@device[0].ports=pon.300; uci commit network"},
    {finding::proxy_without_interface, "proxy_without_interface",
     "uci set omcproxy.@proxy[0].uplink=wan_9; uci commit omcproxy"},
    {finding::upnp_without_interface, "upnp_without_interface",
     "uci set upnpd.config.external_iface=wan_9; uci commit upnpd"},
    {finding::dhcp_without_interface, "dhcp_without_interface",
     "uci set dhcp.lan.dns_sync_with_wan=wan_9; uci commit dhcp"},
    {finding::script_without_wan, "script_without_wan",
     "cp /etc/korvel/rule_wan_3.sh /etc/korvel/rule_wan_9.sh"},
    {finding::wan_without_script, "wan_without_script", "rm /etc/hotplug.d/iface/99-wan_2"},
    {finding::above_highest, "above_highest", "uci set network.korvel.maxWanId=2; uci commit network"},
    {finding::reserved_identifier, "reserved_identifier",
     "uci add_list network.korvel.wanList=154; uci set network.korvel.maxWanId=154; uci commit network"},
    {finding::shared_mark, "shared_mark",
     "for id in 21 22; do uci add network device; uci set network.@device[-1].name=pon.$id; "
     "uci set network.@device[-1].lkname=${id}_OTHER_B_VID_$id; uci set network.@device[-1].vid=$id; "
     "uci set network.@device[-1].wanMode=0; uci add_list network.@device[-1].port_binding=0; "
     "for p in 0 0 1 1 1; do uci add_list network.@device[-1].port_binding=$p; done; "
     "uci add_list network.korvel.wanList=$id; done; uci set network.korvel.maxWanId=22; uci commit network"},
    {finding::shared_port, "shared_port",
     "uci set network.@device[-1].port_binding=1 2> /dev/null; uci delete network.@device[-1].port_binding; "
     "uci add_list network.@device[-1].port_binding=1; uci commit network"},
    {finding::shared_vlan, "shared_vlan", "uci set network.@device[-1].vid=200; uci commit network"},
    {finding::too_many_bridged, "too_many_bridged",
     "for id in 11 12 13 14 15 16 17 18; do uci add network device; uci set "
     "network.@device[-1].name=pon.$id; "
     "uci set network.@device[-1].lkname=${id}_INTERNET_B_VID_$id; uci set network.@device[-1].vid=$id; "
     "uci set network.@device[-1].wanMode=0; uci add_list network.korvel.wanList=$id; done; "
     "uci set network.korvel.maxWanId=18; uci commit network"},
    {finding::ipv6_on_ports, "ipv6_on_ports",
     "uci set network.@device[1].IpProtocolType=3; uci commit network"},
    {finding::foreign_mark, "foreign_mark",
     "printf \"config mwan3 'globals'\\n\\toption mmx_mask '0x3F00'\\n\" > /etc/config/mwan3"},
    {finding::no_wan_zone, "no_wan_zone", "uci delete firewall.@zone[1]; uci commit firewall"},
    {finding::no_bridge, "no_bridge", "uci delete network.@device[0].type; uci commit network"},
    {finding::rule_missing, "rule_of_a_bridged_wan_missing", "ip rule del fwmark 0x4000/0x4000 prohibit"},
    {finding::rule_missing, "rule_of_a_routed_wan_missing", "ip rule del fwmark 0x1000/0x1000 lookup 101"},
    {finding::rule_missing, "source_rule_missing",
     "ip rule del $(ip rule | sed -n 's/^.*\\(from [0-9.]* lookup 102\\).*/\\1/p')"},
    {finding::rule_missing, "bridge_rule_missing", "ebtables -D FORWARD -i eth0.4 -o pon.300 -j DROP"},
    {finding::rule_missing, "broute_rule_missing",
     "ebtables -t broute -D BROUTING -i eth0.1 -j mark --mark-or 4096 --mark-target CONTINUE"},
    {finding::rule_missing, "dhcp_rule_of_a_port_missing",
     "ebtables -D INPUT -p IPv4 -i eth0.3 --ip-proto udp --ip-dport 67:68 -j DROP"},
    {finding::rule_missing, "dhcpv6_rule_of_a_port_missing",
     "ebtables -D INPUT -p IPv6 -i eth0.1 --ip6-proto udp --ip6-dport 547 -j DROP"},
    {finding::rule_missing, "advertisement_rule_of_a_port_missing",
     "ebtables -D OUTPUT -p IPv6 -o eth0.2 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement "
     "-j DROP"},
    {finding::rule_missing, "dhcpv6_rule_of_a_device_missing",
     "ebtables -D OUTPUT -p IPv6 -o pon.300 --ip6-proto udp --ip6-dport 546 -j DROP"},
    {finding::rule_missing, "advertisement_rule_of_a_device_missing",
     "ebtables -D OUTPUT -p IPv6 -o pon.300 --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement "
     "-j DROP"},
    {finding::rule_missing, "dhcp_rule_of_a_device_missing",
     "ebtables -D OUTPUT -p IPv4 -o pon.300 --ip-proto udp --ip-dport 67:68 -j DROP"},
    {finding::rule_doubled, "dhcpv6_rule_doubled",
     "ebtables -A INPUT -p IPv6 -i eth0.1 --ip6-proto udp --ip6-dport 547 -j DROP"},
    {finding::rule_without_wan, "dhcpv6_rule_without_wan",
     "ebtables -A OUTPUT -p IPv6 -o pon.999 --ip6-proto udp --ip6-dport 546 -j DROP"},
    {finding::rule_doubled, "rule_doubled", "ip rule add fwmark 0x4000/0x4000 prohibit"},
    {finding::rule_doubled, "bridge_rule_doubled", "ebtables -I FORWARD -i eth0.4 -o pon.300 -j DROP"},
    {finding::rule_without_wan, "rule_without_wan", "ip rule add fwmark 0x20000/0x20000 prohibit"},
    {finding::rule_without_wan, "table_rule_without_wan", "ip rule add from 192.0.2.77 lookup 109"},
    {finding::rule_without_wan, "bridge_rule_without_wan",
     "ebtables -I FORWARD -i eth0.4 -o pon.999 -j DROP"},
    {finding::rule_without_wan, "broute_rule_without_wan",
     "ebtables -t broute -I BROUTING -i eth0.1 -j mark --mark-or 0x20000 --mark-target CONTINUE"},
    {finding::no_main_rule, "no_main_rule", "ip rule del pref 32766"},
    {finding::no_main_rule, "no_default_rule", "ip rule del pref 32767"},
    {finding::wrong_gateway, "wrong_gateway", "ip route flush table 102"},
    {finding::down_without_prohibit, "down_without_prohibit",
     "ubus call network.interface.wan_1 down; ubus call gateway-netd settle; ip rule del fwmark "
     "0x1000/0x1000 "
     "prohibit; true"},
};

class ctl_check_plants : public ctl_check_test, public testing::WithParamInterface<planted> {};

TEST_P(ctl_check_plants, is_found)
{
    const unsigned number = static_cast<unsigned>(GetParam().number);
    GetParam().number < finding::rule_missing ? store_three() : start_three();
    ASSERT_FALSE(found().contains(number)) << ctl({"check"}).output;

    shell(GetParam().command);

    const program_result result = ctl({"check"});
    EXPECT_EQ(code(exit_status::findings), result.status);
    EXPECT_TRUE(found().contains(number)) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("    remedy: ")) << result.output;
    gateway.remove("/etc/config/mwan3");
}
INSTANTIATE_TEST_SUITE_P(each, ctl_check_plants, testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_F(ctl_check_test, what_a_link_has_comes_from_the_network_daemon)
{
    start_three();
    gateway.write_file("/gateway/netd/wan_2",
                       R"(json {"up":true,"ipv4-address":[{"address":"192.0.2.9","mask":24}],)"
                       R"("route":[{"target":"::","nexthop":"fe80::1"},{"nexthop":7},3],)"
                       R"("inactive":{"route":[{"target":"0.0.0.0","nexthop":"192.0.2.1"}]}})");
    const std::string output = ctl({"check"}).output;
    EXPECT_NE(std::string::npos, output.find("\"from 192.0.2.9 lookup 102\" is not in the kernel")) << output;
    EXPECT_NE(std::string::npos, output.find("has no default route by its gateway 192.0.2.1\n")) << output;

    // Whose link does not tell is down, and without ports of its own needs no rule.
    for (const char *const reply : {"absent", "silent", "malformed", R"(json {"up":false})"}) {
        gateway.write_file("/gateway/netd/wan_2", reply);
        EXPECT_EQ("Nothing is amiss.\n", ctl({"check"}).output) << reply;
    }
    gateway.remove("/gateway/netd/wan_2");
}

TEST_F(ctl_check_test, programs_that_are_not_there_are_found)
{
    start_three();
    gateway.fake_program("ip", "exit 1");
    EXPECT_TRUE(found().contains(static_cast<unsigned>(finding::no_iproute2)));
    gateway.remove("/gateway/fakes/ip");
    gateway.fake_program("ebtables", "exit 255");
    EXPECT_TRUE(found().contains(static_cast<unsigned>(finding::no_broute)));
    EXPECT_FALSE(found().contains(static_cast<unsigned>(finding::no_iproute2)));
    EXPECT_EQ(found().count(static_cast<unsigned>(finding::no_ipcalc)), 0U);
    const program_result result = run_program({"korvelctl", "check", "--json"}, {{"PATH", "/gateway/bin"}});
    EXPECT_NE(std::string::npos, result.output.find("\"number\":34")) << result.output;
}

TEST_F(ctl_check_test, changes_nothing)
{
    start_three();
    gateway.write_file("/etc/config/before", "");
    const auto state = [&] {
        text_lines all = gateway.ip_rules();
        for (const text_lines &more :
             {gateway.ebtables_rules(), gateway.broute_rules(), gateway.list_directory("/etc/config"),
              gateway.list_directory("/etc/korvel")})
            all.insert(all.end(), more.begin(), more.end());
        all.push_back(gateway.config("network") + gateway.config("firewall"));
        return all;
    };
    shell("uci add_list network.korvel.wanList=9; uci commit network; ip rule add fwmark 0x20000/0x20000 "
          "prohibit");
    const text_lines before = state();

    EXPECT_EQ(code(exit_status::findings), ctl({"check"}).status);

    EXPECT_EQ(before, state());
    gateway.remove("/etc/config/before");
}

TEST_F(ctl_check_test, what_cannot_be_looked_at_is_said)
{
    gateway.start_bus();
    gateway.set_config("network", "");
    EXPECT_EQ(code(exit_status::unknown), ctl({"check"}).status);
    EXPECT_EQ(code(exit_status::usage), ctl({"check", "1"}).status);
}

TEST_F(ctl_check_test, without_the_board_s_ports_it_cannot_tell)
{
    gateway.start_netd();
    gateway.remove_board_description();

    const program_result result = ctl({"check"});

    EXPECT_EQ(code(exit_status::unknown), result.status) << result.output;
    EXPECT_EQ(0, result.output.find("??  The board does not tell its ports"));
    EXPECT_EQ(ctl_json({"check"}).at("unknown").size(), 1U);
}

TEST_F(ctl_check_test, hostile_names_are_shown_only)
{
    gateway.start_netd();
    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig device\n\toption vid '1'\n\toption lkname "
                                      "'9_\033[2J\a'\n\toption name 'pon.1'\n");
    gateway.uci_set("omcproxy.@proxy[0].uplink", "wan_9\033]0;x\a");

    const program_result result = ctl({"check"});

    EXPECT_EQ(code(exit_status::findings), result.status);
    EXPECT_TRUE(is_harmless(result.output)) << result.output;
    EXPECT_TRUE(is_harmless(ctl({"check", "--json"}).output));
}

} // namespace
