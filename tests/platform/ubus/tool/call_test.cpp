// ubus call: replies, exit codes and error texts.
#include "platform/ubus/tool/fixture.h"

#include <chrono>
#include <csignal>

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char ok_pretty[] = "{\n\t\"status\": 0,\n\t\"info\": \"x y\"\n}\n";
constexpr char ok_compact[] = "{\"status\":0,\"info\":\"x y\"}\n";

class ubus_tool_call_test : public ubus_tool_test {
protected:
    ubus_tool_call_test() { start_service(); }
};

// Texts that contain the usage are compared by their beginning only: its wording is free.
struct expectation {
    int status;
    std::string output;
    std::string errors;
    bool usage_follows = false;
};

void expect_result(const expectation &expected, const program_result &result)
{
    EXPECT_EQ(expected.status, result.status);
    EXPECT_EQ(expected.output, result.output);
    if (!expected.usage_follows) {
        EXPECT_EQ(expected.errors, result.errors);
        return;
    }
    EXPECT_TRUE(result.errors.starts_with(expected.errors + "Usage: " UBUS_PROGRAM
                                                            " [<options>] <command> [arguments...]\n"))
        << result.errors;
}

TEST_F(ubus_tool_call_test, replies_are_printed_pretty_or_compact)
{
    const struct {
        std::vector<std::string> args;
        std::string output;
    } cases[] = {
        {{"call", "t", "ok"}, ok_pretty},
        {{"-S", "call", "t", "ok"}, ok_compact},
        {{"call", "t", "noreply"}, ""},
        {{"-S", "call", "t", "noreply"}, ""},
        {{"call", "t", "twice"}, std::string(ok_pretty) + ok_pretty},
        {{"-S", "call", "t", "twice"}, std::string(ok_compact) + ok_compact},
        {{"call", "t", "echo"}, "{\n\t\n}\n"},
        {{"-S", "call", "t", "echo"}, "{}\n"},
        {{"call", "t", "echo", "{}"}, "{\n\t\n}\n"},
        {{"call", "t", "echo", R"({"a":1,"f":[1,{"g":2}],"i":{}})"},
         "{\n\t\"a\": 1,\n\t\"f\": [\n\t\t1,\n\t\t{\n\t\t\t\"g\": 2\n\t\t}\n\t],\n\t\"i\": "
         "{\n\t\t\n\t}\n}\n"},
        {{"-S", "call", "t", "echo", R"({"a":true,"b":"\u00e9\n","c":2147483648,"d":1.5,"e":null} trailing)"},
         "{\"a\":true,\"b\":\"\xc3\xa9\\n\",\"c\":2147483648,\"d\":1.500000,\"e\":null}\n"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        expect_result({0, row.output, ""}, run(row.args));
    }
}

TEST_F(ubus_tool_call_test, options_may_follow_the_command)
{
    expect_result({0, ok_compact, ""}, run({"call", "t", "-S", "ok"}));
    expect_result({0, ok_compact, ""}, run({"call", "t", "ok", "-S", "-t", "5"}));
    expect_result({0, ok_compact, ""}, run({"-v", "-m", "call", "-M", "r", "-S", "call", "t", "ok"}));
}

TEST_F(ubus_tool_call_test, status_of_the_method_off_a_terminal_is_negated)
{
    const struct {
        int code;
        int status;
        std::string text;
    } cases[] = {
        {1, 255, "Invalid command"},
        {3, 253, "Method not found"},
        {4, 252, "Not found"},
        {5, 251, "No response"},
        {6, 250, "Permission denied"},
        {7, 249, "Request timed out"},
        {8, 248, "Operation not supported"},
        {9, 247, "Unknown error"},
        {10, 246, "Connection failed"},
        {11, 245, "Out of memory"},
        {12, 244, "Parsing message data failed"},
        {13, 243, "System error"},
        {14, 242, "Unknown error: 14"},
        {100, 156, "Unknown error: 100"},
    };
    for (const auto &row : cases) {
        const std::string code = std::to_string(row.code);
        SCOPED_TRACE(code);
        const std::string argument = "{\"code\":" + code + "}";

        expect_result(
            {row.status, ok_pretty, "Command failed: ubus call t code " + argument + " (" + row.text + ")\n"},
            run({"call", "t", "code", argument}));
        expect_result({row.code, ok_pretty, "Command failed: " + row.text + "\n"},
                      run_on_terminal({"call", "t", "code", argument}));
        expect_result({row.code, ok_compact, ""}, run({"-S", "call", "t", "code", argument}));
        expect_result({row.code, ok_compact, ""}, run_on_terminal({"-S", "call", "t", "code", argument}));
    }
}

TEST_F(ubus_tool_call_test, invalid_argument_off_a_terminal_shows_the_usage)
{
    const std::string line = "Command failed: ubus call t code {\"code\":2} (Invalid argument)\n";
    const std::vector<std::string> args{"call", "t", "code", "{\"code\":2}"};

    expect_result({254, ok_pretty, line, /*usage_follows=*/true}, run(args));
    expect_result({2, ok_pretty, "Command failed: Invalid argument\n"}, run_on_terminal(args));
    expect_result({2, ok_compact, ""}, run({"-S", "call", "t", "code", "{\"code\":2}"}));
}

TEST_F(ubus_tool_call_test, negative_status_is_reported_twice)
{
    expect_result({1, ok_pretty,
                   "Command failed: ubus call t code {\"code\":-1} (Unknown error: -1)\n"
                   "Command failed: Invalid command\n"},
                  run({"call", "t", "code", "{\"code\":-1}"}));
}

TEST_F(ubus_tool_call_test, method_that_is_missing_is_told_from_an_object_that_is)
{
    expect_result({253, "", "Command failed: ubus call t nosuch (Method not found)\n"},
                  run({"call", "t", "nosuch"}));
    expect_result({3, "", "Command failed: Method not found\n"}, run_on_terminal({"call", "t", "nosuch"}));
    expect_result({3, "", ""}, run({"-S", "call", "t", "nosuch"}));
    expect_result({4, "", "Command failed: Not found\n"}, run({"call", "nosuch", "ok"}));
    expect_result({4, "", "Command failed: Not found\n"}, run_on_terminal({"call", "nosuch", "ok"}));
    expect_result({4, "", ""}, run({"-S", "call", "nosuch", "ok"}));
    expect_result({2, "", "Command failed: Invalid argument\n"}, run({"call", "", "ok"}));
}

TEST_F(ubus_tool_call_test, bad_json_is_refused_before_the_object_is_looked_up)
{
    for (const char *json : {"{bad", "", " ", "[1]", "\"x\"", "1", "null", "{\"a\":1"}) {
        SCOPED_TRACE(json);
        for (const char *object : {"t", "nosuch"}) {
            expect_result({244, "",
                           "Command failed: ubus call " + std::string(object) + " ok " + json +
                               " (Parsing message data failed)\n"},
                          run({"call", object, "ok", json}));
        }
        expect_result({12, "", "Command failed: Parsing message data failed\n"},
                      run_on_terminal({"call", "t", "ok", json}));
        expect_result({12, "", ""}, run({"-S", "call", "t", "ok", json}));
    }
}

TEST_F(ubus_tool_call_test, wrong_number_of_arguments_shows_the_usage)
{
    for (const auto &args :
         {std::vector<std::string>{"call"}, {"call", "t"}, {"call", "t", "ok", "{}", "x"}}) {
        SCOPED_TRACE(testing::PrintToString(args));
        expect_result({254, "", "", /*usage_follows=*/true}, run(args));
        expect_result({254, "", "", /*usage_follows=*/true}, run_on_terminal(args));
    }
}

TEST_F(ubus_tool_call_test, slow_method_is_given_up_after_the_timeout)
{
    const auto begin = steady_clock::now();
    expect_result({249, "", "Command failed: ubus call t slow (Request timed out)\n"},
                  run({"-t", "1", "call", "t", "slow"}));
    EXPECT_GE(steady_clock::now() - begin, milliseconds(1000)); // the method answers after two

    expect_result({7, "", ""}, run({"-S", "-t", "1", "call", "t", "slow"}));
    expect_result({0, ok_compact, ""}, run({"-S", "call", "t", "ok"}));
}

TEST_F(ubus_tool_call_test, no_timeout_waits_for_the_slow_method)
{
    const auto begin = steady_clock::now();

    expect_result({0, ok_compact, ""}, run({"-t", "0", "-S", "call", "t", "slow"}));

    EXPECT_GE(steady_clock::now() - begin, milliseconds(2000));
}

TEST_F(ubus_tool_call_test, a_time_below_zero_is_over_at_once)
{
    for (const char *seconds : {"-1", "-4294967296", "-99999999999999999999"}) {
        SCOPED_TRACE(seconds);
        expect_result({249, "", "Command failed: ubus call t slow (Request timed out)\n"},
                      run({"-t", seconds, "call", "t", "slow"}));
        expect_result({7, "", ""}, run({"-t", seconds, "-S", "call", "t", "slow"}));
    }
    expect_result({7, "", ""}, run({"-t", "-1", "-S", "call", "t", "ok"}));
    expect_result({0, "t\nt.odd\n", ""}, run({"-t", "-1", "list"}));
}

TEST_F(ubus_tool_call_test, time_beyond_what_can_be_counted_does_not_wrap_round)
{
    // In 32 bits these are 704 milliseconds and one second.
    for (const char *seconds : {"4294968", "8589934593"}) {
        SCOPED_TRACE(seconds);
        expect_result({0, ok_compact, ""}, run({"-t", seconds, "-S", "call", "t", "slow"}));
    }
}

TEST_F(ubus_tool_call_test, without_an_option_the_tool_gives_up_after_thirty_seconds)
{
    raw_client owner = connect();
    ASSERT_NE(0u, owner.add_object("mute"));
    const auto begin = steady_clock::now();
    child_process call(command({"-S", "call", "mute", "get"}));
    child_process wait(command({"-S", "wait_for", "nosuch"}));

    for (child_process *const tool : {&call, &wait}) {
        EXPECT_EQ(7, tool->wait(milliseconds(40000)));
        EXPECT_GE(steady_clock::now() - begin, milliseconds(30000));
    }
}

TEST_F(ubus_tool_call_test, error_line_comes_before_the_data_on_a_shared_pipe)
{
    const program_result result =
        run_program({"/bin/sh", "-c", "\"$0\" -s \"$1\" call t code '{\"code\":9}' 2>&1 | cat", UBUS_PROGRAM,
                     socket_path});

    EXPECT_EQ(std::string("Command failed: ubus call t code {\"code\":9} (Unknown error)\n") + ok_pretty,
              result.output);
}

TEST_F(ubus_tool_call_test, call_that_loses_the_bus_fails_as_a_connection)
{
    raw_client owner = connect();
    ASSERT_NE(0u, owner.add_object("mute"));
    const std::string errors = directory + "/errors";
    child_process plain(command({"call", "mute", "get"}), {}, {}, errors);
    child_process simple(command({"-S", "call", "mute", "get"}));
    for (int calls = 0; calls < 2; calls++)
        ASSERT_EQ(msg_invoke, owner.receive_bytes().at(1));

    daemon.stop(SIGKILL);

    EXPECT_EQ(246, plain.wait());
    EXPECT_EQ(10, simple.wait());
    EXPECT_EQ("Command failed: ubus call mute get (Connection failed)\n", file_content(errors));
}

TEST_F(ubus_tool_call_test, idle_service_outlives_the_bus)
{
    daemon.stop(SIGKILL);

    // By the second answer the loop has dealt with the lost connection, which it learnt of before.
    poke_service();
    EXPECT_TRUE(service_says("alive\n"));
    poke_service();
    EXPECT_TRUE(service_says("alive\nalive\n"));
    EXPECT_TRUE(service.running());
    EXPECT_EQ(SIGTERM, service.stop(SIGTERM));
}

TEST_F(ubus_tool_call_test, service_that_replies_to_a_lost_bus_ends_its_loop)
{
    child_process tool(command({"-S", "call", "t.odd", "block"}));
    ASSERT_TRUE(service_says("blocked\n"));

    daemon.stop(SIGKILL);
    EXPECT_EQ(10, tool.wait());
    poke_service();

    EXPECT_EQ(0, service.wait());
}

TEST_F(ubus_tool_call_test, too_large_a_reply_hurts_only_its_sender)
{
    const program_result result = run({"-t", "2", "call", "t.odd", "big"});

    EXPECT_EQ(249, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_TRUE(connect().pending().empty());
    EXPECT_EQ(4, run({"-S", "call", "t", "ok"}).status);
}

} // namespace
