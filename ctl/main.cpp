// korvelctl: the WANs of this gateway at a prompt.
#include "ctl/change.h"
#include "ctl/check.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "ctl/request.h"
#include "ctl/safe_point.h"
#include "ctl/show.h"
#include "ctl/status.h"
#include "ctl/try.h"
#include "ctl/watch.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <syslog.h>

namespace {

struct command {
    const char *usage; // begins with its name
    const char *help;  // a line of the help
    exit_status (*run)(std::span<char *const> words);
};

constexpr command commands[] = {
    {"status [--watch]", "all WANs in a table, and what is waiting", run_status},
    {"show ID [--secrets]", "everything about one WAN", run_show},
    {"add OPTION...", "a new WAN", run_add},
    {"modify ID OPTION...", "change what the options say and nothing else", run_modify},
    {"del ID | del --all", "delete a WAN, or every WAN", run_del},
    {"cancel ID", "take a change back that waits", run_cancel},
    {"watch", "a line for each event of a WAN or its link", run_watch},
    {"check", "what is missing, left over, doubled or in the way", run_check},
    {"save NAME", "keep configurations and scripts as a safe point", run_save},
    {"restore NAME", "go back to a safe point", run_restore},
    {"list", "the safe points that are kept", run_list},
    {"try SECONDS add|modify|del|restore ...", "make a change that goes again unless it is confirmed",
     run_try},
    {"confirm", "keep the change that is on trial", run_confirm},
    {"take-back", "take the change that is on trial back now", run_take_back},
};

constexpr auto command_texts = pack<commands, &command::usage, &command::help>();
constexpr auto command_functions = [] {
    std::array<decltype(command::run), std::size(commands)> functions = {};
    for (size_t i = 0; i < functions.size(); i++)
        functions[i] = commands[i].run;
    return functions;
}();
constexpr auto status_texts = pack<exit_statuses, &exit_status_row::meaning>();
static_assert([] {
    for (size_t i = 0; i < std::size(exit_statuses); i++)
        if (exit_statuses[i].status != static_cast<exit_status>(i))
            return false;
    return true;
}());

constexpr char help_head[] = "Usage: korvelctl COMMAND [OPTION]...\n"
                             "Looks at the WAN connections of this gateway and changes them.\n\n";
constexpr char help_common[] =
    "\nEvery command takes --json (one line of JSON instead of text) and --timeout SECONDS.\n"
    "\nExit status:\n";
constexpr char help_tail[] = "\nkorvelctl(8) has all of it.\n";

exit_status print_help()
{
    (void)fputs(help_head, stdout);
    for (const char *usage = command_texts.text; *usage != '\0'; usage = next_text(next_text(usage)))
        (void)printf("  %-38s %s\n", usage, next_text(usage));
    (void)fputs("\nOptions of add and modify:\n", stdout);
    option_row row = {};
    for (const char *options = change_options(); next_option(options, row);) {
        char option[40];
        (void)snprintf(option, sizeof(option), "--%s %s", row.name, row.takes);
        (void)printf("  %-27s %s\n", option, row.help);
    }
    (void)fputs(help_common, stdout);
    unsigned status = 0;
    for (const char *text = status_texts.text; *text != '\0'; text = next_text(text))
        (void)printf("  %2u  %s\n", status++, text);
    (void)fputs(help_tail, stdout);
    return exit_status::done;
}

exit_status print_version()
{
    if (!output_is_json()) {
        say("korvelctl %s", KORVEL_VERSION);
        return exit_status::done;
    }
    json_writer json;
    json.open_answer();
    json.text("version", KORVEL_VERSION);
    json.close_answer();
    return exit_status::done;
}

exit_status run(std::span<char *const> words)
{
    choose_output(words);
    if (words.empty())
        return fail(exit_status::usage, "a command is missing; see `korvelctl --help`");
    const char *const name = words[0];
    if (strcmp(name, "--help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "help") == 0)
        return print_help();
    if (strcmp(name, "--version") == 0)
        return print_version();
    for (const char *const word : words) {
        if (strcmp(word, "--") == 0)
            break;
        if (strcmp(word, "--help") == 0)
            return print_help();
    }
    const size_t length = strlen(name);
    const char *usage = command_texts.text;
    for (const auto run_command : command_functions) {
        if (length == strcspn(usage, " ") && strncmp(name, usage, length) == 0)
            return run_command(words.subspan(1));
        usage = next_text(next_text(usage));
    }
    return fail(exit_status::usage, "there is no command %s; see `korvelctl --help`", name);
}

} // namespace

int main(int argc, char *argv[])
{
    // What the daemon's code notes while it reads goes to the log under this name.
    openlog("korvelctl", LOG_PID, LOG_DAEMON);
    const size_t count = argc > 1 ? static_cast<size_t>(argc - 1) : 0;
    const exit_status result = run({argv + 1, count});
    if (fflush(stdout) != 0 && result == exit_status::done)
        return static_cast<int>(fail(exit_status::refused, "the output could not be written"));
    return static_cast<int>(result);
}
