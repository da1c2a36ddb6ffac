// The launcher's command line.
#include "launcher/launcher_options.h"

#include <getopt.h>
#include <stdexcept>

const char launcher_usage[] =
    R"(Usage: korvel-gateway [OPTION]... [--shell | -- COMMAND [ARGUMENT]...]

Boots a virtual gateway (bus, network daemon, korvel), runs the command in it
and ends with the command's status. Without a command: an interactive shell.

  --shell         run an interactive shell
  --config DIR    put the files of DIR in /etc/config before anything starts
  --programs DIR  take those of the gateway's programs that are in DIR from there
  --bare          start nothing but the command
  --pace PACE     how long interfaces take to come up: fast (no time, the
                  default) or real (seconds, as on a line)
  --no-korvel     leave starting korvel to the command
  --show-journal  print the started commands at the end
  --show-log      print the system log at the end
  --help          print this text
)";

namespace {

enum option_code {
    code_help,
    code_shell,
    code_config,
    code_programs,
    code_bare,
    code_pace,
    code_no_korvel,
    code_show_journal,
    code_show_log
};

constexpr option long_options[] = {
    {"help", no_argument, nullptr, code_help},
    {"shell", no_argument, nullptr, code_shell},
    {"config", required_argument, nullptr, code_config},
    {"programs", required_argument, nullptr, code_programs},
    {"bare", no_argument, nullptr, code_bare},
    {"pace", required_argument, nullptr, code_pace},
    {"no-korvel", no_argument, nullptr, code_no_korvel},
    {"show-journal", no_argument, nullptr, code_show_journal},
    {"show-log", no_argument, nullptr, code_show_log},
    {},
};

// Returns whether the option asks for a shell.
bool apply(int code, launcher_options &options)
{
    switch (code) {
    case code_help:
        options.help = true;
        break;
    case code_shell:
        return true;
    case code_config:
        options.config = optarg;
        break;
    case code_programs:
        options.programs = optarg;
        break;
    case code_bare:
        options.bare = true;
        break;
    case code_pace:
        options.pace = optarg;
        if (options.pace != "fast" && options.pace != "real")
            throw std::invalid_argument("no such pace: " + options.pace);
        break;
    case code_no_korvel:
        options.start_korvel = false;
        break;
    case code_show_journal:
        options.show_journal = true;
        break;
    case code_show_log:
        options.show_log = true;
        break;
    default:
        throw std::invalid_argument("unknown option");
    }
    return false;
}

} // namespace

launcher_options parse_launcher_options(int argc, char *const argv[])
{
    launcher_options options;
    bool shell = false;
    optind = 1;
    opterr = 0;
    // "+": options behind the command belong to the command.
    for (int code = 0; (code = getopt_long(argc, argv, "+", long_options, nullptr)) != -1;)
        shell = apply(code, options) || shell;
    options.command.assign(argv + optind, argv + argc);
    if (shell && !options.command.empty())
        throw std::invalid_argument("--shell and a command exclude each other");
    return options;
}
