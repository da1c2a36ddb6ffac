// Modifications that are applied at once: what a request without a wait does, refuses and answers.
#include "support/daemon_test.h"
#include "support/small_disk.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr char modified[] = "korvel modify OK.";
constexpr char refused[] = "korvel modify ERR!";

class modify_test : public daemon_test {
protected:
    // Creates the WAN through the bus; it gets the next identifier.
    void add(const wan_config &wan)
    {
        ASSERT_EQ(result_reply(0, 0, modified), gateway.call("add", add_request(wan)));
    }

    void start_with(std::initializer_list<wan_config> wans)
    {
        gateway.start_netd();
        gateway.start_korvel();
        for (const wan_config &wan : wans)
            add(wan);
        gateway.clear_commands();
        gateway.clear_log();
    }

    bus_reply modify(const wan_config &wan) { return gateway.call("modify", modify_request(wan)); }

    // The commands, without those that the old rule script ran to take its rules back.
    text_lines service_commands() const
    {
        text_lines commands = gateway.commands();
        std::erase_if(commands, [](const std::string &command) {
            return command.starts_with("ip ") || command.starts_with("iptables ") ||
                   command.starts_with("ebtables ");
        });
        return commands;
    }

    std::string all_configurations() const
    {
        std::string text;
        for (const char *const name : {"network", "firewall", "omcproxy", "upnpd", "dhcp"})
            text += gateway.config(name);
        return text;
    }
};

TEST_F(modify_test, a_request_without_an_identifier_is_invalid)
{
    start_with({});

    const bus_reply reply = gateway.call("modify", R"({"wanMode":1,"wait":5})");

    EXPECT_EQ(result_reply(2, -1, "korvel modify ERR! Invalid WAN ID."), reply);
}

TEST_F(modify_test, a_request_with_an_argument_out_of_range_changes_nothing)
{
    constexpr struct {
        const char *arguments, *display;
    } cases[] = {
        {R"("wanMode":2)", "WAN_MODE"},
        {R"("mtu":649)", "MTU"},
        {R"("mtu":1501)", "MTU"},
        {R"("vid":4096,"service":8)", "VID"},
        {R"("bind":"11111111111111111")", "BIND"},
        {R"("mtu":1400,"iphostId":3)", "IPHOST_ID"},
    };
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    for (const auto &row : cases) {
        SCOPED_TRACE(row.arguments);

        const bus_reply reply = gateway.call("modify", std::string("{\"wanId\":1,") + row.arguments + "}");

        EXPECT_EQ(result_reply(0, -1, std::string("korvel modify ERR! Invalid ") + row.display + "."), reply);
        EXPECT_EQ(before, all_configurations());
    }
    EXPECT_EQ(text_lines{}, gateway.commands());
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(modify_test, a_wait_of_zero_applies_at_once)
{
    start_with({routed_dhcp(1, {.vid = 100})});

    const bus_reply reply =
        gateway.call("modify", R"({"wanId":1,"wanMode":1,"ipProtocol":1,"mtu":1300,"wait":0})");

    EXPECT_EQ(result_reply(0, 0, modified), reply);
    EXPECT_EQ("1300", gateway.device_option(1, "mtu"));
    EXPECT_EQ(0U, waiting_changes());
}

TEST_F(modify_test, services_are_reloaded_and_then_hotplug_is_told)
{
    const text_lines written = {
        "/userfs/bin/xponigmpcmd clearAll", "/etc/init.d/network reload",   "/etc/init.d/dnsmasq reload",
        "/etc/init.d/firewall reload",      "/etc/init.d/miniupnpd reload", "/etc/init.d/omcproxy reload",
    };
    const struct {
        const char *trace;
        wan_config wan;
        text_lines deleted;
    } cases[] = {
        {"IPv4", routed_dhcp(1, {.vid = 100}), {}},
        {"IPv6 interface of its own", routed_dhcp(2, {.vid = 200, .ip_protocol = 3}), {"network"}},
        {"calls", routed_dhcp(3, {.vid = 300, .service = 4}), {"call"}},
        {"both", routed_dhcp(4, {.vid = 400, .service = 5, .ip_protocol = 2}), {"network", "call"}},
        {"bridged", bridged_wan(5, "1", {.vid = 500}), {}},
        {"bridged calls", bridged_wan(6, "01", {.vid = 600, .service = 6}), {"call"}},
    };
    start_with({cases[0].wan, cases[1].wan, cases[2].wan, cases[3].wan, cases[4].wan, cases[5].wan});
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        gateway.clear_commands();
        text_lines expected;
        for (const std::string &service : row.deleted)
            expected.push_back("/etc/init.d/" + service + " reload");
        expected.insert(expected.end(), written.begin(), written.end());
        expected.push_back("hotplug-call iface ACTION=ifupdate INTERFACE=wan_" +
                           std::to_string(row.wan.wanId));

        EXPECT_EQ(result_reply(0, 0, modified), modify(row.wan));

        ASSERT_TRUE(updates_reach(row.wan.wanId, 1));
        EXPECT_EQ(expected, service_commands());
    }
}

TEST_F(modify_test, the_answer_does_not_wait_for_the_hotplug_scripts)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    gateway.write_file("/tmp/held", "");
    gateway.fake_program("hotplug-call", ": >/tmp/entered\nwhile [ -e /tmp/held ]; do sleep 0.02; done");

    EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(1, {.vid = 200})));

    EXPECT_TRUE(wait_until([this] { return gateway.exists("/tmp/entered"); }));
    gateway.remove("/tmp/held");
}

TEST_F(modify_test, the_rebuilt_wan_keeps_its_identifier_and_stands_last_in_the_list)
{
    start_with({routed_dhcp(1, {.vid = 100}), routed_dhcp(2, {.vid = 200}), routed_dhcp(3, {.vid = 300})});

    EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(1, {.vid = 400})));

    EXPECT_EQ((text_lines{"2", "3", "1"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ("3", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ("1_INTERNET_R_VID_400", gateway.device_option(1, "lkname"));
    EXPECT_EQ("pon.400", gateway.uci_get("network.wan_1.device"));
    EXPECT_EQ((text_lines{"wan_2", "wan_3", "wan_1"}), gateway.uci_list("firewall.@zone[1].network"));
}

TEST_F(modify_test, changing_the_only_wan_leaves_the_highest_identifier_alone)
{
    start_with({routed_dhcp(1), routed_dhcp(2)});
    ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").status);

    EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(2)));

    EXPECT_EQ("2", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ(text_lines{"2"}, gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ(0, gateway.call("get", R"({"wanId":2})").status);
}

TEST_F(modify_test, what_a_request_leaves_out_is_gone)
{
    wan_config wan = routed_pppoe(1, {.vid = 100, .prio = 5, .disable_lan_dhcp = 1, .bind = "10000000"});
    strcpy(wan.pppServName, "isp");
    wan.pppDialMode = 1;
    wan.iphostId = 2;
    start_with({wan});

    const bus_reply reply = gateway.call("modify", R"({"wanId":1,"wanMode":1,"ipProtocol":1,"service":1})");

    EXPECT_EQ(result_reply(0, 0, modified), reply);
    EXPECT_EQ((text_lines{"name", "mtu", "wanMode", "IpProtocolType", "service_mode", "disableLanDhcp",
                          "macaddr", "port_binding", "ipv6", "lkname"}),
              gateway.uci_options("network." + gateway.device_section(1).value_or("")));
    EXPECT_EQ("pon", gateway.device_option(1, "name"));
    EXPECT_EQ("0", gateway.device_option(1, "mtu"));
    EXPECT_EQ("0", gateway.device_option(1, "disableLanDhcp"));
    EXPECT_EQ("0 0 0 0 0 0 0 0", gateway.device_option(1, "port_binding"));
    EXPECT_EQ((text_lines{"proto", "device", "napt", "peerdns"}), gateway.uci_options("network.wan_1"));
    EXPECT_EQ("dhcp", gateway.uci_get("network.wan_1.proto"));
}

TEST_F(modify_test, a_wan_does_not_conflict_with_itself)
{
    const wan_config wan = bridged_wan(1, "11000000", {.vid = 100, .mvid = 200, .service = 3});
    start_with({wan});
    const std::string before = gateway.config("network");

    EXPECT_EQ(result_reply(0, 0, modified), modify(wan));

    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(modify_test, a_conflict_is_answered_with_its_code_and_leaves_everything_as_it_is)
{
    const struct {
        wan_config wan;
        int status;
        const char *message;
    } cases[] = {
        {routed_dhcp(1, {.vid = 200, .bind = "1000"}), -2, "Failed to modify wan: vlan 200 exist"},
        {bridged_wan(1, "", {.vid = 300}), -2, "Failed to modify wan: vlan 300 exist"},
        {routed_dhcp(1, {.vid = 100, .mvid = 100}), -2, "Failed to modify wan: vlan 100 exist"},
        {routed_dhcp(1, {.vid = 100, .bind = "0101"}), -3, "Failed to modify wan: port binding 0101 exist"},
        {bridged_wan(1, "0000", {.vid = 500, .service = 3}), -4,
         "Failed to modify wan: port binding required"},
        {bridged_wan(1, "01", {.vid = 200, .service = 3}), -3, "Failed to modify wan: port binding 01 exist"},
    };
    start_with({routed_dhcp(1, {.vid = 100}), bridged_wan(2, "0100", {.vid = 200, .service = 3}),
                routed_dhcp(3, {.vid = 300})});
    const std::string before = all_configurations();
    const text_lines scripts = gateway.list_directory("/etc/korvel");
    for (const auto &row : cases) {
        SCOPED_TRACE(row.message);
        gateway.clear_log();

        const bus_reply reply = modify(row.wan);

        EXPECT_EQ(result_reply(0, row.status, refused), reply);
        EXPECT_EQ(text_lines{row.message}, gateway.log_texts(LOG_ERR));
        EXPECT_EQ(before, all_configurations());
    }
    EXPECT_EQ(scripts, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(modify_test, a_wan_under_a_reserved_identifier_goes_on_working)
{
    gateway.store_wan(routed_dhcp(154, {.vid = 1}));
    gateway.restart_korvel();

    EXPECT_EQ(1, gateway.call("get", R"({"wanId":154})").at("vid"));
    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."),
              gateway.call("modify", modify_request(routed_dhcp(154, {.vid = 2}))));
    EXPECT_EQ("154", gateway.uci_get("network.korvel.wanList"));
    EXPECT_EQ(2, gateway.call("get", R"({"wanId":154})").at("vid"));
    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":154})"));
    EXPECT_FALSE(gateway.uci_get("network.wan_154"));
}

TEST_F(modify_test, a_wan_that_does_not_exist_is_answered_ok_and_not_made)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    for (const uint8_t id : {uint8_t{0}, uint8_t{2}, uint8_t{255}}) {
        SCOPED_TRACE(id);
        gateway.clear_log();

        EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(id, {.vid = 900})));

        EXPECT_EQ(text_lines{"Failed to delete wan_" + std::to_string(id)}, gateway.log_texts(LOG_ERR));
        EXPECT_EQ(before, all_configurations());
    }
    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(modify_test, of_the_identifier_the_low_eight_bits_count)
{
    start_with({routed_dhcp(1, {.vid = 100}), routed_dhcp(2, {.vid = 200})});

    const bus_reply reply = gateway.call(
        "modify", R"({"wanId":258,"wanMode":1,"ipProtocol":1,"mtu":1200,"vlanMode":true,"vid":7})");

    EXPECT_EQ(result_reply(0, 0, modified), reply);
    EXPECT_EQ("pon.7", gateway.device_option(2, "name"));
    EXPECT_EQ("pon.100", gateway.device_option(1, "name"));
}

TEST_F(modify_test, a_deletion_that_fails_halfway_is_answered_ok_and_leaves_the_wan_whole)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = gateway.config("network");
    const struct {
        const char *firewall, *log;
    } cases[] = {
        {"config 'zone\n", "Nothing was changed: /etc/config/firewall: it cannot be parsed"},
        {"config zone\n\toption name 'lan'\n", "Failed to delete wan_1: 3"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.firewall);
        gateway.set_config("firewall", row.firewall);
        gateway.clear_log();

        EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(1, {.vid = 200})));

        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_1"));
        EXPECT_EQ(text_lines{}, applied_updates());
        ASSERT_FALSE(gateway.log_texts(LOG_ERR).empty());
        EXPECT_TRUE(gateway.log_texts(LOG_ERR)[0].starts_with("Failed to delete wan_1: "));
        EXPECT_EQ(row.log, gateway.log_texts(LOG_ERR).back());
    }
}

TEST_F(modify_test, a_deletion_that_cannot_begin_leaves_the_wan_whole)
{
    start_with({routed_dhcp(1, {.vid = 100}), bridged_wan(2, "10000000", {.vid = 101})});
    const std::string before = all_configurations();
    {
        small_disk disk("/etc/config");
        disk.make_read_only();
        EXPECT_EQ(result_reply(0, 0, modified), modify(routed_dhcp(1, {.vid = 200})));
        EXPECT_EQ(result_reply(0, 0, modified), modify(bridged_wan(2, "01000000", {.vid = 101})));
        EXPECT_EQ(before, all_configurations());
    }

    EXPECT_EQ(text_lines{}, applied_updates());
    EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_1"));
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_2.sh"));
    ASSERT_EQ(2U, gateway.log_texts(LOG_ERR).size());
    EXPECT_EQ("Nothing was changed: /etc/config/firewall: Read-only file system",
              gateway.log_texts(LOG_ERR)[0]);
    EXPECT_EQ("Nothing was changed: /etc/config/network: Read-only file system",
              gateway.log_texts(LOG_ERR)[1]);
}

TEST_F(modify_test, a_routed_wan_becomes_a_bridged_one_and_back)
{
    const wan_config routed = routed_dhcp(1, {.vid = 100, .bind = "10000000"});
    const wan_config bridged = bridged_wan(1, "01000000", {.vid = 100});
    start_with({routed});
    const std::string before = all_configurations();

    EXPECT_EQ(result_reply(0, 0, modified), modify(bridged));

    EXPECT_EQ(text_lines{"rule_wan_1.sh"}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_FALSE(gateway.uci_get("network.wan_1").has_value());
    EXPECT_FALSE(gateway.uci_get("firewall.@zone[1].network").has_value());
    EXPECT_FALSE(gateway.uci_get("upnpd.config.external_iface").has_value());
    EXPECT_EQ("1_INTERNET_B_VID_100", gateway.device_option(1, "lkname"));
    EXPECT_EQ("eth0.1 eth0.2 eth0.3 eth0.4 ra0 ra1 rai0 rai1 pon.100",
              gateway.uci_get("network.@device[0].ports"));

    EXPECT_EQ(result_reply(0, 0, modified), modify(routed));

    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{"99-wan_1"}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_EQ(before, all_configurations());
}

} // namespace
