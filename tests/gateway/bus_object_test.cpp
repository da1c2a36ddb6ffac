// The object on the bus: its methods and their arguments, what they answer, and which of them wait for each
// other.
#include "support/daemon_test.h"
#include "support/golden_tables.h"

#include <libubox/blobmsg.h>

namespace {

constexpr char add_ok[] = "korvel modify OK.";

class bus_object_test : public daemon_test {
protected:
    void SetUp() override
    {
        gateway.start_netd();
        gateway.start_korvel();
    }

    void add(const wan_config &wan)
    {
        ASSERT_EQ(result_reply(0, 0, add_ok), gateway.call("add", add_request(wan)));
    }
};

// What an add of a routed WAN starts: its scripts take back multicast rules, then the services reload.
const text_lines add_commands = {
    "/userfs/bin/xponigmpcmd clearAll", "/etc/init.d/network reload",   "/etc/init.d/dnsmasq reload",
    "/etc/init.d/firewall reload",      "/etc/init.d/miniupnpd reload", "/etc/init.d/omcproxy reload",
};

text_lines twice(const text_lines &lines)
{
    text_lines all = lines;
    all.insert(all.end(), lines.begin(), lines.end());
    return all;
}

// What the bus calls a type.
std::string kind_of(int type)
{
    return type == BLOBMSG_TYPE_STRING ? "String" : type == BLOBMSG_TYPE_INT8 ? "Boolean" : "Integer";
}

TEST_F(bus_object_test, its_seven_methods_and_their_arguments_are_listed_in_order)
{
    std::string arguments;
    for (const golden_argument &argument : golden_arguments())
        arguments +=
            (arguments.empty() ? "\"" : ",\"") + argument.name + "\":\"" + kind_of(argument.type) + '"';

    const program_result listed = run_program({"ubus", "-v", "list", "korvel"});

    EXPECT_EQ(0, listed.status);
    EXPECT_EQ("\t\"add\":{\"notUsed\":\"Integer\"," + arguments +
                  "}\n\t\"addDev\":{}\n\t\"all\":{}\n\t\"del\":{\"wanId\":\"Integer\"}\n\t\"delAll\":{}\n"
                  "\t\"get\":{\"wanId\":\"Integer\"}\n\t\"modify\":{\"wanId\":\"Integer\"," +
                  arguments + ",\"wait\":\"Integer\"}\n",
              listed.output.substr(listed.output.find('\n') + 1));
    EXPECT_TRUE(listed.output.starts_with("'korvel' @"));
}

TEST_F(bus_object_test, a_request_without_its_identifier_is_an_invalid_argument)
{
    EXPECT_EQ(result_reply(2, -1, "korvel get ERR! Invalid WAN ID."), gateway.call("get"));
    EXPECT_EQ(result_reply(2, -1, "korvel del ERR!"), gateway.call("del"));
    EXPECT_EQ(result_reply(2, -1, "korvel get ERR! Invalid WAN ID."),
              gateway.call("get", R"({"wanId":"1"})"));
    EXPECT_EQ(result_reply(2, -1, "korvel get ERR! Invalid WAN mode."), gateway.call("add"));
}

TEST_F(bus_object_test, an_unknown_method_is_not_served)
{
    constexpr int method_not_found = 3;

    EXPECT_EQ(method_not_found, gateway.call("status").status);
}

TEST_F(bus_object_test, del_all_answers_nothing_whatever_happens)
{
    EXPECT_EQ((bus_reply{0, ""}), gateway.call("delAll"));

    add(routed_dhcp(1));
    EXPECT_EQ((bus_reply{0, ""}), gateway.call("delAll"));

    gateway.remove("/etc/config/network");
    EXPECT_EQ((bus_reply{0, ""}), gateway.call("delAll"));
}

TEST_F(bus_object_test, two_requests_back_to_back_are_handled_one_after_the_other)
{
    background_call first("korvel", "add", add_request(routed_dhcp(1, {.vid = 100})));
    background_call second("korvel", "add", add_request(routed_dhcp(2, {.vid = 200})));

    EXPECT_EQ(result_reply(0, 0, add_ok), first.wait());
    EXPECT_EQ(result_reply(0, 0, add_ok), second.wait());

    EXPECT_EQ((text_lines{"1", "2"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ(twice(add_commands), gateway.commands());
    EXPECT_TRUE(gateway.device_section(1) && gateway.device_section(2));
}

TEST_F(bus_object_test, a_second_request_waits_while_the_first_reloads_services)
{
    held_service network(gateway, "network");
    background_call first("korvel", "add", add_request(routed_dhcp(1, {.vid = 100})));
    ASSERT_TRUE(network.entered());
    background_call second("korvel", "add", add_request(routed_dhcp(2, {.vid = 200})));

    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));
    network.let_go();

    EXPECT_EQ(result_reply(0, 0, add_ok), first.wait());
    EXPECT_EQ(result_reply(0, 0, add_ok), second.wait());
    EXPECT_EQ(twice(add_commands), gateway.commands());
}

TEST_F(bus_object_test, a_due_modification_waits_while_an_add_reloads_services)
{
    add(routed_dhcp(1, {.vid = 100}));
    held_service network(gateway, "network");
    // Long enough for the addition to come first.
    ASSERT_EQ(0, gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":3})").status);
    gateway.clear_commands();
    background_call second("korvel", "add", add_request(routed_dhcp(2, {.vid = 200})));
    ASSERT_TRUE(network.entered());

    // Its seconds are over by then.
    EXPECT_FALSE(updates_reach(1, 1, std::chrono::milliseconds(3500)));
    EXPECT_EQ("1500", gateway.device_option(1, "mtu"));
    EXPECT_EQ("/etc/init.d/network reload", gateway.commands().back());
    network.let_go();

    EXPECT_EQ(result_reply(0, 0, add_ok), second.wait());
    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    const text_lines commands = gateway.commands();
    ASSERT_GT(commands.size(), add_commands.size());
    EXPECT_EQ(add_commands,
              text_lines(commands.begin(), commands.begin() + static_cast<long>(add_commands.size())));
}

TEST_F(bus_object_test, queries_and_the_management_device_do_not_wait_for_an_apply)
{
    add(routed_dhcp(1, {.vid = 100}));
    add(routed_dhcp(2, {.vid = 200}));
    held_service network(gateway, "network");
    ASSERT_EQ(0, gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":1})").status);
    ASSERT_TRUE(network.entered());

    EXPECT_EQ("2_INTERNET_R_VID_200", gateway.call("get", R"({"wanId":2})").at("wanName"));
    EXPECT_TRUE(gateway.call("all").json().has("2"));
    EXPECT_EQ(result_reply(0, 0, "korvel add WAN device OK."), gateway.call("addDev"));
    network.let_go();

    EXPECT_TRUE(updates_reach(1, 1));
}

TEST_F(bus_object_test, a_deletion_waits_for_an_apply)
{
    add(routed_dhcp(1, {.vid = 100}));
    add(routed_dhcp(2, {.vid = 200}));
    held_service network(gateway, "network");
    ASSERT_EQ(0, gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":1})").status);
    ASSERT_TRUE(network.entered());
    background_call del("korvel", "del", R"({"wanId":2})");

    // Long enough for a deletion that does not wait.
    EXPECT_FALSE(wait_until([this] { return !gateway.device_section(2); }, std::chrono::milliseconds(300)));
    network.let_go();

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), del.wait());
    EXPECT_TRUE(updates_reach(1, 1));
    EXPECT_FALSE(gateway.device_section(2));
}

} // namespace
