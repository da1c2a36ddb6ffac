// The object `korvel.state` and the event `korvel.wan` over the bus: what is told of each change and in which
// order, what waits and how it is taken back, and that neither is noticed by who does not ask.
#include "support/daemon_test.h"
#include "support/small_disk.h"

#include "base/bus_headers.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <fstream>

namespace {

constexpr char done[] = "korvel modify OK.";
constexpr char events_path[] = "/tmp/events";
constexpr size_t slots = 16;
constexpr int long_wait = 1000;

// `ubus listen` beside the test, from the moment at which it hears.
class listener {
public:
    explicit listener(const std::string &pattern = "korvel.wan")
    {
        // Events come behind the replies: those of what was done before are sent with this answer.
        (void)run_program({"ubus", "call", "korvel.state", "last"});
        program_ = child_process({"ubus", "listen", pattern}, {}, events_path);
        heard_ = wait_until([] {
            (void)run_program({"ubus", "send", "korvel.wan", R"({"probe":true})"});
            return !lines().empty();
        });
    }

    bool heard() const { return heard_; }

    // The events so far: "created 1 1_INTERNET_R_VID_100 pon.100 OK".
    static text_lines events()
    {
        text_lines found;
        for (const json_value &event : parsed())
            if (!event.has("probe"))
                found.push_back(event.at("action").string() + ' ' +
                                std::to_string(event.at("wanId").integer()) + ' ' +
                                event.at("wanName").string() + ' ' + event.at("device").string() + ' ' +
                                event.at("result").string());
        return found;
    }

    // Waits for as many events and returns what there is then.
    static text_lines wait_for(size_t count)
    {
        (void)wait_until([count] { return events().size() >= count; });
        return events();
    }

    // Everything that was heard, as it was printed.
    static std::string text()
    {
        std::string all;
        for (const std::string &line : lines())
            all += line + '\n';
        return all;
    }

    static std::vector<json_value> parsed()
    {
        std::vector<json_value> found;
        for (const std::string &line : lines())
            found.push_back(json_value::parse(line).at("korvel.wan"));
        return found;
    }

private:
    static text_lines lines()
    {
        text_lines found;
        std::ifstream file(events_path);
        for (std::string line; std::getline(file, line) && !file.eof();) // the last one may be half written
            found.push_back(line);
        return found;
    }

    child_process program_;
    bool heard_ = false;
};

class state_object_test : public daemon_test {
protected:
    void SetUp() override
    {
        gateway.start_netd();
        gateway.start_korvel();
    }

    void add(const wan_config &wan)
    {
        ASSERT_EQ(result_reply(0, 0, done), gateway.call("add", add_request(wan)));
    }

    // Routed WANs 1 to count on VLANs 101 and up, with silent services.
    void add_routed(unsigned count)
    {
        silence_services();
        for (unsigned id = 1; id <= count; id++)
            add(routed_dhcp(static_cast<uint8_t>(id), {.vid = static_cast<uint16_t>(100 + id)}));
        gateway.clear_commands();
        gateway.clear_log();
    }

    void queue(unsigned id, const std::string &arguments, int wait)
    {
        ASSERT_EQ(result_reply(0, 0, done),
                  gateway.call("modify", "{\"wanId\":" + std::to_string(id) + "," + arguments +
                                             ",\"wait\":" + std::to_string(wait) + "}"));
    }

    bus_reply state(const std::string &method, const std::string &json = "{}") const
    {
        return gateway.call_object("korvel.state", method, json);
    }

    bus_reply cancel(unsigned id) const { return state("cancel", "{\"wanId\":" + std::to_string(id) + "}"); }

    // The entries of `last` or `pending`, each as compact JSON without its moment.
    std::vector<json_value> entries(const std::string &method) const
    {
        const json_value list = state(method).at(method.c_str());
        std::vector<json_value> found;
        for (size_t i = 0; i < list.size(); i++)
            found.push_back(list.at(i));
        return found;
    }

    // "refused 2 2_INTERNET_R_VID_102 the VLAN is taken vlan 1", what is missing left out.
    static std::string line_of(const json_value &entry)
    {
        std::string line = entry.at("action").string() + ' ' + std::to_string(entry.at("wanId").integer()) +
                           ' ' + entry.at("wanName").string() + ' ' + entry.at("result").string();
        for (const char *const key : {"conflict", "file"})
            if (entry.has(key))
                line += ' ' + entry.at(key).string();
        if (entry.has("other"))
            line += ' ' + std::to_string(entry.at("other").integer());
        return line;
    }

    text_lines last() const
    {
        text_lines lines;
        for (const json_value &entry : entries("last"))
            lines.push_back(line_of(entry));
        return lines;
    }
};

// Seconds since 1970 of "2026-11-22T05:16:54Z".
time_t seconds_of(const std::string &moment)
{
    tm parts = {};
    const char *const end = strptime(moment.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    EXPECT_TRUE(end && *end == '\0') << moment;
    return timegm(&parts);
}

TEST_F(state_object_test, its_methods_and_their_arguments_are_listed)
{
    const program_result listed = run_program({"ubus", "-v", "list", "korvel.state"});

    EXPECT_EQ(0, listed.status);
    EXPECT_TRUE(listed.output.starts_with("'korvel.state' @"));
    EXPECT_EQ("\t\"cancel\":{\"wanId\":\"Integer\"}\n\t\"last\":{}\n\t\"pending\":{}\n\t\"version\":{}\n",
              listed.output.substr(listed.output.find('\n') + 1));
}

TEST_F(state_object_test, who_asks_for_the_first_object_does_not_see_the_second)
{
    EXPECT_EQ("korvel\n", run_program({"ubus", "list", "korvel"}).output);

    const std::string listed = run_program({"ubus", "-v", "list", "korvel"}).output;

    EXPECT_EQ(1, std::count(listed.begin(), listed.end(), '@'));
    EXPECT_EQ(std::string::npos, listed.find("korvel.state"));
}

TEST_F(state_object_test, the_version_is_the_projects)
{
    EXPECT_EQ((bus_reply{0, "{\"version\":\"" KORVEL_VERSION "\"}"}), state("version"));
}

TEST_F(state_object_test, a_fresh_daemon_has_nothing_to_tell)
{
    EXPECT_EQ((bus_reply{0, R"({"last":[]})"}), state("last"));
    EXPECT_EQ((bus_reply{0, R"({"pending":[]})"}), state("pending"));
}

TEST_F(state_object_test, the_life_of_a_wan_is_told_in_order)
{
    silence_services();
    const listener events;
    ASSERT_TRUE(events.heard());

    add(routed_dhcp(1, {.vid = 100}));
    ASSERT_EQ(0, gateway.call("modify", modify_request(routed_dhcp(1, {.vid = 101}))).at("status"));
    ASSERT_EQ(0, gateway.call("addDev").at("status"));
    ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").at("status"));

    EXPECT_EQ(
        (text_lines{"created 1 1_INTERNET_R_VID_100 pon.100 OK", "changed 1 1_INTERNET_R_VID_101 pon.101 OK",
                    "created 2 2_OTHER_B_TMP pon.4094 OK", "deleted 1 1_INTERNET_R_VID_101 pon.101 OK"}),
        events.wait_for(4));
    EXPECT_EQ((std::vector<std::string>{"action", "wanId", "wanName", "device", "result"}),
              events.parsed().back().keys());
    EXPECT_EQ((text_lines{"created 1 1_INTERNET_R_VID_100 OK", "changed 1 1_INTERNET_R_VID_101 OK",
                          "created 2 2_OTHER_B_TMP OK", "deleted 1 1_INTERNET_R_VID_101 OK"}),
              last());
}

// What is stored when an event comes.
std::string stored_then;

TEST_F(state_object_test, an_event_comes_when_the_configuration_is_on_disk)
{
    silence_services();
    ubus_context *const bus = ubus_connect(nullptr);
    ASSERT_TRUE(bus);
    ubus_event_handler handler = {};
    handler.cb = [](ubus_context *, ubus_event_handler *, const char *, blob_attr *) {
        std::ifstream file("/etc/config/network");
        stored_then.assign(std::istreambuf_iterator<char>(file), {});
    };
    ASSERT_EQ(0, ubus_register_event_handler(bus, &handler, "korvel.wan"));
    background_call addition("korvel", "add", add_request(routed_dhcp(1, {.vid = 100})));

    EXPECT_TRUE(wait_until([bus] {
        ubus_handle_event(bus);
        return !stored_then.empty();
    }));

    EXPECT_NE(std::string::npos, stored_then.find("config interface 'wan_1'")) << stored_then;
    EXPECT_EQ(result_reply(0, 0, done), addition.wait());
    ubus_free(bus);
}

TEST_F(state_object_test, the_deletion_of_all_is_told_once_for_each)
{
    add_routed(3);
    const listener events;
    ASSERT_TRUE(events.heard());

    (void)gateway.call("delAll");

    EXPECT_EQ(
        (text_lines{"deleted 1 1_INTERNET_R_VID_101 pon.101 OK", "deleted 2 2_INTERNET_R_VID_102 pon.102 OK",
                    "deleted 3 3_INTERNET_R_VID_103 pon.103 OK"}),
        events.wait_for(3));
}

TEST_F(state_object_test, the_forced_sweep_is_told_once_for_each_too)
{
    add_routed(2);
    gateway.uci_delete("network.korvel.wanList");
    const listener events;
    ASSERT_TRUE(events.heard());

    (void)gateway.call("delAll");

    text_lines heard = events.wait_for(2);
    std::sort(heard.begin(), heard.end());
    EXPECT_EQ((text_lines{"deleted 1 1_INTERNET_R_VID_101 pon.101 OK",
                          "deleted 2 2_INTERNET_R_VID_102 pon.102 OK"}),
              heard);
}

TEST_F(state_object_test, an_import_is_told_once_the_bus_is_there)
{
    add_routed(2);
    gateway.stop_korvel();
    for (const char *const name : {"one", "two"})
        gateway.write_file(std::string("/tmp/") + name,
                           std::string("wanMode=1\nipProtocol=1\nservice=2\nvlanMode=1\nvid=") +
                               (strcmp(name, "one") == 0 ? "301\n" : "302\n"));
    gateway.write_file("/tmp/wan_list", "/tmp/one\n/tmp/two\n");
    const listener events;
    ASSERT_TRUE(events.heard());

    gateway.start_korvel();

    EXPECT_EQ(
        (text_lines{"deleted 1 1_INTERNET_R_VID_101 pon.101 OK", "deleted 2 2_INTERNET_R_VID_102 pon.102 OK",
                    "created 1 1_TR069_R_VID_301 pon.301 OK", "created 2 2_TR069_R_VID_302 pon.302 OK"}),
        events.wait_for(4));
}

TEST_F(state_object_test, a_change_that_waits_is_shown_and_told_when_it_is_asked_for_and_applied)
{
    add_routed(1);
    const listener events;
    ASSERT_TRUE(events.heard());
    queue(1, R"("mtu":1400,"vid":150)", long_wait);
    const time_t asked = time(nullptr);

    const std::vector<json_value> waiting = entries("pending");
    ASSERT_EQ(1U, waiting.size());
    EXPECT_EQ((std::vector<std::string>{"wanId", "wanName", "seconds", "asked", "changes"}),
              waiting[0].keys());
    EXPECT_EQ(1, waiting[0].at("wanId"));
    EXPECT_EQ("1_INTERNET_R_VID_101", waiting[0].at("wanName").string());
    EXPECT_LE(waiting[0].at("seconds").integer(), long_wait);
    EXPECT_GT(waiting[0].at("seconds").integer(), long_wait - 60);
    EXPECT_NEAR(static_cast<double>(asked), static_cast<double>(seconds_of(waiting[0].at("asked").string())),
                60);
    ASSERT_EQ(2U, waiting[0].at("changes").size());
    EXPECT_EQ("vid", waiting[0].at("changes").at(0).string());
    EXPECT_EQ("mtu", waiting[0].at("changes").at(1).string());

    queue(1, R"("prio":3)", 1);
    EXPECT_EQ(3U, entries("pending").at(0).at("changes").size());
    ASSERT_TRUE(updates_reach(1, 1));

    EXPECT_EQ(
        (text_lines{"pending 1 1_INTERNET_R_VID_101 pon.101 OK", "pending 1 1_INTERNET_R_VID_101 pon.101 OK",
                    "changed 1 1_INTERNET_R_VID_150 pon.150 OK"}),
        events.wait_for(3));
    EXPECT_EQ("changed 1 1_INTERNET_R_VID_150 OK", last().back());
    EXPECT_TRUE(entries("pending").empty());
}

TEST_F(state_object_test, the_longest_wait_is_a_number_that_its_type_holds)
{
    add_routed(2);
    queue(1, R"("mtu":1400)", 2147483647);
    queue(2, R"("mtu":1400)", 2147483647); // the slot's number makes it one more

    for (const json_value &waiting : entries("pending"))
        EXPECT_GT(waiting.at("seconds").integer(), 2147483647 - 60);
}

TEST_F(state_object_test, a_change_is_shown_while_it_is_applied_and_cannot_be_taken_back_then)
{
    add_routed(1);
    held_service network(gateway, "network");
    queue(1, R"("mtu":1400)", 1);
    ASSERT_TRUE(network.entered());

    const std::vector<json_value> waiting = entries("pending");
    ASSERT_EQ(1U, waiting.size());
    EXPECT_EQ(0, waiting[0].at("seconds"));
    EXPECT_EQ(true, waiting[0].at("applying"));
    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! No change waits."), cancel(1));
    network.let_go();

    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
}

TEST_F(state_object_test, a_waiting_change_that_is_refused_names_conflict_and_other_wan)
{
    silence_services();
    add(routed_dhcp(1, {.vid = 101}));
    add(bridged_wan(2, "00100000", {.vid = 102}));
    add(routed_dhcp(3, {.vid = 103, .mvid = 500}));
    const listener events;
    ASSERT_TRUE(events.heard());

    queue(1, R"("vid":102)", 1);
    EXPECT_EQ("refused 1 1_INTERNET_R_VID_101 pon.101 the VLAN is taken", events.wait_for(2).back());
    queue(1, R"("bind":"00100000")", 1);
    EXPECT_EQ("refused 1 1_INTERNET_R_VID_101 pon.101 a port is bound to another WAN",
              events.wait_for(4).back());
    queue(1, R"("mvid":500)", 1);
    (void)events.wait_for(6);
    queue(1, R"("mvid":101)", 1); // its own
    (void)events.wait_for(8);
    queue(2, R"("service":3,"bind":"0")", 1);
    (void)events.wait_for(10);

    const text_lines outcomes = last();
    ASSERT_GE(outcomes.size(), 5U);
    EXPECT_EQ((text_lines{"refused 1 1_INTERNET_R_VID_101 the VLAN is taken vlan 2",
                          "refused 1 1_INTERNET_R_VID_101 a port is bound to another WAN port 2",
                          "refused 1 1_INTERNET_R_VID_101 the VLAN is taken vlan 3",
                          "refused 1 1_INTERNET_R_VID_101 the VLAN is taken vlan",
                          "refused 2 2_INTERNET_B_VID_102 no port is bound unbound"}),
              text_lines(outcomes.end() - 5, outcomes.end()));
}

TEST_F(state_object_test, a_waiting_change_that_fails_names_the_file)
{
    add_routed(1);
    const listener events;
    ASSERT_TRUE(events.heard());
    queue(1, R"("mtu":1400)", 2);
    gateway.set_config("firewall", "config zone\n\toption 'broken");

    EXPECT_EQ("failed 1 1_INTERNET_R_VID_101 pon.101 it cannot be parsed", events.wait_for(2).back());
    EXPECT_EQ("failed 1 1_INTERNET_R_VID_101 it cannot be parsed /etc/config/firewall", last().back());
    EXPECT_EQ("1500", gateway.device_option(1, "mtu"));
}

TEST_F(state_object_test, an_immediate_change_that_is_answered_ok_but_fails_is_told)
{
    add_routed(1);
    {
        small_disk disk("/etc/config");
        disk.make_read_only();
        EXPECT_EQ(result_reply(0, 0, done),
                  gateway.call("modify", modify_request(routed_dhcp(1, {.vid = 105}))));
    }

    const std::string outcome = last().back();
    EXPECT_TRUE(outcome.starts_with("failed 1 ")) << outcome;
    EXPECT_NE(std::string::npos, outcome.find(" Read-only file system /etc/config/")) << outcome;
}

TEST_F(state_object_test, a_refused_creation_names_the_other_wan)
{
    silence_services();
    add(bridged_wan(1, "00100000", {.vid = 100}));

    EXPECT_EQ(-2, gateway.call("add", add_request(routed_dhcp(2, {.vid = 100}))).at("status"));

    EXPECT_EQ("refused 0  the VLAN is taken vlan 1", last().back());
}

TEST_F(state_object_test, a_change_whose_wan_is_gone_is_lost)
{
    add_routed(1);
    const listener events;
    ASSERT_TRUE(events.heard());
    queue(1, R"("mtu":1400)", 2);

    ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").at("status"));

    const text_lines heard = events.wait_for(3);
    ASSERT_EQ(3U, heard.size());
    EXPECT_TRUE(heard[1].starts_with("deleted 1 ")) << heard[1];
    EXPECT_TRUE(heard[2].starts_with("lost 1 ")) << heard[2];
    EXPECT_TRUE(heard[2].ends_with(" there is no such WAN")) << heard[2];
}

TEST_F(state_object_test, a_cancelled_change_is_not_applied_and_its_slot_is_free_at_once)
{
    add_routed(1);
    const std::string before = gateway.config("network");
    for (unsigned id = 1; id <= slots; id++)
        queue(id, R"("mtu":1400)", long_wait);
    ASSERT_EQ(9, gateway.call("modify", R"({"wanId":17,"mtu":1400,"wait":9})").status);
    const listener events;
    ASSERT_TRUE(events.heard());

    EXPECT_EQ(result_reply(0, 0, "korvel cancel OK."), cancel(1));

    queue(17, R"("mtu":1400)", long_wait);
    EXPECT_EQ(slots, entries("pending").size());
    EXPECT_EQ(17, entries("pending").at(0).at("wanId")) << "the lowest slot";
    EXPECT_TRUE(wait_until([this] { return waiting_changes() == slots; }));
    EXPECT_EQ("cancelled 1 1_INTERNET_R_VID_101 pon.101 OK", events.wait_for(2).at(0));
    EXPECT_EQ("cancelled 1 1_INTERNET_R_VID_101 OK", last().back());
    for (unsigned id = 2; id <= slots + 1; id++)
        EXPECT_EQ(result_reply(0, 0, "korvel cancel OK."), cancel(id));
    EXPECT_TRUE(wait_until([this] { return waiting_changes() == 0; }));
    EXPECT_TRUE(entries("pending").empty());
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(text_lines{}, applied_updates());
}

TEST_F(state_object_test, a_change_asked_for_behind_a_cancelled_one_waits_its_own_seconds)
{
    add_routed(1);
    queue(1, R"("prio":5)", 1);
    ASSERT_EQ(0, cancel(1).status);
    const auto asked = std::chrono::steady_clock::now();

    queue(1, R"("mtu":1400)", 3);

    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_GE(std::chrono::steady_clock::now() - asked, std::chrono::seconds(3));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_FALSE(gateway.device_option(1, "egress_qos_mapping").has_value());
    EXPECT_EQ(text_lines{"wan_1"}, applied_updates());
}

TEST_F(state_object_test, a_cancellation_of_nothing_is_refused)
{
    add_routed(1);

    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! Invalid WAN ID."), state("cancel"));
    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! Invalid WAN ID."), state("cancel", R"({"wanId":"1"})"));
    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! No change waits."), cancel(1));
    queue(1, R"("mtu":1400)", long_wait);
    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! No change waits."), cancel(2));
    EXPECT_EQ(result_reply(0, 0, "korvel cancel OK."), cancel(257)) << "as every method counts";
    EXPECT_EQ(result_reply(2, -1, "korvel cancel ERR! No change waits."), cancel(1));
}

TEST_F(state_object_test, nothing_secret_is_told)
{
    silence_services();
    const listener events("*");
    ASSERT_TRUE(events.heard());
    add(routed_pppoe(1, {.vid = 100}));
    ASSERT_EQ("secret1", gateway.uci_get("network.wan_1.password"));

    queue(1, R"("pppUser":"alice@isp","pppPwd":"hush-hush")", long_wait);
    const std::string pending = state("pending").text;
    EXPECT_NE(std::string::npos, pending.find(R"("changes":["pppUser","pppPwd"])")) << pending;
    queue(1, R"("pppServName":"their-name")", 1);
    ASSERT_TRUE(updates_reach(1, 1));
    ASSERT_EQ("hush-hush", gateway.uci_get("network.wan_1.password"));
    ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").at("status"));
    ASSERT_TRUE(wait_until([&] { return listener::text().find("\"deleted\"") != std::string::npos; }));

    const std::string told = listener::text() + pending + state("pending").text + state("last").text;
    for (const char *const secret : {"secret1", "hush-hush", "user1", "alice", "their-name"})
        EXPECT_EQ(std::string::npos, told.find(secret)) << secret;
}

TEST_F(state_object_test, without_a_listener_changes_are_made_and_kept_in_mind)
{
    add_routed(1);
    queue(1, R"("mtu":1400)", 1);
    ASSERT_TRUE(updates_reach(1, 1));

    EXPECT_TRUE(wait_until([this] { return last().size() == 2; }));
    EXPECT_EQ((text_lines{"created 1 1_INTERNET_R_VID_101 OK", "changed 1 1_INTERNET_R_VID_101 OK"}), last());
    for (const std::string &line : gateway.log_texts(LOG_ERR))
        EXPECT_EQ(std::string::npos, line.find("event")) << line;
}

TEST_F(state_object_test, only_the_last_sixteen_are_kept)
{
    silence_services();
    for (unsigned i = 0; i < 10; i++) {
        add(routed_dhcp(1, {.vid = static_cast<uint16_t>(100 + i)}));
        ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").at("status"));
    }

    const text_lines outcomes = last();
    ASSERT_EQ(16U, outcomes.size());
    EXPECT_EQ("created 1 1_INTERNET_R_VID_102 OK", outcomes.front());
    EXPECT_EQ("deleted 1 1_INTERNET_R_VID_109 OK", outcomes.back());
}

TEST_F(state_object_test, after_a_restart_of_the_bus_events_come_again)
{
    add_routed(1);
    queue(1, R"("mtu":1400)", long_wait);
    gateway.stop_bus();
    ASSERT_TRUE(wait_until([this] { return !gateway.korvel_running(); }));
    gateway.stop_netd();
    gateway.start_netd();
    const listener events;
    ASSERT_TRUE(events.heard());

    gateway.start_korvel();

    EXPECT_TRUE(gateway.object_exists("korvel.state"));
    EXPECT_EQ((bus_reply{0, R"({"last":[]})"}), state("last"));
    EXPECT_EQ((bus_reply{0, R"({"pending":[]})"}), state("pending"));
    ASSERT_EQ(0, gateway.call("del", R"({"wanId":1})").at("status"));
    EXPECT_EQ(text_lines{"deleted 1 1_INTERNET_R_VID_101 pon.101 OK"}, events.wait_for(1));
}

TEST_F(state_object_test, a_change_that_ends_while_a_request_waits_is_told_behind_what_came_first)
{
    add_routed(2);
    const listener events;
    ASSERT_TRUE(events.heard());
    held_service network(gateway, "network");
    queue(1, R"("mtu":1400)", 1);
    ASSERT_TRUE(network.entered());
    background_call second("korvel", "del", R"({"wanId":2})");
    network.let_go();

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), second.wait());
    EXPECT_EQ(
        (text_lines{"pending 1 1_INTERNET_R_VID_101 pon.101 OK", "changed 1 1_INTERNET_R_VID_101 pon.101 OK",
                    "deleted 2 2_INTERNET_R_VID_102 pon.102 OK"}),
        events.wait_for(3));
}

} // namespace
