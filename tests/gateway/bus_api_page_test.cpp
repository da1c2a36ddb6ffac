// Holds docs/bus-api.md to the daemon: the examples in its console blocks are run, in their order, on a fresh
// gateway.
#include "support/golden_tables.h"
#include "support/gateway.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <libubox/blobmsg.h>
#include <sstream>

namespace {

constexpr char page_path[] = KORVEL_SOURCE_DIR "/docs/bus-api.md";
constexpr std::string_view any_text = "…";

// A command line of a page, which goes on while a quote is open, and what it prints.
struct example {
    std::string command;
    std::string output;
};

struct page {
    std::vector<example> examples;
    text_lines stray_calls; // lines of other blocks that nobody would run
};

bool has_open_quote(const std::string &command)
{
    return std::ranges::count(command, '\'') % 2 != 0;
}

void take_console_line(const std::string &line, std::vector<example> &examples)
{
    if (!examples.empty() && has_open_quote(examples.back().command))
        examples.back().command += '\n' + line;
    else if (line.starts_with("$ "))
        examples.push_back({line.substr(2), ""});
    else if (!examples.empty())
        examples.back().output += line + '\n';
}

page read_page(const std::string &text)
{
    page result;
    std::string block; // what the block at hand began with; empty outside of one
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("```"))
            block = block.empty() ? line : "";
        else if (block == "```console")
            take_console_line(line, result.examples);
        else if (!block.empty() && line.find("ubus ") != std::string::npos)
            result.stray_calls.push_back(line);
    }
    return result;
}

// Whether the text is what was written, each "…" in that standing for anything.
bool is_as_written(std::string_view text, std::string_view written)
{
    for (bool anchored = true;; anchored = false) {
        const size_t gap = written.find(any_text);
        const std::string_view piece = written.substr(0, gap);
        if (gap == std::string_view::npos)
            return anchored ? text == piece : text.ends_with(piece);
        const size_t at =
            anchored ? (text.starts_with(piece) ? 0 : std::string_view::npos) : text.find(piece);
        if (at == std::string_view::npos)
            return false;
        text.remove_prefix(at + piece.size());
        written.remove_prefix(gap + any_text.size());
    }
}

bool calls(const example &shown, const std::string &method)
{
    return shown.command.find("call korvel " + method) != std::string::npos;
}

bool changes_something(const example &shown)
{
    return std::ranges::any_of(std::initializer_list<const char *>{"add", "del", "modify"},
                               [&](const char *method) { return calls(shown, method); });
}

std::string printed_by(const example &shown)
{
    return run_program({"sh", "-c", shown.command + "\n"}).output;
}

using bus_api_page_test = gateway_test;

TEST_F(bus_api_page_test, what_is_shown_is_what_happens)
{
    const page shown = read_page(gateway.file(page_path));
    ASSERT_LT(20U, shown.examples.size());
    gateway.start_netd();
    gateway.start_korvel();

    for (const example &each : shown.examples) {
        SCOPED_TRACE(each.command);
        // What is asked may still be on its way: an interface, a change that waits.
        std::string printed;
        const auto matches = [&] { return is_as_written(printed = printed_by(each), each.output); };
        if (changes_something(each) ? !matches() : !wait_until(matches))
            FAIL() << "prints\n" << printed << "and the page says\n" << each.output;
    }
}

// The events of a text, one a line as `ubus listen` prints them, but for deletions.
text_lines events_of(const std::string &text)
{
    text_lines events;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("{ \"korvel.wan\": {\"action\"") &&
            line.find("\"deleted\"") == std::string::npos)
            events.push_back(line);
    return events;
}

TEST_F(bus_api_page_test, the_events_that_are_shown_are_heard)
{
    const std::string text = gateway.file(page_path);
    const std::string chapter = text.substr(text.find("\n# The bus object `korvel.state`\n"));
    const text_lines shown = events_of(chapter);
    ASSERT_LT(5U, shown.size());
    gateway.start_netd();
    gateway.start_korvel();
    const child_process listener({"ubus", "listen", "korvel.wan"}, {}, "/tmp/heard");
    ASSERT_TRUE(wait_until([this] {
        (void)run_program({"ubus", "send", "korvel.wan"});
        return !gateway.file("/tmp/heard").empty();
    }));

    for (const example &each : read_page(chapter).examples)
        (void)printed_by(each);

    (void)wait_until([&] { return events_of(gateway.file("/tmp/heard")).size() >= shown.size(); });
    EXPECT_EQ(shown, events_of(gateway.file("/tmp/heard")));
}

TEST_F(bus_api_page_test, every_method_is_shown_and_every_call_is_run)
{
    const page shown = read_page(gateway.file(page_path));

    for (const char *method : {"add '", "addDev", "all", "del '", "delAll", "get '", "modify '"}) {
        SCOPED_TRACE(method);
        EXPECT_TRUE(
            std::ranges::any_of(shown.examples, [&](const example &each) { return calls(each, method); }));
    }
    for (const char *method : {"cancel '", "last", "pending", "version"}) {
        SCOPED_TRACE(method);
        EXPECT_TRUE(std::ranges::any_of(shown.examples, [&](const example &each) {
            return each.command.find(std::string("call korvel.state ") + method) != std::string::npos;
        }));
    }
    EXPECT_EQ(text_lines{}, shown.stray_calls);
}

// How the arguments' table has a type and what is accepted of it.
std::string type_and_range(const golden_argument &argument)
{
    const std::string high = std::to_string(argument.high);
    if (argument.type == BLOBMSG_TYPE_STRING)
        return "| text | up to " + high + " |";
    if (argument.type == BLOBMSG_TYPE_INT8)
        return "| boolean | |";
    const char *const width = argument.high > UINT8_MAX ? "16" : "8";
    return std::string("| number, ") + width + " bits | " + std::to_string(argument.low) + ".." + high + " |";
}

// The row whose first cell names the argument; empty when there is none.
std::string row_of(const std::string &name, const std::string &text)
{
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("| `") &&
            line.substr(0, line.find(" | ")).find("`" + name + "`") != std::string::npos)
            return line;
    return "";
}

TEST_F(bus_api_page_test, every_argument_is_described_as_it_is_judged)
{
    const std::string text = gateway.file(page_path);
    for (const golden_argument &argument : golden_arguments()) {
        const std::string row = row_of(argument.name, text.substr(text.find("| argument | type |")));
        SCOPED_TRACE(argument.name + ": " + row);
        EXPECT_NE(std::string::npos, row.find("`" + argument.display + "`"));
        EXPECT_NE(std::string::npos, row.find(type_and_range(argument)));
    }
}

TEST_F(bus_api_page_test, a_page_that_is_wrong_is_noticed)
{
    EXPECT_TRUE(is_as_written("a1b2c", "a…b…c"));
    EXPECT_TRUE(is_as_written("ab", "ab"));
    EXPECT_FALSE(is_as_written("abc", "ab"));
    EXPECT_FALSE(is_as_written("a1b2d", "a…b…c"));
    EXPECT_FALSE(is_as_written("xa1b", "a…b"));

    const page read = read_page("```console\n$ a 'b\nc' d\ne\nf\n$ g\n```\n```\n$ ubus list\n```\n");
    ASSERT_EQ(2U, read.examples.size());
    EXPECT_EQ("a 'b\nc' d", read.examples[0].command);
    EXPECT_EQ("e\nf\n", read.examples[0].output);
    EXPECT_EQ("", read.examples[1].output);
    EXPECT_EQ((text_lines{"$ ubus list"}), read.stray_calls);
}

} // namespace
