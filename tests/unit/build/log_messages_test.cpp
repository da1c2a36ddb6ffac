// Holds the tables of docs/integration.md to the sources: every message that can reach the system log has a
// row there, and every row is a message.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;

// "error Failed to read file: …": the priority, and the text with "…" for what differs from time to time.
using message_set = std::set<std::string>;

std::string content(const fs::path &file)
{
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

// What is replaced in a text, one after the other.
struct rewrite {
    const char *pattern, *by;
};
using rewrites = std::initializer_list<rewrite>;

std::string rewritten(std::string text, rewrites rules)
{
    for (const rewrite &rule : rules)
        text = std::regex_replace(text, std::regex(rule.pattern), rule.by);
    return text;
}

// What a pattern finds: its groups are the priority and the text.
message_set find_messages(const std::string &source, const char *pattern, rewrites rules)
{
    const std::regex expression(pattern);
    message_set messages;
    for (std::sregex_iterator at(source.begin(), source.end(), expression), end; at != end; ++at)
        messages.insert(at->str(1) + ' ' + rewritten(at->str(2), rules));
    return messages;
}

// What the daemon logs. A text that is laid down for a failure is called that.
message_set messages_of_daemon(const std::string &source)
{
    message_set messages = find_messages(
        rewritten(source, {{R"(text_ref\(failure\)\.format\(|\bfailure = (?="))", "log_error("}}),
        R"x(log_(error|warning|info)\(\s*((?:(?:"(?:[^"\\]|\\.)*"|[A-Z_]+)\s*)+))x",
        {{R"("\s*")", ""},
         {R"("\s*[A-Z_]+\s*")", "…"},
         {R"(^"|"\s*$)", ""},
         {R"(\\n$)", ""},
         {"%[.0-9]*z?[a-z]", "…"}});
    messages.erase("error …"); // that failure, when it comes
    return messages;
}

// Calls whose text is no literal, so that nobody can look for it.
size_t unknown_messages(const std::string &source)
{
    const std::regex expression(R"(log_(error|warning|info)\((?!\s*"|const char \*pattern))");
    return static_cast<size_t>(std::distance(std::sregex_iterator(source.begin(), source.end(), expression),
                                             std::sregex_iterator()));
}

message_set messages_of_scripts(const std::string &source)
{
    return find_messages(source, "report (err|warning|notice) \"([^\"]*)\"", {{R"(\$\w+)", "…"}});
}

std::string all_of(const std::string &folder)
{
    std::string text;
    for (const fs::directory_entry &entry :
         fs::recursive_directory_iterator(fs::path(KORVEL_SOURCE_DIR) / folder))
        if (entry.is_regular_file())
            text += content(entry.path());
    return text;
}

// The rows "| `text` | priority | …" below a heading.
message_set documented(const std::string &heading)
{
    std::istringstream lines(content(KORVEL_SOURCE_DIR "/docs/integration.md"));
    std::string line;
    while (std::getline(lines, line) && line != heading)
        ;
    const std::regex row("\\| `([^`]*)` \\| ([a-z]+) \\| [^|]+ \\| [^|]+ \\|");
    message_set messages;
    while (std::getline(lines, line) && !line.starts_with("#")) {
        std::smatch cells;
        if (std::regex_match(line, cells, row))
            messages.insert(cells.str(2) + ' ' + cells.str(1));
    }
    return messages;
}

// Those of the first that are not among the others, one a line.
std::string beyond(const message_set &messages, const message_set &others)
{
    std::string lines;
    for (const std::string &message : messages)
        if (!others.contains(message))
            lines += message + '\n';
    return lines;
}

void expect_explained(const message_set &messages, const message_set &rows)
{
    EXPECT_EQ("", beyond(messages, rows)) << "have no row in docs/integration.md";
    EXPECT_EQ("", beyond(rows, messages)) << "have a row in docs/integration.md and are not logged";
}

TEST(log_messages, each_of_the_daemons_is_explained_and_nothing_else)
{
    const message_set messages = messages_of_daemon(all_of("src"));

    EXPECT_LT(50U, messages.size());
    expect_explained(messages, documented("### The daemon's"));
}

TEST(log_messages, each_of_the_scripts_is_explained_and_nothing_else)
{
    expect_explained(messages_of_scripts(all_of("openwrt/root")), documented("### The scripts'"));
}

TEST(log_messages, each_is_a_literal)
{
    EXPECT_EQ(0U, unknown_messages(all_of("src")));
    EXPECT_EQ(1U, unknown_messages("log_error(text);"));
}

TEST(log_messages, a_message_is_found_however_it_is_written)
{
    EXPECT_EQ((message_set{"error a … b … c", "info d", "error e", "error f", "info g …/…"}),
              messages_of_daemon("log_error(\"a %.17s b \"\n    \"%zu c\", x);log_info(\"d\\n\");"
                                 "text_ref(failure).format(\"e\"); log_error(\"%s\", failure); x->failure = "
                                 "\"f\"; log_info(\"g \" G_DIR \"/%m\");"));
    EXPECT_EQ((message_set{"err … is …"}), messages_of_scripts("report err \"$1 is $name\""));
}

} // namespace
