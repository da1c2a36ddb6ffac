// ubus: the message bus from the command line. Options, choice of the command, exit code.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <getopt.h>

#include "command.h"

namespace {

constexpr int usage_exit = 1;

struct command {
    const char *name;
    int (*run)(ubus_context *bus, const tool_options &options, arguments args);
};

constexpr command commands[] = {
    {"list", list_objects}, {"call", call_method},          {"listen", listen_for_events},
    {"send", send_event},   {"wait_for", wait_for_objects},
};

constexpr char usage_text[] = R"(Usage: %s [<options>] <command> [arguments...]
Options:
 -s <socket>   connect to this socket
 -t <seconds>  give up after this time; 0: never
 -S            compact output and no error messages, for programs
 -v            list methods too
 -m <type>, -M r|t
               accepted, without effect

Commands:
 list [<path>]                    objects; a path may end in *
 call <path> <method> [<json>]    call a method
 listen [<pattern>...]            print events
 send <type> [<json>]             send an event
 wait_for <path>...               wait until objects are there
)";

void print_usage(const char *program)
{
    fprintf(stderr, usage_text, program);
}

// Later the time is counted in milliseconds, in an int; more than that holds is cut to it.
int seconds_in(const char *text)
{
    constexpr long greatest = INT_MAX / 1000;
    return static_cast<int>(std::clamp(strtol(text, nullptr, 10), -greatest, greatest));
}

bool read_options(int argc, char **argv, tool_options &options)
{
    int option;
    while ((option = getopt(argc, argv, "m:M:s:St:v")) != -1) {
        switch (option) {
        case 's':
            options.socket = optarg;
            break;
        case 't':
            options.timeout = seconds_in(optarg);
            options.timeout_given = true;
            break;
        case 'S':
            options.simple = true;
            break;
        case 'v':
            options.verbose = true;
            break;
        case 'm':
        case 'M':
            break;
        default:
            return false;
        }
    }
    return optind < argc;
}

int run_command(const tool_options &options, const char *name, arguments args)
{
    ubus_context *const bus = ubus_connect(options.socket);
    if (!bus) {
        if (!options.simple)
            fputs("Failed to connect to ubus\n", stderr);
        return already_reported;
    }
    int result = wrong_usage;
    for (const command &command : commands) {
        if (strcmp(command.name, name) == 0)
            result = command.run(bus, options, args);
    }
    ubus_free(bus);
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    tool_options options;
    if (!read_options(argc, argv, options)) {
        print_usage(argv[0]);
        return usage_exit;
    }
    const arguments args(argv + optind + 1, argv + argc);
    const int result = run_command(options, argv[optind], args);
    if (result > 0 && !options.simple)
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(result));
    else if (result == wrong_usage)
        print_usage(argv[0]);
    return result;
}
