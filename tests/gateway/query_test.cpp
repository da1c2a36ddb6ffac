// Queries over the bus: a network daemon that does not answer as it should, and configurations of every size.
#include "support/daemon_test.h"
#include "support/sanitizers.h"

#include <algorithm>
#include <ctime>
#include <functional>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char unparsable[] = "Failed to parse netifd data json";
constexpr char missed[] = "Error happened when getting wan_1 data: -1";

class query_test : public daemon_test {
protected:
    bus_reply get(unsigned id) { return gateway.call("get", "{\"wanId\":" + std::to_string(id) + "}"); }

    // Stores bridged WANs 1 to count in one write.
    void store_bridged(unsigned count)
    {
        store_all(count, [](uint8_t id) {
            return bridged_wan(id, "10000000", {.vid = static_cast<uint16_t>(100 + id)});
        });
    }

    // The same with WANs of any kind, made from their identifiers.
    template <typename maker> void store_all(unsigned count, const maker &make)
    {
        std::string text = "config korvel 'korvel'\n\toption maxWanId '255'\n\toption pon_adapt 'pon'\n";
        for (unsigned id = 1; id <= count; id++)
            text += "\tlist wanList '" + std::to_string(id) + "'\n";
        for (unsigned id = 1; id <= count; id++) {
            const wan_config wan = make(static_cast<uint8_t>(id));
            text += uci_device_section(wan) + uci_interface_sections(wan);
        }
        gateway.set_config("network", text);
    }
};

TEST_F(query_test, a_status_that_cannot_be_read_leaves_the_wan_down)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.start_netd();
    gateway.start_korvel();
    const struct {
        const char *reply;
        text_lines errors;
    } cases[] = {
        {"absent", {}},
        {"malformed", {}},
        {"silent", {}},
        {"big", {"Output of ubus -S call network.interface.wan_1 status is cut at 2048 of its 2736 bytes"}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.reply);
        text_lines errors = row.errors;
        errors.insert(errors.end(), {unparsable, missed});
        gateway.script_interface("wan_1", row.reply);
        gateway.clear_log();

        const bus_reply answer = get(1);

        EXPECT_EQ(0, answer.status);
        EXPECT_EQ("1_INTERNET_R_VID_100", answer.at("wanName"));
        EXPECT_EQ(false, answer.at("status"));
        EXPECT_EQ("", answer.at("ip"));
        EXPECT_EQ(errors, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(query_test, without_a_network_daemon_the_wan_is_down)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.start_netd();
    gateway.start_korvel();
    gateway.stop_netd();

    const bus_reply answer = get(1);

    EXPECT_EQ(0, answer.status);
    EXPECT_EQ(false, answer.at("status"));
    EXPECT_EQ((text_lines{unparsable, missed}), gateway.log_texts(LOG_ERR));
}

TEST_F(query_test, a_slow_status_is_waited_for)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.script_interface("wan_1", R"(slow 0.4 {"up":true,"uptime":77})");
    gateway.start_netd();
    gateway.start_korvel();
    const auto start = steady_clock::now();

    const bus_reply answer = get(1);

    EXPECT_LE(milliseconds(400), steady_clock::now() - start);
    EXPECT_EQ(true, answer.at("status"));
    EXPECT_EQ(77, answer.at("uptime"));
}

TEST_F(query_test, a_dual_stack_wan_without_its_ipv6_interface_reports_ipv4)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .ip_protocol = 3}));
    gateway.script_interface("wan_1_v6", "absent");
    gateway.start_netd();
    gateway.start_korvel();
    gateway.settle_netd();

    const bus_reply answer = get(1);

    EXPECT_EQ(true, answer.at("status"));
    EXPECT_EQ(false, answer.at("statusV6"));
    EXPECT_EQ("198.51.100.23", answer.at("ip"));
    EXPECT_EQ(text_lines{"Failed to parse netifd data_v6 json"}, gateway.log_texts(LOG_ERR));
}

TEST_F(query_test, one_malformed_status_leaves_the_other_wans_alone)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    gateway.script_interface("wan_1", "malformed");
    gateway.start_netd();
    gateway.start_korvel();
    gateway.settle_netd();

    const bus_reply answer = gateway.call("all");

    EXPECT_EQ(0, answer.status);
    EXPECT_EQ(false, answer.at("1").at("status"));
    EXPECT_EQ(true, answer.at("2").at("status"));
}

TEST_F(query_test, without_listed_wans_all_answers_nothing)
{
    gateway.start_netd();
    gateway.start_korvel();

    EXPECT_EQ((bus_reply{0, ""}), gateway.call("all"));
}

TEST_F(query_test, wans_that_cannot_be_read_are_answered_by_their_place)
{
    gateway.store_wan(bridged_wan(3, "1000", {.vid = 103}));
    gateway.store_wan(bridged_wan(5, "0100", {.vid = 105}));
    gateway.store_wan(bridged_wan(9, "0010", {.vid = 109}));
    gateway.start_netd();
    gateway.start_korvel();

    gateway.uci_delete("network." + gateway.device_section(5).value());
    const bus_reply without_5 = gateway.call("all");
    gateway.uci_delete("network." + gateway.device_section(9).value());
    const bus_reply without_9 = gateway.call("all");

    EXPECT_EQ(0, without_5.status);
    EXPECT_EQ((std::vector<std::string>{"3", "5", "9"}), without_5.json().keys());
    EXPECT_EQ(5, without_5.at("5").at("wanId"));
    EXPECT_EQ("", without_5.at("5").at("wanName"));
    EXPECT_EQ(result_reply(2, -1, "korvel read all WAN ERR!"), without_9);
}

TEST_F(query_test, identifiers_that_name_no_wan_are_refused)
{
    gateway.store_wan(bridged_wan(1, "1000"));
    gateway.start_netd();
    gateway.start_korvel();

    for (const unsigned id : {0U, 2U, 256U})
        EXPECT_EQ(result_reply(2, -1, "korvel get ERR!"), get(id)) << id;
    EXPECT_EQ(get(1), get(257));
}

TEST_F(query_test, a_reply_that_the_bus_does_not_take_is_refused_and_the_daemon_lives_on)
{
    gateway.start_netd();
    store_bridged(1);
    std::string text = gateway.config("network");
    constexpr char entry[] = "\tlist wanList '1'\n";
    for (int i = 0; i < 1500; i++)
        text.insert(text.find(entry), entry);
    gateway.set_config("network", text);
    gateway.start_korvel();

    EXPECT_EQ(result_reply(9, -1, "korvel malloc ERR!"), gateway.call("all"));

    EXPECT_EQ(0, get(1).status);
    EXPECT_TRUE(gateway.korvel_running());
}

// Has the bus tool, when it asks for a WAN's status, note in how many processes it does so, and wait until
// there is a file /tmp/go.
constexpr char held_questions[] = R"sh(case "$*" in *" network.interface.wan_"*)
    mkdir -p /tmp/running
    : >"/tmp/running/$$"
    ls /tmp/running | wc -l >>/tmp/counts
    until [ -e /tmp/go ]; do sleep 0.01; done
    rm "/tmp/running/$$";;
esac
PATH=${PATH#*:}
exec ubus "$@")sh";

// A reply as text with a second like any other.
std::string timeless(const bus_reply &reply)
{
    return std::to_string(reply.status) + ' ' +
           std::regex_replace(reply.text, std::regex(R"("uptime":\d+)"), R"("uptime":0)");
}

TEST_F(query_test, all_asks_for_a_few_wans_side_by_side)
{
    constexpr size_t at_once = 6;
    store_all(6, [](uint8_t id) {
        return routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id), .ip_protocol = 3});
    });
    gateway.start_netd();
    gateway.start_korvel();
    gateway.settle_netd();
    const std::string expected = timeless(gateway.call("all"));
    gateway.fake_program("ubus", held_questions);
    const auto asking = [this] { return gateway.list_directory("/tmp/running").size(); };
    const auto waits = [this] { // for its commands, and has none more to start
        const std::string state = gateway.file("/proc/" + std::to_string(gateway.korvel_pid()) + "/stat");
        return state.find(") S ") != std::string::npos;
    };

    background_call all("korvel", "all", "{}");
    EXPECT_TRUE(wait_until([&] { return asking() >= at_once && waits(); }));
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(expected, timeless(all.wait()));
    std::istringstream counts(gateway.file("/tmp/counts"));
    size_t lines = 0;
    for (size_t count = 0; counts >> count; lines++)
        EXPECT_GE(at_once, count);
    EXPECT_EQ(12U, lines);
}

TEST_F(query_test, get_asks_for_both_interfaces_of_a_wan_side_by_side)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100, .ip_protocol = 3}));
    gateway.start_netd();
    gateway.start_korvel();
    gateway.settle_netd();
    const std::string expected = timeless(get(1));
    gateway.fake_program("ubus", held_questions);

    background_call call("korvel", "get", R"({"wanId":1})");
    EXPECT_TRUE(wait_until([this] { return gateway.list_directory("/tmp/running").size() == 2; }));
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(expected, timeless(call.wait()));
}

TEST_F(query_test, a_slow_status_among_others_is_waited_for)
{
    store_all(6, [](uint8_t id) { return routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id)}); });
    for (const char *interface : {"wan_1", "wan_2", "wan_3", "wan_4", "wan_5", "wan_6"})
        gateway.script_interface(interface, R"(json {"up":true,"uptime":7})");
    gateway.start_netd();
    gateway.start_korvel();
    const bus_reply expected = gateway.call("all");
    ASSERT_EQ(7, expected.at("6").at("uptime"));

    gateway.script_interface("wan_2", R"(slow 0.5 {"up":true,"uptime":7})");

    EXPECT_EQ(expected, gateway.call("all"));
}

// How long a process has been computing; what it waited for does not count, so a busy machine does not
// matter.
std::chrono::nanoseconds computing_time(pid_t process)
{
    clockid_t clock;
    timespec time;
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0)
        throw std::runtime_error("cannot read the time of a process");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

// The least time that a process computes for one of several calls.
template <typename caller> std::chrono::nanoseconds least_computing_time(pid_t process, const caller &call)
{
    auto least = std::chrono::nanoseconds::max();
    for (int i = 0; i < 5; i++) {
        const auto start = computing_time(process);
        call();
        least = std::min(least, computing_time(process) - start);
    }
    return least;
}

TEST_F(query_test, the_time_of_all_grows_with_the_wans_in_a_straight_line)
{
    if (thread_sanitizer || address_sanitizer)
        GTEST_SKIP() << "sanitizers make comparing names the greatest cost";
    constexpr unsigned few = 50;
    constexpr unsigned many = 250;
    gateway.start_netd();
    gateway.uci_set("network.korvel.maxWanId", "255");
    gateway.start_korvel();
    const auto time_of = [this](unsigned count) {
        store_bridged(count);
        return least_computing_time(gateway.korvel_pid(),
                                    [&] { EXPECT_EQ(count, gateway.call("all").json().size()); });
    };

    const auto short_time = time_of(few);
    const auto long_time = time_of(many);

    // Five times the WANs: a square would take 25 times as long.
    EXPECT_LT(long_time, 12 * short_time) << short_time.count() << " ns, then " << long_time.count() << " ns";
}

TEST_F(query_test, the_time_of_queries_grows_with_routed_wans_in_a_straight_line)
{
    constexpr unsigned few = 16;
    constexpr unsigned many = 80;
    gateway.start_netd();
    gateway.uci_set("network.korvel.maxWanId", "255");
    gateway.start_korvel();
    const struct {
        const char *method;
        std::function<void(unsigned)> call; // among that many WANs
    } cases[] = {
        {"all", [this](unsigned count) { EXPECT_EQ(count, gateway.call("all").json().size()); }},
        {"get", [this](unsigned count) { EXPECT_EQ(true, get(count).at("status")); }},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.method);
        const auto time_of = [&](unsigned count) {
            store_all(count, [](uint8_t id) {
                return routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id), .ip_protocol = 3});
            });
            gateway.reload_netd();
            gateway.settle_netd();
            return least_computing_time(gateway.korvel_pid(), [&] { row.call(count); });
        };

        const auto short_time = time_of(few);
        const auto long_time = time_of(many);

        // Five times the WANs, as above.
        EXPECT_LT(long_time, 12 * short_time)
            << short_time.count() << " ns, then " << long_time.count() << " ns";
    }
}

TEST_F(query_test, a_network_of_1000_sections_works_like_a_small_one)
{
    std::string foreign;
    for (int i = 0; i < 1000; i++)
        foreign += "\nconfig interface 'other_" + std::to_string(i) + "'\n\toption proto 'none'\n";
    gateway.set_config("network", gateway.config("network") + foreign);
    gateway.start_netd();
    gateway.start_korvel();

    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."),
              gateway.call("add", add_request(routed_dhcp(1, {.vid = 100}))));
    gateway.settle_netd();

    const bus_reply answer = get(1);
    EXPECT_EQ("1_INTERNET_R_VID_100", answer.at("wanName"));
    EXPECT_EQ("198.51.100.23", answer.at("ip"));
    EXPECT_EQ(answer.at("ip"), gateway.call("all").at("1").at("ip"));
    EXPECT_EQ("none", gateway.uci_get("network.other_999.proto"));

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));
    EXPECT_FALSE(gateway.device_section(1));
    EXPECT_EQ("none", gateway.uci_get("network.other_0.proto"));
}

} // namespace
