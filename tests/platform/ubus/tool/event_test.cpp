// ubus listen, send and wait_for.
#include "platform/ubus/tool/fixture.h"

#include <chrono>
#include <csignal>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class ubus_tool_event_test : public ubus_tool_test {
protected:
    // A tool that listens, once it really does: `probe` is an event that its patterns match.
    child_process listener(const std::vector<std::string> &args, const std::string &probe)
    {
        child_process tool(command(args), {}, output);
        EXPECT_TRUE(wait_until([&] {
            connect().send_event(probe);
            return !printed().empty();
        }));
        return tool;
    }
    std::string printed() const { return file_content(output); }
    bool prints(const std::string &end) const
    {
        return wait_until([&] { return printed().ends_with(end); });
    }

    std::string output = directory + "/output";
};

TEST_F(ubus_tool_event_test, events_are_printed_as_they_come)
{
    child_process tool = listener({"listen"}, "probe");

    EXPECT_EQ(0, run({"send", "foo.x", R"({"a":1})"}).status);
    EXPECT_TRUE(prints("\n{ \"foo.x\": {\"a\":1} }\n")) << printed();
    EXPECT_EQ(0, run({"send", "bar"}).status);
    EXPECT_TRUE(prints("{ \"foo.x\": {\"a\":1} }\n{ \"bar\": {} }\n")) << printed();
    EXPECT_EQ(0, run({"send", "quo\"te", "{}"}).status);
    EXPECT_TRUE(prints("{ \"bar\": {} }\n{ \"quo\"te\": {} }\n")) << printed();
    EXPECT_TRUE(tool.running());
    EXPECT_EQ(0, tool.stop(SIGTERM));
}

TEST_F(ubus_tool_event_test, only_what_was_asked_for_is_printed)
{
    child_process tool = listener({"listen", "foo.*", "bar"}, "bar");

    for (const char *event : {"foo", "foo.1", "baz", "barr", "bar"})
        ASSERT_EQ(0, run({"send", event}).status);

    EXPECT_TRUE(prints("{ \"bar\": {} }\n{ \"foo.1\": {} }\n{ \"bar\": {} }\n")) << printed();
    for (const char *event : {"\"foo\"", "\"baz\"", "\"barr\""})
        EXPECT_EQ(std::string::npos, printed().find(event)) << printed();
    EXPECT_EQ(0, tool.stop(SIGINT));
}

TEST_F(ubus_tool_event_test, objects_of_the_bus_can_be_followed)
{
    child_process tool = listener({"listen", "ubus.object.*", "probe"}, "probe");
    raw_client owner = connect();

    const uint32_t object = owner.add_object("t");

    const auto id = static_cast<int32_t>(object);
    EXPECT_TRUE(prints("{ \"ubus.object.add\": {\"id\":" + std::to_string(id) + ",\"path\":\"t\"} }\n"))
        << printed();
}

TEST_F(ubus_tool_event_test, listening_ends_after_its_time)
{
    const auto begin = steady_clock::now();

    const program_result result = run({"-t", "1", "listen"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("", result.errors);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(1000));
    EXPECT_LT(steady_clock::now() - begin, milliseconds(20000));
}

TEST_F(ubus_tool_event_test, refused_events_are_reported)
{
    const struct {
        std::vector<std::string> args;
        int status;
        std::string errors;
    } cases[] = {
        {{"send", "ubus.x"}, 6, "Command failed: Permission denied\n"},
        {{"send", "x", "{bad"}, 12, "Command failed: Parsing message data failed\n"},
        {{"send", "x", "[]"}, 12, "Command failed: Parsing message data failed\n"},
        {{"listen", ""}, 255, "Error while registering for event '': Permission denied\n"},
        {{"listen", "foo", ""}, 255, "Error while registering for event '': Permission denied\n"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        const program_result result = run(row.args);
        EXPECT_EQ(row.status, result.status);
        EXPECT_EQ("", result.output);
        EXPECT_EQ(row.errors, result.errors);
        EXPECT_EQ(row.errors, run_on_terminal(row.args).errors);
        std::vector<std::string> simple = row.args;
        simple.insert(simple.begin(), "-S");
        EXPECT_EQ(row.status, run(simple).status);
        EXPECT_EQ("", run(simple).errors);
    }
}

TEST_F(ubus_tool_event_test, sending_says_nothing)
{
    const program_result result = run({"send", "x", R"({"a":{"b":[1,2]}})"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("", result.errors);
}

TEST_F(ubus_tool_event_test, waiting_for_what_is_there_ends_at_once)
{
    raw_client owner = connect();
    owner.add_object("t");
    owner.add_object("u");
    const auto begin = steady_clock::now();

    const program_result result = run({"wait_for", "t", "u"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.output + result.errors);
    EXPECT_LT(steady_clock::now() - begin, milliseconds(20000));
    EXPECT_EQ(0, run({"-t", "0", "wait_for", "t"}).status);
}

TEST_F(ubus_tool_event_test, waiting_for_what_never_comes_times_out)
{
    raw_client owner = connect();
    owner.add_object("t");
    const auto begin = steady_clock::now();

    const program_result result = run({"-t", "1", "wait_for", "t", "nosuch"});

    EXPECT_EQ(7, result.status);
    EXPECT_EQ("Command failed: Request timed out\n", result.errors);
    EXPECT_GE(steady_clock::now() - begin, milliseconds(1000));
    EXPECT_LT(steady_clock::now() - begin, milliseconds(20000));
    EXPECT_EQ(7, run({"-t", "0", "wait_for", "nosuch"}).status);
    EXPECT_EQ("", run({"-S", "-t", "0", "wait_for", "nosuch"}).errors);
}

TEST_F(ubus_tool_event_test, a_name_waited_for_is_no_pattern)
{
    raw_client owner = connect();
    owner.add_object("t");
    owner.add_object("t2");

    EXPECT_EQ(7, run({"-t", "1", "wait_for", "t*"}).status);
    EXPECT_EQ(7, run({"-t", "0", "wait_for", "*"}).status);
    EXPECT_EQ(7, run({"-t", "0", "wait_for", ""}).status);
    owner.add_object("t*");
    EXPECT_EQ(0, run({"-t", "0", "wait_for", "t*", "t2"}).status);
}

TEST_F(ubus_tool_event_test, a_time_below_zero_is_over_at_once)
{
    raw_client owner = connect();
    owner.add_object("t");

    EXPECT_EQ(0, run({"-t", "-1", "wait_for", "t"}).status);
    EXPECT_EQ(7, run({"-t", "-1", "wait_for", "nosuch"}).status);
    EXPECT_EQ(0, run({"-t", "-1", "listen"}).status);
}

TEST_F(ubus_tool_event_test, waiting_is_not_ended_by_other_objects)
{
    raw_client owner = connect();
    child_process tool(command({"-S", "-t", "1", "wait_for", "one", "two"}));

    // They come at every stage of the tool's start, and while it waits.
    for (int i = 0; tool.running(); i++) {
        owner.add_object("one" + std::to_string(i));
        const uint32_t first = owner.add_object("on");
        owner.call(message(msg_remove_object, 1, 0, number_field(field_object, first)));
        if (i == 0)
            owner.add_object("two");
    }

    EXPECT_EQ(7, tool.wait());
}

TEST_F(ubus_tool_event_test, waiting_ends_when_the_last_object_comes)
{
    // The objects come earlier and later in the tool's start from round to round: before it looks, in
    // between, and while it waits.
    for (int round = 0; round < 30; round++) {
        SCOPED_TRACE(round);
        raw_client owner = connect();
        child_process tool(command({"wait_for", "one", "two"}));
        for (int i = 0; i < round * 20; i++)
            owner.pending();
        EXPECT_TRUE(tool.running());

        owner.add_object("one");
        owner.add_object("other");
        owner.add_object("two");

        EXPECT_EQ(0, tool.wait());
    }
}

} // namespace
