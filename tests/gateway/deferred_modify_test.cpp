// Modifications that wait: when they are applied, what they start from, how they are merged and refused. Real
// seconds are the subject here; waits are as short as they can be.
#include "support/daemon_test.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sys/resource.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr char queued[] = "korvel modify OK.";
constexpr char table_full[] = "korvel modify ERR! Too many WAN instances.";
constexpr size_t slots = 16;
// Of a change that is not to be over before the requests behind it have come, on a busy machine too.
constexpr int some_wait = 3;
constexpr int long_wait = 1000;

class deferred_modify_test : public daemon_test {
protected:
    void SetUp() override
    {
        gateway.start_netd();
        gateway.start_korvel();
    }

    void add(const wan_config &wan)
    {
        ASSERT_EQ(result_reply(0, 0, queued), gateway.call("add", add_request(wan)));
    }

    // Routed WANs 1 to count on VLANs 101 and up, with silent services: tests of many WANs are about time.
    void add_routed(unsigned count)
    {
        silence_services();
        for (unsigned id = 1; id <= count; id++)
            add(routed_dhcp(static_cast<uint8_t>(id), {.vid = static_cast<uint16_t>(100 + id)}));
        gateway.clear_commands();
        gateway.clear_log();
    }

    bus_reply change(unsigned id, const std::string &arguments, int wait)
    {
        return gateway.call("modify", "{\"wanId\":" + std::to_string(id) + "," + arguments +
                                          ",\"wait\":" + std::to_string(wait) + "}");
    }

    void expect_queued(unsigned id, const std::string &arguments, int wait)
    {
        EXPECT_EQ(result_reply(0, 0, queued), change(id, arguments, wait));
    }

    bool changes_end()
    {
        return wait_until([this] { return waiting_changes() == 0; });
    }
};

TEST_F(deferred_modify_test, a_change_is_answered_at_once_and_applied_after_its_wait)
{
    add_routed(1);
    const auto start = steady_clock::now();

    expect_queued(1, R"("mtu":1400)", some_wait);

    EXPECT_EQ("1500", gateway.device_option(1, "mtu"));
    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_GE(steady_clock::now() - start, seconds(some_wait));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_TRUE(changes_end());
}

TEST_F(deferred_modify_test, changes_with_the_same_wait_are_applied_a_second_apart_in_slot_order)
{
    constexpr unsigned ids[] = {2, 3, 1}; // by slot
    add_routed(3);
    steady_clock::time_point asked[std::size(ids)];
    for (size_t slot = 0; slot < std::size(ids); slot++) {
        asked[slot] = steady_clock::now();
        expect_queued(ids[slot], R"("mtu":1400)", some_wait);
    }

    // Each waits whole seconds from its own request on: what was seen is no earlier than that,
    // however late it is seen.
    for (size_t slot = 0; slot < std::size(ids); slot++) {
        ASSERT_TRUE(updates_reach(ids[slot], 1));
        EXPECT_GE(steady_clock::now() - asked[slot], seconds(some_wait + slot)) << slot;
    }
    EXPECT_EQ((text_lines{"wan_2", "wan_3", "wan_1"}), applied_updates());
}

TEST_F(deferred_modify_test, two_changes_of_one_wan_become_one_apply_with_the_arguments_of_both)
{
    add_routed(1);
    expect_queued(1, R"("mtu":1400,"service":2)", some_wait);
    // The second request restarts the wait, however late it comes.
    ASSERT_FALSE(updates_reach(1, 1, milliseconds(800)));
    const auto second = steady_clock::now();

    expect_queued(1, R"("service":4,"prio":3)", some_wait + 1);

    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_GE(steady_clock::now() - second, seconds(some_wait)); // one of them may have begun
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_EQ("4", gateway.device_option(1, "service_mode"));
    EXPECT_EQ("0:3", gateway.device_option(1, "egress_qos_mapping"));
    ASSERT_TRUE(changes_end());
    EXPECT_EQ(text_lines{"wan_1"}, applied_updates());
}

TEST_F(deferred_modify_test, a_merged_change_keeps_the_stagger_of_its_slot)
{
    add_routed(4);
    for (const unsigned id : {1U, 2U, 3U, 4U})
        expect_queued(id, R"("mtu":1400)", long_wait);
    const auto merged = steady_clock::now();

    expect_queued(4, R"("prio":3)", 1);

    ASSERT_TRUE(updates_reach(4, 1));
    EXPECT_GE(steady_clock::now() - merged, seconds(3)); // of the 1 + 3 seconds one may have begun
    EXPECT_EQ("1400", gateway.device_option(4, "mtu"));
    EXPECT_EQ(text_lines{"wan_4"}, applied_updates());
}

TEST_F(deferred_modify_test, a_refused_request_neither_cancels_the_waiting_change_nor_slips_into_it)
{
    add_routed(1);
    expect_queued(1, R"("mtu":1400)", some_wait);

    EXPECT_EQ(result_reply(0, -1, "korvel modify ERR! Invalid SERVICE."),
              change(1, R"("mtu":1300,"prio":5,"service":8)", some_wait));

    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_FALSE(gateway.device_option(1, "egress_qos_mapping").has_value());
}

TEST_F(deferred_modify_test, a_refused_request_for_a_wan_without_a_waiting_change_leaves_nothing_behind)
{
    add_routed(1);

    for (size_t i = 0; i < slots + 1; i++)
        EXPECT_EQ(result_reply(0, -1, "korvel modify ERR! Invalid MTU."), change(1, R"("mtu":100)", 1));

    EXPECT_EQ(0U, waiting_changes());
    expect_queued(1, R"("mtu":1400)", 1);
    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
}

TEST_F(deferred_modify_test, a_negative_wait_is_refused)
{
    add_routed(1);
    const std::string before = gateway.config("network");
    for (const int wait : {-1, -2, -2147483647 - 1}) {
        SCOPED_TRACE(wait);
        EXPECT_EQ(result_reply(0, -1, "korvel modify ERR! Invalid WAIT."), change(1, R"("mtu":1400)", wait));
    }
    EXPECT_EQ(0U, waiting_changes());
    EXPECT_EQ(before, gateway.config("network"));
}

TEST_F(deferred_modify_test, the_longest_wait_is_accepted)
{
    add_routed(1);

    expect_queued(1, R"("mtu":1400)", 2147483647);

    EXPECT_EQ(1U, waiting_changes());
}

TEST_F(deferred_modify_test, sixteen_changes_wait_and_the_seventeenth_is_refused)
{
    add_routed(2);
    for (unsigned id = 1; id <= slots; id++)
        expect_queued(id, R"("mtu":1400)", long_wait);

    EXPECT_EQ(result_reply(9, -1, table_full), change(17, R"("mtu":1400)", 1));
    // So is one that could be merged: the count is looked at first.
    EXPECT_EQ(result_reply(9, -1, table_full), change(1, R"("mtu":1300)", 1));

    EXPECT_EQ(slots, waiting_changes());
}

TEST_F(deferred_modify_test, queries_and_immediate_changes_are_answered_while_sixteen_changes_wait)
{
    add_routed(3);
    for (unsigned id = 1; id <= slots; id++)
        expect_queued(id, R"("mtu":1400)", long_wait);

    EXPECT_EQ(1500, gateway.call("get", R"({"wanId":1})").at("mtu"));
    EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}), gateway.call("all").json().keys());
    EXPECT_EQ(result_reply(0, 0, queued),
              gateway.call("modify", R"({"wanId":2,"wanMode":1,"ipProtocol":1,"mtu":1200})"));
    EXPECT_EQ("1200", gateway.device_option(2, "mtu"));
}

TEST_F(deferred_modify_test, a_change_takes_the_lowest_empty_slot_and_never_a_live_one)
{
    add_routed(3);
    expect_queued(1, R"("mtu":1400)", 1);         // slot 0, due after 1 second
    expect_queued(2, R"("mtu":1400)", some_wait); // slot 1, due after 4 seconds
    ASSERT_TRUE(wait_until([this] { return waiting_changes() == 1; }));

    expect_queued(3, R"("mtu":1400)", 1); // slot 0 again, due after 2 seconds in all

    ASSERT_TRUE(updates_reach(2, 1));
    EXPECT_EQ((text_lines{"wan_1", "wan_3", "wan_2"}), applied_updates());
    EXPECT_TRUE(changes_end());
}

TEST_F(deferred_modify_test, a_freed_table_takes_sixteen_changes_again)
{
    add_routed(1);
    for (unsigned id = slots; id >= 1; id--) // WAN 1 in the last slot
        expect_queued(id, R"("mtu":1400)", id == slots ? some_wait : long_wait);
    ASSERT_EQ(result_reply(9, -1, table_full), change(20, R"("mtu":1400)", 1));
    ASSERT_TRUE(
        wait_until([this] { return waiting_changes() == slots - 1; })); // that of the WAN that is none

    expect_queued(20, R"("mtu":1400)", long_wait);

    EXPECT_EQ(result_reply(9, -1, table_full), change(21, R"("mtu":1400)", 1));
}

TEST_F(deferred_modify_test, the_changed_wan_stands_last_in_the_list)
{
    add_routed(3);

    expect_queued(1, R"("mtu":1400)", 1);

    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ((text_lines{"2", "3", "1"}), gateway.uci_list("network.korvel.wanList"));
}

TEST_F(deferred_modify_test, of_the_identifier_the_low_eight_bits_count)
{
    add_routed(2);
    expect_queued(258, R"("mtu":1400)", long_wait);

    expect_queued(2, R"("prio":3)", 1); // the same entry

    EXPECT_EQ(1U, waiting_changes());
    ASSERT_TRUE(updates_reach(2, 1));
    EXPECT_EQ("1400", gateway.device_option(2, "mtu"));
    EXPECT_EQ("0:3", gateway.device_option(2, "egress_qos_mapping"));
}

TEST_F(deferred_modify_test, a_conflict_is_only_logged_when_the_change_is_due)
{
    const struct {
        unsigned id;
        const char *arguments, *message;
    } cases[] = {
        {1, R"("wanMode":0)", "Failed to modify wan: vlan 100 exist"},
        {2, R"("bind":"1000")", "Failed to modify wan: port binding 1000 exist"},
        {3, R"("bind":"0000","service":3)", "Failed to modify wan: port binding required"},
    };
    add(routed_dhcp(1, {.vid = 100}));
    add(routed_dhcp(2, {.vid = 100}));
    add(bridged_wan(3, "1000", {.vid = 300, .service = 3}));
    gateway.clear_commands();
    gateway.clear_log();
    const std::string before = gateway.config("network");
    text_lines messages;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.message);
        expect_queued(row.id, row.arguments, 1);
        messages.push_back(row.message);
    }

    ASSERT_TRUE(changes_end());

    const text_lines logged = gateway.log_texts(LOG_ERR);
    for (const std::string &message : messages)
        EXPECT_EQ(1, std::count(logged.begin(), logged.end(), message)) << message;
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(deferred_modify_test, a_wan_that_does_not_exist_is_accepted_and_then_not_made)
{
    add_routed(1);
    const std::string before = gateway.config("network");

    expect_queued(9, R"("wanMode":1,"vlanMode":true,"vid":900)", 1);

    ASSERT_TRUE(changes_end());
    const text_lines logged = gateway.log_texts(LOG_ERR);
    EXPECT_EQ("Failed to delete wan_9", logged.back());
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(text_lines{}, gateway.commands());
}

// Identifiers are given again; the new WAN has nothing to do with what was asked for the old one.
TEST_F(deferred_modify_test, a_change_whose_wan_is_deleted_applies_to_no_other_one_of_its_identifier)
{
    silence_services();
    for (const char *const method : {"del", "delAll"}) {
        SCOPED_TRACE(method);
        add(routed_dhcp(1, {.vid = 101}));
        gateway.clear_log();
        gateway.clear_commands();
        expect_queued(1, R"("mtu":1400)", 2 * some_wait);
        (void)gateway.call(method, R"({"wanId":1})");
        add(routed_dhcp(1, {.vid = 102}));
        // One for the new WAN stands beside it.
        expect_queued(1, R"("prio":3)", 2 * some_wait);

        ASSERT_TRUE(updates_reach(1, 1));
        ASSERT_TRUE(changes_end());

        EXPECT_EQ("1500", gateway.device_option(1, "mtu"));
        EXPECT_EQ("pon.102", gateway.device_option(1, "name"));
        EXPECT_EQ("0:3", gateway.device_option(1, "egress_qos_mapping"));
        EXPECT_EQ(text_lines{"wan_1"}, applied_updates());
        EXPECT_EQ("Failed to modify wan: wan_1 is not the one that was meant",
                  gateway.log_texts(LOG_ERR).back());
        EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));
    }
}

// On top of nothing it would make a WAN of defaults.
TEST_F(deferred_modify_test, a_change_without_a_wan_applies_to_none_that_is_made_meanwhile)
{
    add_routed(1);
    expect_queued(2, R"("mtu":1400)", 2 * some_wait);

    add(routed_dhcp(2, {.vid = 102}));
    const std::string made = gateway.config("network");

    ASSERT_TRUE(changes_end());
    EXPECT_EQ(made, gateway.config("network"));
    EXPECT_EQ("Failed to modify wan: wan_2 is not the one that was meant", gateway.log_texts(LOG_ERR).back());
}

TEST_F(deferred_modify_test, an_immediate_change_meanwhile_is_overtaken_by_the_waiting_one)
{
    add_routed(1);
    expect_queued(1, R"("prio":3)", some_wait);

    EXPECT_EQ(result_reply(0, 0, queued),
              gateway.call("modify", R"({"wanId":1,"wanMode":1,"ipProtocol":1,"mtu":1200})"));
    ASSERT_EQ("1200", gateway.device_option(1, "mtu"));

    // It carries the WAN as it was when the first request came.
    ASSERT_TRUE(updates_reach(1, 2));
    EXPECT_EQ("1500", gateway.device_option(1, "mtu"));
    EXPECT_EQ("pon.101", gateway.device_option(1, "name"));
    EXPECT_EQ("0:3", gateway.device_option(1, "egress_qos_mapping"));
}

TEST_F(deferred_modify_test, what_a_request_leaves_out_keeps_its_configured_value)
{
    wan_config on_demand =
        with_own_servers(routed_pppoe(1, {.vid = 101, .prio = 5, .ip_protocol = 3, .bind = "10000000"}));
    on_demand.pppDialMode = 1;
    on_demand.ipv6PrefixProxy = 0;
    on_demand.iphostId = 2;
    on_demand.disableLanDhcp = 1;
    strcpy(on_demand.pppServName, "isp");
    wan_config tunnel = routed_dhcp(4, {.vid = 104, .ip_protocol = 2});
    tunnel.ipv6DsLite = 1;
    strcpy(tunnel.ipv6AddrDsLite, "aftr.example");
    wan_config own_servers =
        with_own_servers(routed_dhcp(3, {.vid = 103, .service = 5, .ip_protocol = 3}), ip_protocol_v4);
    own_servers.napt = 0;
    strcpy(own_servers.secDns, "");
    const wan_config wans[] = {
        on_demand,
        routed_static(2, {.vid = 102, .service = 2, .ip_protocol = 3, .mtu = 1400}),
        own_servers,
        tunnel,
        bridged_wan(5, "00000001", {.vid = 105, .mvid = 205, .prio = 7, .service = 3}),
        routed_static(6, {.vid = 106, .ip_protocol = 1}),
        routed_pppoe(7, {.service = 4}),
    };
    for (const wan_config &wan : wans)
        add(wan);
    // The service name is hidden from queries, and the links have other addresses than were configured.
    gateway.uci_set("custom.gpon.ppp_service_name_hidden", "1");
    gateway.script_interface(
        "wan_2",
        R"(json {"up":true,"uptime":7,"ipv4-address":[{"address":"203.0.113.9","mask":30}],)"
        R"("ipv6-address":[{"address":"2001:db8:ffff::9","mask":128}],)"
        R"("ipv6-prefix":[{"address":"2001:db8:fff0::","mask":48}],)"
        R"("route":[{"nexthop":"203.0.113.10"}],"dns-server":["203.0.113.53","2001:db8:ffff::53"]})");
    gateway.script_interface("wan_6", R"(json {"up":false})");
    gateway.clear_log();
    const std::string network = gateway.config("network");
    const std::string firewall = gateway.config("firewall");
    ASSERT_EQ("203.0.113.9", gateway.call("get", R"({"wanId":2})").at("ip"));

    // Nothing but the value that is there already, and all WANs in turn: the list ends up in its old order.
    for (const wan_config &wan : wans)
        expect_queued(wan.wanId, "\"service\":" + std::to_string(wan.service), some_wait);

    for (const wan_config &wan : wans)
        ASSERT_TRUE(updates_reach(wan.wanId, 1)) << int{wan.wanId};
    EXPECT_EQ(network, gateway.config("network"));
    EXPECT_EQ(firewall, gateway.config("firewall"));
}

TEST_F(deferred_modify_test, a_request_during_the_apply_is_neither_lost_nor_applied_twice)
{
    add(routed_dhcp(1, {.vid = 101}));
    gateway.clear_commands();
    {
        held_service network(gateway, "network");
        expect_queued(1, R"("mtu":1400)", 1);
        ASSERT_TRUE(network.entered());

        expect_queued(1, R"("prio":3)", 1);

        network.let_go();
    }
    ASSERT_TRUE(updates_reach(1, 2));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_EQ("0:3", gateway.device_option(1, "egress_qos_mapping"));
    ASSERT_TRUE(changes_end());
    EXPECT_EQ((text_lines{"wan_1", "wan_1"}), applied_updates());
}

TEST_F(deferred_modify_test, a_change_that_waits_for_its_turn_takes_a_last_request_in)
{
    add(routed_dhcp(1, {.vid = 101}));
    add(routed_dhcp(2, {.vid = 102}));
    gateway.clear_commands();
    {
        held_service network(gateway, "network");
        expect_queued(1, R"("mtu":1400)", 1);
        expect_queued(2, R"("mtu":1400)", 1);
        ASSERT_TRUE(network.entered());
        // The seconds of WAN 2 end while WAN 1 is still being changed.
        ASSERT_FALSE(updates_reach(2, 1, milliseconds(1500)));

        expect_queued(2, R"("prio":3)", 1);

        network.let_go();
    }
    ASSERT_TRUE(updates_reach(2, 1));
    EXPECT_EQ("1400", gateway.device_option(2, "mtu"));
    EXPECT_EQ("0:3", gateway.device_option(2, "egress_qos_mapping"));
    ASSERT_TRUE(changes_end());
    EXPECT_EQ((text_lines{"wan_1", "wan_2"}), applied_updates());
}

TEST_F(deferred_modify_test, queries_are_answered_in_the_middle_of_an_apply)
{
    add(routed_dhcp(1, {.vid = 101}));
    held_service network(gateway, "network");
    expect_queued(1, R"("mtu":1400)", 1);
    ASSERT_TRUE(network.entered());

    EXPECT_EQ(1400, gateway.call("get", R"({"wanId":1})").at("mtu"));
    EXPECT_EQ(result_reply(0, 0, "korvel add WAN device OK."), gateway.call("addDev"));

    EXPECT_EQ(text_lines{}, applied_updates());
}

TEST_F(deferred_modify_test, every_other_change_that_comes_in_the_middle_of_an_apply_waits_for_its_end)
{
    const struct {
        const char *method;
        std::string request;
        bus_reply reply;
        text_lines ids;
    } cases[] = {
        {"add", add_request(routed_dhcp(0, {.vid = 103})), result_reply(0, 0, queued), {"2", "1", "3"}},
        {"modify", modify_request(routed_dhcp(2, {.vid = 104})), result_reply(0, 0, queued), {"1", "2"}},
        {"del", R"({"wanId":2})", result_reply(0, 0, "korvel del OK."), {"1"}},
        {"delAll", "{}", {0, ""}, {}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.method);
        (void)gateway.call("delAll");
        add(routed_dhcp(1, {.vid = 101}));
        add(routed_dhcp(2, {.vid = 102}));
        held_service network(gateway, "network");
        expect_queued(1, R"("mtu":1400)", 1);
        ASSERT_TRUE(network.entered());
        const std::string applied = gateway.config("network");

        background_call call("korvel", row.method, row.request);
        EXPECT_FALSE(wait_until([&] { return gateway.config("network") != applied; }, milliseconds(500)));

        network.let_go();
        EXPECT_EQ(row.reply, call.wait());
        EXPECT_EQ(row.ids, gateway.uci_list("network.korvel.wanList").value_or(text_lines{}));
        ASSERT_TRUE(changes_end());
    }
}

TEST_F(deferred_modify_test, a_change_that_falls_due_during_an_addition_waits_for_its_end)
{
    add(routed_dhcp(1, {.vid = 101}));
    gateway.clear_commands();
    held_service network(gateway, "network");
    expect_queued(1, R"("mtu":1400)", some_wait);

    background_call addition("korvel", "add", add_request(routed_dhcp(2, {.vid = 102})));
    ASSERT_TRUE(network.entered());
    EXPECT_FALSE(updates_reach(1, 1, seconds(some_wait) + milliseconds(500)));
    EXPECT_EQ("1500", gateway.device_option(1, "mtu"));

    network.let_go();
    EXPECT_EQ(result_reply(0, 0, queued), addition.wait());
    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
}

TEST_F(deferred_modify_test, a_stop_signal_ends_the_daemon_while_changes_wait_and_drops_them)
{
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(number);
        gateway.restart_korvel();
        gateway.clear_log();
        if (!gateway.device_section(1))
            add_routed(1);
        const std::string before = gateway.config("network");
        expect_queued(1, R"("mtu":1400)", long_wait);
        expect_queued(2, R"("mtu":1400)", long_wait);

        EXPECT_EQ(0, gateway.stop_korvel(number));

        EXPECT_EQ(text_lines{"Receive stop signal: " + std::to_string(number)},
                  gateway.log_texts(LOG_WARNING));
        EXPECT_EQ(before, gateway.config("network"));
        gateway.start_korvel();
        EXPECT_EQ(0U, waiting_changes());
    }
}

// Parameter: the service in which the apply is stopped.
class stopped_apply_test : public deferred_modify_test, public testing::WithParamInterface<const char *> {};

TEST_P(stopped_apply_test, ends_the_daemon_and_leaves_whole_files)
{
    add(routed_dhcp(1, {.vid = 101}));
    add(bridged_wan(2, "10000000", {.vid = 102}));
    for (const unsigned id : {1U, 2U}) {
        SCOPED_TRACE(id);
        gateway.clear_log();
        expect_queued(id, R"("mtu":1400)", 1);
        held_service held(gateway, GetParam());
        ASSERT_TRUE(held.entered());

        EXPECT_EQ(0, gateway.stop_korvel());

        EXPECT_EQ(text_lines{"Receive stop signal: 15"}, gateway.log_texts(LOG_WARNING));
        expect_whole_files();
        EXPECT_EQ("1400", gateway.device_option(id, "mtu"));
        held.let_go();
        gateway.start_korvel();
        EXPECT_EQ(1400, gateway.call("get", "{\"wanId\":" + std::to_string(id) + "}").at("mtu"));
    }
}

INSTANTIATE_TEST_SUITE_P(services, stopped_apply_test,
                         testing::Values("network", "dnsmasq", "firewall", "miniupnpd", "omcproxy"),
                         [](const auto &service) { return std::string(service.param); });

TEST_F(deferred_modify_test, a_stop_between_deletion_and_rewriting_waits_until_the_wan_is_written)
{
    add(routed_dhcp(1, {.vid = 101, .ip_protocol = ip_protocol_v4 | ip_protocol_v6}));
    gateway.clear_log();
    expect_queued(1, R"("mtu":1400)", 1);
    held_service held(gateway, "network"); // the deletion of a DHCPv6 interface reloads the network
    ASSERT_TRUE(held.entered());
    ASSERT_FALSE(gateway.device_section(1).has_value());

    ASSERT_EQ(0, kill(gateway.korvel_pid(), SIGTERM));
    ASSERT_TRUE(wait_until([this] { return !gateway.log_texts(LOG_WARNING).empty(); }));
    EXPECT_TRUE(gateway.korvel_running());
    held.let_go();

    ASSERT_TRUE(wait_until([this] { return !gateway.korvel_running(); }));
    EXPECT_EQ(text_lines{"Receive stop signal: 15"}, gateway.log_texts(LOG_WARNING));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));

    gateway.clear_commands();
    gateway.start_korvel();
    EXPECT_EQ(text_lines{"wan_1"}, applied_updates()) << "the reloads that were cut short are made up for";
    expect_whole_files();
}

// A change on top of a record that was not read would make a WAN of defaults.
TEST_F(deferred_modify_test, what_cannot_be_read_is_not_changed_later)
{
    add(routed_dhcp(1, {.vid = 101}));
    const std::string good = gateway.config("network");
    gateway.set_config("network", good + "config interface 'unfinished\n");

    EXPECT_EQ(result_reply(9, -1, "korvel modify ERR! Memory allocate failed."),
              gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":1})"));

    gateway.set_config("network", good);
    EXPECT_EQ("Failed to read file: /etc/config/network: it cannot be parsed",
              gateway.log_texts(LOG_ERR).back());
    EXPECT_EQ(0U, waiting_changes());
}

} // namespace
