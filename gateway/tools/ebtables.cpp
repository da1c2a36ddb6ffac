// The stand-in for ebtables: the tables that the kernel lacks in files, the real program for the rest.
#include "tools/ebtables.h"

#include "root/find_program.h"
#include "tools/places.h"
#include "tools/programs.h"
#include "tools/rule_table.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// What ebtables ends with when a rule to delete is not there, and when it does not understand.
constexpr int status_no_such_rule = 1;
constexpr int status_bad_usage = 2;

const std::vector<std::string> broute_chains = {"BROUTING"};
const std::vector<std::string> filter_chains = {"INPUT", "FORWARD", "OUTPUT"};

struct request {
    std::string table = "filter";
    std::string command; // "-A"
    std::string chain;
    command_words rule;
};

bool is_command(const std::string &word)
{
    for (const char *command : {"-A", "-I", "-D", "-L", "-F"}) {
        if (word == command)
            return true;
    }
    return false;
}

request parse(const command_words &arguments)
{
    request parsed;
    for (size_t i = 0; i < arguments.size(); i++) {
        const std::string &word = arguments[i];
        const bool has_next = i + 1 < arguments.size();
        if (word == "-t" && has_next) {
            parsed.table = arguments[++i];
        } else if (parsed.command.empty() && is_command(word)) {
            parsed.command = word;
            if (has_next && arguments[i + 1].compare(0, 1, "-") != 0)
                parsed.chain = arguments[++i];
        } else if (word != "--concurrent") {
            parsed.rule.push_back(word);
        }
    }
    return parsed;
}

int refuse(const std::string &reason)
{
    (void)fprintf(stderr, "ebtables: %s\n", reason.c_str());
    return status_bad_usage;
}

int change_rule(rule_table &table, const request &asked)
{
    if (asked.chain.empty() || asked.rule.empty())
        return refuse("a chain and a rule are needed");
    rule_change what = rule_change::remove;
    if (asked.command != "-D")
        what = asked.command == "-I" ? rule_change::insert : rule_change::append;
    if (table.change(what, asked.chain, asked.rule))
        return 0;
    (void)fputs("ebtables: Bad rule (does a matching rule exist in that chain?)\n", stderr);
    return status_no_such_rule;
}

int run_in_file(const request &asked, const std::vector<std::string> &chains)
{
    rule_table table(asked.table, chains);
    if (!asked.chain.empty() && !table.has_chain(asked.chain))
        return refuse("Chain '" + asked.chain + "' does not exist");
    if (asked.command.empty())
        return refuse("one of -A, -I, -D, -L, -F is needed");
    if (asked.command == "-L") {
        (void)fputs(table.listing(asked.chain).c_str(), stdout);
        return 0;
    }
    if (asked.command == "-F") {
        table.flush(asked.chain);
        return 0;
    }
    return change_rule(table, asked);
}

void tell_log(const std::string &text)
{
    std::ofstream(log_path, std::ios::app) << "notice ebtables " << text << std::endl;
}

// Whether the kernel has the bridge's filter table. Asked once for a gateway, the answer is kept in a file.
bool kernel_has_filter()
{
    const fs::path answer = fs::path(state_directory) / "kernel-filter";
    if (!fs::exists(answer)) {
        fs::create_directories(state_directory);
        const std::string program = find_program("ebtables");
        const bool present =
            !program.empty() && run_silently({program, "-t", "filter", "-L", "FORWARD"}) == 0;
        if (!present)
            tell_log(
                "The kernel has no bridge filter table: its rules are kept in a file and filter nothing");
        const fs::path written = answer.string() + "." + std::to_string(getpid());
        std::ofstream(written) << (present ? "yes" : "no") << std::endl;
        fs::rename(written, answer);
    }
    std::string text;
    std::ifstream(answer) >> text;
    return text == "yes";
}

} // namespace

int run_ebtables(const command_words &arguments)
{
    const request asked = parse(arguments);
    if (asked.table == "broute")
        return run_in_file(asked, broute_chains);
    if (asked.table == "filter" && !kernel_has_filter())
        return run_in_file(asked, filter_chains);
    become_program("ebtables", arguments);
}
