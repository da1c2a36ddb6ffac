#include "ctl/ctl_test.h"

namespace {

class ctl_watch_test : public ctl_test {
protected:
    // Whether the watcher has printed that, at the latest at the deadline.
    bool has(const std::string &text) const
    {
        return wait_until([&] { return gateway.file("/tmp/watched").find(text) != std::string::npos; });
    }
    static void send(const std::string &content)
    {
        EXPECT_EQ(0, run_program({"ubus", "send", "korvel.wan", content}).status);
    }
};

TEST_F(ctl_watch_test, prints_events_and_link_changes_as_lines)
{
    gateway.store_wan(routed_dhcp(7, {.vid = 100}));
    gateway.start_netd();
    const child_process watcher({"korvelctl", "watch"}, {}, "/tmp/watched");
    ASSERT_TRUE(has("bus listening\n"));

    gateway.start_korvel();
    send(
        R"({"action":"changed","wanId":7,"wanName":"7_INTERNET_R_VID_100","device":"pon.100","result":"OK"})");
    gateway.settle_netd(); // only what has come up is told of when it goes down
    EXPECT_EQ(0, run_program({"ubus", "call", "network.interface.wan_7", "down"}).status);

    EXPECT_TRUE(has("Z daemon started\n"));
    EXPECT_TRUE(has("Z wan WAN 7 changed 7_INTERNET_R_VID_100 pon.100: OK\n"))
        << gateway.file("/tmp/watched");
    EXPECT_TRUE(has("Z link WAN 7 ifdown wan_7\n"));
}

TEST_F(ctl_watch_test, prints_json_lines_that_cannot_be_forged)
{
    gateway.start_bus();
    const child_process watcher({"korvelctl", "watch", "--json"}, {}, "/tmp/watched");
    ASSERT_TRUE(has("\"listening\"}\n"));

    send(R"({"action":"refused","wanId":3,"wanName":"x\u001b[2J\n{}","result":"vlan"})");
    send(R"({"action":17,"wanId":"none"})");
    send(R"({"action":"deleted","wanId":3})");
    ASSERT_TRUE(has("\"deleted\""));

    const text_lines lines = lines_of(gateway.file("/tmp/watched"));
    ASSERT_EQ(4U, lines.size());
    const json_value refused = json_value::parse(lines[1]);
    EXPECT_EQ(refused.at("event"), "wan");
    EXPECT_EQ(refused.at("action"), "refused");
    EXPECT_EQ(refused.at("wanId"), 3);
    EXPECT_EQ(refused.at("wanName"), "x\033[2J\n{}");
    EXPECT_EQ(refused.at("result"), "vlan");
    EXPECT_TRUE(is_harmless(gateway.file("/tmp/watched")));
}

TEST_F(ctl_watch_test, goes_on_behind_a_restart_of_the_bus_daemon)
{
    gateway.start_bus();
    child_process watcher({"korvelctl", "watch"}, {}, "/tmp/watched");
    ASSERT_TRUE(has("bus listening\n"));

    gateway.stop_bus();
    ASSERT_TRUE(has("bus lost\n"));
    gateway.start_bus();
    ASSERT_TRUE(has("bus back\n"));
    send(R"({"action":"created","wanId":1,"wanName":"1_INTERNET_R_VID_100"})");

    EXPECT_TRUE(has("wan WAN 1 created 1_INTERNET_R_VID_100\n"));
    EXPECT_EQ(128 + SIGTERM, watcher.stop(SIGTERM));
}

TEST_F(ctl_watch_test, ends_with_whoever_reads)
{
    gateway.start_bus();

    child_process pipe({"sh", "-c", "korvelctl watch | head -n 1"}, {}, "/tmp/watched");
    ASSERT_TRUE(has("bus listening\n"));
    // The reader is gone; the next line finds that out.
    EXPECT_TRUE(wait_until([&] {
        send(R"({"action":"created"})");
        return !pipe.running();
    }));
}

TEST_F(ctl_watch_test, needs_a_bus_to_begin_with)
{
    EXPECT_EQ(code(exit_status::no_daemon), ctl({"watch"}).status);
    EXPECT_EQ(code(exit_status::usage), ctl({"watch", "1"}).status);
}

} // namespace
