// What clients see of the lanes: nobody waits for what somebody else does, whatever hangs, and those who do
// wait are answered in order.
#include "support/daemon_test.h"
#include "support/sanitizers.h"

#include <algorithm>
#include <fstream>
#include <memory>
#include <optional>
#include <poll.h>
#include <thread>

#include "base/bus_headers.h"
#include "service/request.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr char queued[] = "korvel modify OK.";
constexpr auto at_once = seconds(10); // nothing that hangs here is as short

// A client that sends requests without waiting for their answers.
class busy_client {
public:
    busy_client() : bus_(ubus_connect(nullptr), ubus_free)
    {
        if (!bus_ || ubus_lookup_id(bus_.get(), "korvel", &object_) != 0)
            throw std::runtime_error("there is no object korvel");
    }

    void send(const char *method, uint32_t wan_id)
    {
        blob_buf message = {};
        blob_buf_init(&message, 0);
        blobmsg_add_u32(&message, "wanId", wan_id);
        auto made = std::make_unique<one>();
        made->owner = this;
        made->number = requests_.size();
        if (ubus_invoke_async(bus_.get(), object_, method, message.head, &made->request) != 0)
            throw std::runtime_error("a request cannot be sent");
        made->request.complete_cb = [](ubus_request *request, int status) {
            one &ended = *reinterpret_cast<one *>(request);
            ended.owner->answers_.push_back({ended.number, status});
        };
        ubus_complete_request_async(bus_.get(), &made->request);
        requests_.push_back(std::move(made));
        blob_buf_free(&message);
    }

    struct answer {
        size_t number;
        int status;
    };

    // Waits until that many requests are answered. Returns the answers in their order.
    const std::vector<answer> &wait_for(size_t count)
    {
        const auto deadline = steady_clock::now() + seconds(60);
        while (answers_.size() < count && steady_clock::now() < deadline) {
            pollfd waiting = {bus_->sock.fd, POLLIN, 0};
            if (poll(&waiting, 1, 100) == 1)
                ubus_handle_event(bus_.get());
        }
        return answers_;
    }

private:
    struct one {
        ubus_request request; // the first member
        busy_client *owner;
        size_t number;
    };

    std::vector<std::unique_ptr<one>> requests_; // which the bus lets go of before they do
    std::unique_ptr<ubus_context, void (*)(ubus_context *)> bus_;
    uint32_t object_ = 0;
    std::vector<answer> answers_;
};

class lanes_test : public daemon_test {
protected:
    void SetUp() override
    {
        gateway.start_netd();
        gateway.start_korvel();
        ASSERT_EQ(result_reply(0, 0, queued), gateway.call("add", add_request(routed_dhcp(1, {.vid = 101}))));
    }

    // Has the daemon hang in a service's reload, because of an addition that made WAN 2.
    void hang()
    {
        held_.emplace(gateway, "network");
        hanging_.emplace("korvel", "add", add_request(routed_dhcp(2, {.vid = 102})));
        ASSERT_TRUE(held_->entered());
    }

    void let_go()
    {
        held_->let_go();
        EXPECT_EQ(result_reply(0, 0, queued), hanging_->wait());
    }

    // Bytes of memory that only the daemon has.
    size_t private_memory() const
    {
        std::ifstream smaps("/proc/" + std::to_string(gateway.korvel_pid()) + "/smaps_rollup");
        size_t sum = 0;
        for (std::string line; std::getline(smaps, line);)
            if (line.starts_with("Private_"))
                sum += std::stoul(line.substr(line.find(':') + 1)) * 1024;
        return sum;
    }

    text_lines ids() const { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }

    std::optional<held_service> held_;
    std::optional<background_call> hanging_;
};

TEST_F(lanes_test, queries_and_refusals_are_answered_while_a_reload_hangs)
{
    hang();
    const auto start = steady_clock::now();

    EXPECT_EQ(101, gateway.call("get", R"({"wanId":1})").at("vid"));
    EXPECT_EQ((std::vector<std::string>{"1", "2"}), gateway.call("all").json().keys())
        << "the state behind the change, whole";
    EXPECT_EQ(result_reply(0, -1, "korvel add ERR! Invalid MTU."),
              gateway.call("add", R"({"wanMode":1,"mtu":2000})"));
    EXPECT_EQ(result_reply(2, -1, "korvel del ERR!"), gateway.call("del"));
    EXPECT_EQ(result_reply(0, 0, queued), gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":1000})"));
    EXPECT_EQ(1U, waiting_changes());
    EXPECT_EQ(result_reply(0, 0, "korvel add WAN device OK."), gateway.call("addDev"));

    EXPECT_LT(steady_clock::now() - start, at_once);
    let_go();
}

TEST_F(lanes_test, changes_behind_a_reload_that_hangs_are_done_in_the_order_in_which_they_came)
{
    hang();
    std::vector<std::unique_ptr<background_call>> calls;
    for (uint8_t i = 0; i < 8; i++) {
        calls.push_back(std::make_unique<background_call>(
            "korvel", "add", add_request(routed_dhcp(0, {.vid = static_cast<uint16_t>(200 + i)}))));
        // The tool has to start and to find the object before the next one does.
        std::this_thread::sleep_for(milliseconds(300));
    }
    let_go();
    for (const auto &call : calls)
        EXPECT_EQ(result_reply(0, 0, queued), call->wait());

    for (unsigned i = 0; i < 8; i++)
        EXPECT_EQ(std::to_string(200 + i), gateway.device_option(3 + i, "vid"));
}

TEST_F(lanes_test, the_management_device_takes_its_turn_behind_changes_that_wait)
{
    hang();
    background_call add("korvel", "add", add_request(routed_dhcp(0, {.vid = 103})));
    std::this_thread::sleep_for(milliseconds(300));
    background_call device("korvel", "addDev", "{}");
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ((text_lines{"1", "2"}), ids());
    let_go();

    EXPECT_EQ(result_reply(0, 0, queued), add.wait());
    EXPECT_EQ(result_reply(0, 0, "korvel add WAN device OK."), device.wait());
    EXPECT_EQ("103", gateway.device_option(3, "vid"));
    EXPECT_EQ("4_OTHER_B_TMP", gateway.device_option(4, "lkname"));
}

TEST_F(lanes_test, a_later_change_builds_upon_an_earlier_one_that_still_waits_for_its_turn)
{
    hang();
    wan_config wan = routed_dhcp(1, {.vid = 101});
    wan.mtu = 1400;
    background_call now("korvel", "modify", modify_request(wan));
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_EQ(result_reply(0, 0, queued), gateway.call("modify", R"({"wanId":1,"prio":3,"wait":1})"));
    let_go();

    EXPECT_EQ(result_reply(0, 0, queued), now.wait());
    ASSERT_TRUE(updates_reach(1, 2));
    EXPECT_EQ("1400", gateway.device_option(1, "mtu"));
    EXPECT_EQ("0:3", gateway.device_option(1, "egress_qos_mapping"));
}

TEST_F(lanes_test, a_thousand_requests_behind_a_reload_that_hangs_are_held_or_refused)
{
    hang();
    const size_t before = private_memory();
    busy_client flood;
    constexpr size_t requests = 1000;
    for (uint32_t i = 0; i < requests; i++)
        flood.send("del", 99);
    // Half of the room is for the others.
    constexpr size_t refused = requests - most_requests / 2;
    const auto at_first = flood.wait_for(refused);
    ASSERT_EQ(refused, at_first.size());
    for (size_t i = 0; i < refused; i++) {
        EXPECT_EQ(most_requests / 2 + i, at_first[i].number);
        EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, at_first[i].status);
    }
    const auto told = [this] {
        return std::ranges::count(gateway.log_texts(LOG_ERR), "Refused a request: 513 wait already");
    };
    EXPECT_TRUE(wait_until([&] { return told() > 0; }));
    std::vector<std::unique_ptr<background_call>> others;
    for (int i = 0; i < 64; i++)
        others.push_back(std::make_unique<background_call>("korvel", "del", R"({"wanId":98})"));
    EXPECT_EQ(101, gateway.call("get", R"({"wanId":1})").at("vid"));
    if (!address_sanitizer && !thread_sanitizer) {
        EXPECT_LT(private_memory() - before, 1048576U);
    }

    EXPECT_EQ(1, told());
    let_go();

    const auto &all = flood.wait_for(requests);
    ASSERT_EQ(requests, all.size());
    for (size_t i = refused; i < requests; i++)
        EXPECT_EQ(i - refused, all[i].number) << "in the order in which they came";
    for (const auto &other : others)
        EXPECT_EQ(result_reply(2, -1, "korvel del ERR!"), other->wait());
    EXPECT_EQ((text_lines{"1", "2"}), ids());
}

TEST_F(lanes_test, clients_that_go_away_cost_nothing_and_their_changes_are_made)
{
    hang();
    {
        busy_client leaving;
        leaving.send("del", 1);
        leaving.send("get", 1);
        std::this_thread::sleep_for(milliseconds(300));
    }
    let_go();

    EXPECT_TRUE(wait_until([this] { return ids() == text_lines{"2"}; }));
    EXPECT_EQ(102, gateway.call("get", R"({"wanId":2})").at("vid"));
}

TEST_F(lanes_test, a_stop_with_requests_queued_behind_a_child_that_hangs_ends_the_daemon_at_once)
{
    hang();
    background_call waiting("korvel", "del", R"({"wanId":1})");
    std::this_thread::sleep_for(milliseconds(300));
    const auto start = steady_clock::now();

    EXPECT_EQ(0, gateway.stop_korvel());

    EXPECT_LT(steady_clock::now() - start, at_once);
    EXPECT_NE(0, waiting.wait().status);
    held_->let_go();
    gateway.start_korvel();
    EXPECT_EQ((text_lines{"1", "2"}), ids()) << "what was not begun is not done";
    expect_whole_files();
}

TEST_F(lanes_test, a_child_that_hangs_in_the_middle_of_a_change_keeps_a_stop_for_a_moment_only)
{
    const wan_config dual = routed_dhcp(1, {.vid = 101, .ip_protocol = ip_protocol_v4 | ip_protocol_v6});
    ASSERT_EQ(result_reply(0, 0, queued), gateway.call("modify", modify_request(dual)));
    held_service held(gateway, "network"); // the deletion of a DHCPv6 interface reloads the network
    wan_config changed = dual;
    changed.mtu = 1400;
    background_call modify("korvel", "modify", modify_request(changed));
    ASSERT_TRUE(held.entered());
    ASSERT_FALSE(gateway.device_section(1).has_value());

    EXPECT_EQ(0, gateway.stop_korvel());
    held.let_go();
    gateway.start_korvel();

    EXPECT_EQ("1400", gateway.device_option(1, "mtu")) << "the next start has completed it";
    EXPECT_EQ(text_lines{"1"}, ids());
    expect_whole_files();
}

TEST_F(lanes_test, a_lost_bus_ends_a_daemon_whose_child_hangs)
{
    hang();
    gateway.stop_bus();

    EXPECT_TRUE(wait_until([this] { return !gateway.korvel_running(); }, at_once));
    held_->let_go();
    expect_whole_files();
}

// Parameter: what the bus tool does when the daemon runs it.
class silent_daemon_test : public lanes_test, public testing::WithParamInterface<const char *> {
protected:
    void SetUp() override
    {
        lanes_test::SetUp();
        silence_services();
        for (uint8_t id = 2; id <= 12; id++)
            ASSERT_EQ(result_reply(0, 0, queued),
                      gateway.call("add", add_request(routed_dhcp(0, {.vid = static_cast<uint16_t>(100 + id),
                                                                      .ip_protocol = 3}))));
    }
};

TEST_P(silent_daemon_test, is_waited_for_once_by_all_who_ask_meanwhile)
{
    busy_client client;
    gateway.fake_program("ubus", GetParam());
    const auto start = steady_clock::now();

    for (int i = 0; i < 3; i++)
        client.send("all", 0);
    for (uint32_t id = 1; id <= 12; id++)
        client.send("get", id);
    const auto &answers = client.wait_for(15);

    const auto passed = steady_clock::now() - start;
    ASSERT_EQ(15U, answers.size());
    for (const auto &answer : answers)
        EXPECT_EQ(UBUS_STATUS_OK, answer.status) << answer.number;
    EXPECT_GE(passed, seconds(30));
    EXPECT_LT(passed, seconds(40));
}

INSTANTIATE_TEST_SUITE_P(tools, silent_daemon_test,
                         testing::Values("sleep 30.2; exit 7",           // gives up by itself
                                         "trap '' TERM INT; sleep 1000", // does not
                                         "sleep 1000 & exit 0"),         // leaves its output to another
                         [](const auto &tool) { return "tool_" + std::to_string(tool.index); });

TEST_F(lanes_test, a_reload_that_hangs_is_named_in_the_log_and_waited_for)
{
    held_service held(gateway, "network");
    ASSERT_EQ(result_reply(0, 0, queued), gateway.call("modify", R"({"wanId":1,"mtu":1400,"wait":1})"));
    ASSERT_TRUE(held.entered());
    ASSERT_TRUE(wait_until([this] { return !gateway.log_texts(LOG_WARNING).empty(); }, seconds(40)));
    EXPECT_EQ(text_lines{"It has run for 30 s: /etc/init.d/network reload"}, gateway.log_texts(LOG_WARNING));

    held.let_go();

    ASSERT_TRUE(wait_until([this] { return gateway.log_texts(LOG_WARNING).size() == 2; }));
    const text_lines lines = gateway.log_texts(LOG_WARNING);
    EXPECT_TRUE(lines[1].starts_with("It ended after 3")) << lines[1];
}

} // namespace
