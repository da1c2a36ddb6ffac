// Many clients at once: changes that wait, are merged, refused and applied while others query, add devices
// and change WANs at once. Made for the thread sanitizer, whose findings show in the daemon's exit status;
// without it, the outcome is held to what was accepted.
#include "support/daemon_test.h"

#include <algorithm>
#include <atomic>
#include <random>
#include <set>
#include <thread>

namespace {

using std::chrono::milliseconds;

constexpr unsigned changed_wans = 3;
constexpr unsigned rounds = 3;
constexpr unsigned management_devices = 6;
constexpr unsigned wan_of_the_adder = changed_wans + 1;

class modify_race_test : public daemon_test {
protected:
    bus_reply change(unsigned id, const std::string &arguments)
    {
        return gateway.call("modify", "{\"wanId\":" + std::to_string(id) + "," + arguments + "}");
    }

    static std::string mtu(unsigned id, unsigned round) { return std::to_string(1000 + 100 * id + round); }

    // Each round asks for a change and, about when that falls due, for another. The second may be merged,
    // or come while the first is applied, or later.
    void change_again_and_again(unsigned id)
    {
        std::mt19937 random(id);
        std::uniform_int_distribution<int> delay(900, 1100);
        for (unsigned round = 1; round <= rounds; round++) {
            const std::string first = "\"prio\":" + std::to_string(round) + ",\"wait\":1";
            EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), change(id, first));
            std::this_thread::sleep_for(milliseconds(delay(random)));
            EXPECT_EQ(result_reply(0, 0, "korvel modify OK."),
                      change(id, "\"mtu\":" + mtu(id, round) + ",\"wait\":1"));
        }
    }

    void ask_for_what_is_refused()
    {
        while (!stop_) {
            for (unsigned id = 1; id <= changed_wans; id++) {
                EXPECT_EQ(result_reply(0, -1, "korvel modify ERR! Invalid SERVICE."),
                          change(id, R"("mtu":700,"service":9,"wait":1)"));
            }
            std::this_thread::sleep_for(milliseconds(700)); // each one restarts the seconds of what waits
        }
    }

    void query()
    {
        while (!stop_) {
            // A WAN that is just being rebuilt may be missing.
            const int status = gateway.call("get", R"({"wanId":1})").status;
            EXPECT_TRUE(status == 0 || status == 2) << status;
            const bus_reply all = gateway.call("all");
            EXPECT_TRUE(all.text.empty() || all.json()) << all.text;
        }
    }

    void add_management_devices()
    {
        for (unsigned i = 0; i < management_devices; i++)
            EXPECT_EQ(result_reply(0, 0, "korvel add WAN device OK."), gateway.call("addDev"));
    }

    void change_at_once()
    {
        for (unsigned round = 1; round <= 2 * rounds; round++) {
            wan_config wan = routed_dhcp(wan_of_the_adder, {.vid = 104, .ip_protocol = 3});
            wan.mtu = static_cast<uint16_t>(1400 + round);
            EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), gateway.call("modify", modify_request(wan)));
        }
    }

    std::atomic<bool> stop_{false};
};

TEST_F(modify_race_test, what_was_accepted_is_what_is_configured_in_the_end)
{
    gateway.start_netd();
    gateway.start_korvel();
    silence_services();
    for (uint8_t id = 1; id <= changed_wans + 1; id++) {
        const wan_config wan = id == 2 ? bridged_wan(id, "01000000", {.vid = 102})
                                       : routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id)});
        ASSERT_EQ(0, gateway.call("add", add_request(wan)).at("status").integer());
    }
    {
        std::vector<std::jthread> changers;
        std::vector<std::jthread> disturbers;
        disturbers.emplace_back([this] { ask_for_what_is_refused(); });
        disturbers.emplace_back([this] { query(); });
        for (unsigned id = 1; id <= changed_wans; id++)
            changers.emplace_back([this, id] { change_again_and_again(id); });
        changers.emplace_back([this] { add_management_devices(); });
        changers.emplace_back([this] { change_at_once(); });
        changers.clear();
        stop_ = true;
    }
    ASSERT_TRUE(wait_until([this] { return waiting_changes() == 0; }, std::chrono::seconds(30)));

    std::multiset<std::string> expected_ids;
    for (unsigned id = 1; id <= changed_wans + 1 + management_devices; id++)
        expected_ids.insert(std::to_string(id));
    const text_lines ids = gateway.uci_list("network.korvel.wanList").value_or(text_lines{});
    EXPECT_EQ(expected_ids, std::multiset<std::string>(ids.begin(), ids.end()));
    for (unsigned id = 1; id <= changed_wans; id++) {
        SCOPED_TRACE(id);
        EXPECT_EQ(mtu(id, rounds), gateway.device_option(id, "mtu"));
        EXPECT_EQ("0:" + std::to_string(rounds), gateway.device_option(id, "egress_qos_mapping"));
    }
    EXPECT_EQ(std::to_string(1400 + 2 * rounds), gateway.device_option(wan_of_the_adder, "mtu"));
    for (unsigned id = wan_of_the_adder + 1; id <= wan_of_the_adder + management_devices; id++) {
        SCOPED_TRACE(id);
        EXPECT_EQ("pon.4094", gateway.device_option(id, "name"));
        EXPECT_EQ("4094", gateway.device_option(id, "vid"));
        EXPECT_EQ(10U, gateway.uci_options("network." + gateway.device_section(id).value_or("")).size());
    }
    expect_whole_files();
    EXPECT_EQ(0, gateway.stop_korvel());
}

// What the bus thread touches between two uses of the table's lock meets the end of a change only when
// nothing else is asked until that end: each further lock would order the two.
TEST_F(modify_race_test, what_comes_while_a_change_is_applied_does_not_race_with_its_end)
{
    const struct {
        const char *trace;
        unsigned id;
        const char *arguments;
        bus_reply reply;
    } cases[] = {
        {"refused", 1, R"("service":9,"wait":1)", result_reply(0, -1, "korvel modify ERR! Invalid SERVICE.")},
        {"queued", 2, R"("mtu":1300,"wait":1)", result_reply(0, 0, "korvel modify OK.")},
    };
    gateway.start_netd();
    gateway.start_korvel();
    silence_services();
    for (const uint8_t id : {uint8_t{1}, uint8_t{2}})
        ASSERT_EQ(0, gateway.call("add", add_request(routed_dhcp(0, {.vid = id}))).at("status").integer());
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        held_service last_reload(gateway, "omcproxy");
        EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), change(1, R"("mtu":1400,"wait":1)"));
        ASSERT_TRUE(last_reload.entered());

        EXPECT_EQ(row.reply, change(row.id, row.arguments));

        last_reload.let_go();
        ASSERT_TRUE(wait_until([this] { return waiting_changes() == 0; }, std::chrono::seconds(30)));
    }
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_EQ("1300", gateway.device_option(2, "mtu"));
    EXPECT_EQ(0, gateway.stop_korvel());
}

} // namespace
