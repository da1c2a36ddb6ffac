// ubus list, and what the tool says when it is used wrongly or without a bus.
#include "platform/ubus/tool/fixture.h"

#include <csignal>

namespace {

class ubus_tool_list_test : public ubus_tool_test {};

// The text with every object id, eight hexadecimal digits behind an @, made equal.
std::string with_ids_hidden(std::string text)
{
    static constexpr size_t id_size = 8;
    for (size_t at = text.find('@'); at != std::string::npos; at = text.find('@', at + 1)) {
        const size_t end = text.find_first_not_of("0123456789abcdef", at + 1);
        if (end == at + 1 + id_size)
            text.replace(at + 1, id_size, "id");
    }
    return text;
}

void expect_usage(const program_result &result, int status)
{
    EXPECT_EQ(status, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_NE(std::string::npos,
              result.errors.find("Usage: " UBUS_PROGRAM " [<options>] <command> [arguments...]\n"))
        << result.errors;
}

TEST_F(ubus_tool_list_test, wrong_use_shows_the_usage)
{
    using arguments = std::vector<std::string>;
    for (const arguments &args : {arguments{}, {"-h"}, {"-x", "list"}, {"list", "-h"}, {"--help"}, {"-t"}}) {
        SCOPED_TRACE(testing::PrintToString(args));
        expect_usage(run(args), 1);
        expect_usage(run_on_terminal(args), 1);
    }
    for (const arguments &args : {arguments{"nosuch"},
                                  {"lis"},
                                  {"list", "a", "b"},
                                  {"send"},
                                  {"send", "a", "{}", "b"},
                                  {"wait_for"},
                                  {"-S", "nosuch"}}) {
        SCOPED_TRACE(testing::PrintToString(args));
        expect_usage(run(args), 254);
        expect_usage(run_on_terminal(args), 254);
    }
}

TEST_F(ubus_tool_list_test, missing_bus_is_told_except_to_programs)
{
    daemon.stop(SIGTERM);
    for (const char *name : {"list", "call", "listen", "send", "wait_for"}) {
        SCOPED_TRACE(name);
        const program_result told = run({name, "t", "ok"});
        EXPECT_EQ(255, told.status);
        EXPECT_EQ("", told.output);
        EXPECT_EQ("Failed to connect to ubus\n", told.errors);
        const program_result simple = run({"-S", name, "t", "ok"});
        EXPECT_EQ(255, simple.status);
        EXPECT_EQ("", simple.output);
        EXPECT_EQ("", simple.errors);
    }
}

TEST_F(ubus_tool_list_test, empty_bus_lists_nothing)
{
    const program_result all = run({"list"});
    EXPECT_EQ(0, all.status);
    EXPECT_EQ("", all.output);
    EXPECT_EQ("", all.errors);
    EXPECT_EQ(4, run({"list", "*"}).status);
}

TEST_F(ubus_tool_list_test, names_are_listed_in_order)
{
    raw_client owner = connect();
    for (const char *path : {"b", "a", "network.interface.wan_1", "network"})
        ASSERT_NE(0u, owner.add_object(path));

    EXPECT_EQ("a\nb\nnetwork\nnetwork.interface.wan_1\n", run({"list"}).output);
    EXPECT_EQ("network\nnetwork.interface.wan_1\n", run({"list", "net*"}).output);
    EXPECT_EQ("b\n", run({"list", "b"}).output);
    EXPECT_EQ("b\n", run({"-S", "list", "b"}).output);
    EXPECT_EQ("b\n", run({"-S", "-v", "list", "b"}).output);
}

TEST_F(ubus_tool_list_test, what_is_not_there_is_reported)
{
    const struct {
        const char *path;
        int status;
        const char *errors;
    } cases[] = {
        {"nosuch", 4, "Command failed: Not found\n"},
        {"nosuch*", 4, "Command failed: Not found\n"},
        {"", 2, "Command failed: Invalid argument\n"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.path);
        const program_result result = run({"list", row.path});
        EXPECT_EQ(row.status, result.status);
        EXPECT_EQ("", result.output);
        EXPECT_EQ(row.errors, result.errors);
        EXPECT_EQ(row.errors, run_on_terminal({"list", row.path}).errors);
        const program_result simple = run({"-S", "list", row.path});
        EXPECT_EQ(row.status, simple.status);
        EXPECT_EQ("", simple.errors);
    }
}

TEST_F(ubus_tool_list_test, object_without_a_type_lists_as_nothing)
{
    raw_client owner = connect();
    ASSERT_EQ(0, owner.call(message(msg_add_object, 1, 0, text_field(field_path, "bare"))));

    const program_result result = run({"list", "bare"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.output);
}

TEST_F(ubus_tool_list_test, methods_are_listed_with_the_types_of_their_arguments)
{
    start_service();

    const program_result result = run({"-v", "list"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ(
        "'t' @id\n"
        "\t\"ok\":{}\n\t\"noreply\":{}\n\t\"twice\":{}\n"
        "\t\"code\":{\"code\":\"Integer\"}\n\t\"echo\":{}\n\t\"slow\":{}\n"
        "'t.odd' @id\n"
        "\t\"types\":{\"flag\":\"Boolean\",\"number\":\"Integer\",\"text\":\"String\",\"list\":\"Array\","
        "\"table\":\"Table\",\"short\":\"(unknown)\",\"double\":\"(unknown)\"}\n"
        "\t\"block\":{}\n\t\"big\":{}\n",
        with_ids_hidden(result.output));
    EXPECT_EQ(result.output, run({"list", "-v"}).output);
}

} // namespace
