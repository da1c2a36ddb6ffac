// gateway-tool: the small programs of a virtual gateway in one. Under the name of a network program it stands
// in for that program; under its own name the first argument says what to do.
#include "tools/ebtables.h"
#include "tools/journal.h"
#include "tools/pick.h"
#include "tools/programs.h"
#include "tools/syslogd.h"

#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>

namespace {

constexpr int status_failed = 1;
constexpr int status_usage = 2;

int usage()
{
    (void)fputs("Usage: gateway-tool journal WORD...      note a command\n"
                "       gateway-tool pick PATH [KEY...]   pick values out of JSON on standard input\n"
                "       gateway-tool syslogd              catch /dev/log in /gateway/log\n"
                "As ebtables, ip or iptables: note the command, then do what it says.\n",
                stderr);
    return status_usage;
}

int run_pick(const command_words &words)
{
    const std::string json{std::istreambuf_iterator<char>(std::cin), {}};
    const std::string lines = pick_lines(json, words.front(), {words.begin() + 1, words.end()});
    (void)fputs(lines.c_str(), stdout);
    return lines.empty() ? status_failed : 0;
}

int run_tool(const command_words &words)
{
    if (words.empty())
        return usage();
    const std::string &task = words.front();
    const command_words rest(words.begin() + 1, words.end());
    if (task == "syslogd" && rest.empty()) {
        run_syslogd();
        return 0;
    }
    if (task == "pick" && !rest.empty())
        return run_pick(rest);
    if (task != "journal" || rest.empty())
        return usage();
    append_to_journal(rest);
    return 0;
}

// Looking at rules changes nothing, so it leaves no line.
bool is_noted(const command_words &arguments)
{
    for (const std::string &word : arguments) {
        if (word == "-L" || word == "-S")
            return false;
    }
    return true;
}

int run_as(const std::string &name, const command_words &arguments)
{
    if (name == "gateway-tool")
        return run_tool(arguments);
    if (is_noted(arguments)) {
        command_words noted = arguments;
        noted.insert(noted.begin(), name);
        append_to_journal(noted);
    }
    if (name == "ebtables")
        return run_ebtables(arguments);
    become_program(name, arguments);
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string path = argc > 0 ? argv[0] : "";
    const std::string name = path.substr(path.rfind('/') + 1);
    try {
        return run_as(name, command_words(argv + 1, argv + argc));
    } catch (const std::exception &failure) {
        (void)fprintf(stderr, "%s: %s\n", name.c_str(), failure.what());
        return status_failed;
    }
}
