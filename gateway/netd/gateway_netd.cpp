// gateway-netd: offers on the bus what a gateway's network daemon and its board description offer, from the
// configuration of the virtual gateway.
#include "netd/network_daemon.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>
#include <optional>
#include <string>

namespace {

constexpr int reconnect_interval_ms = 100;

struct command_line {
    daemon_options daemon;
    const char *socket = nullptr; // the bus's usual one
};

[[noreturn]] void usage(int status)
{
    (void)fputs("Usage: gateway-netd [--no-links] [--kernel-vlans] [--no-hotplug] [--pace fast|real]\n"
                "                    [--pending MILLISECONDS] [--socket PATH]\n",
                status ? stderr : stdout);
    exit(status);
}

bool is_real_pace(const std::string &pace)
{
    if (pace != "real" && pace != "fast")
        usage(EXIT_FAILURE);
    return pace == "real";
}

command_line parse(int argc, char **argv)
{
    constexpr option options[] = {
        {"no-links", no_argument, nullptr, 'l'},      {"kernel-vlans", no_argument, nullptr, 'k'},
        {"no-hotplug", no_argument, nullptr, 'n'},    {"pace", required_argument, nullptr, 'r'},
        {"pending", required_argument, nullptr, 'p'}, {"socket", required_argument, nullptr, 's'},
        {"help", no_argument, nullptr, 'h'},          {}};
    command_line parsed;
    for (int letter; (letter = getopt_long(argc, argv, "h", options, nullptr)) != -1;) {
        switch (letter) {
        case 'l':
            parsed.daemon.links = false;
            break;
        case 'k':
            parsed.daemon.kernel_vlans = true;
            break;
        case 'n':
            parsed.daemon.hotplug = false;
            break;
        case 'p':
            parsed.daemon.pending_ms = atoi(optarg);
            break;
        case 'r':
            parsed.daemon.real_pace = is_real_pace(optarg);
            break;
        case 's':
            parsed.socket = optarg;
            break;
        default:
            usage(letter == 'h' ? EXIT_SUCCESS : EXIT_FAILURE);
        }
    }
    if (optind != argc)
        usage(EXIT_FAILURE);
    return parsed;
}

// The bus may be restarted under the stand-in; it then comes back with all its objects, as the real daemon
// does.
struct connection {
    ubus_context *bus;
    const char *socket;
    std::optional<timer> reconnecting;
};
connection current{};

void try_to_reconnect()
{
    if (ubus_reconnect(current.bus, current.socket) == UBUS_STATUS_OK)
        ubus_add_uloop(current.bus);
    else
        current.reconnecting->start(reconnect_interval_ms);
}

void handle_lost_connection(ubus_context *bus)
{
    uloop_fd_delete(&bus->sock); // the library leaves it in when the loss shows up inside a call
    current.reconnecting->start(reconnect_interval_ms);
}

} // namespace

int main(int argc, char **argv)
{
    const command_line options = parse(argc, argv);
    ubus_context *const bus = ubus_connect(options.socket);
    if (!bus) {
        (void)fputs("gateway-netd: no bus\n", stderr);
        return EXIT_FAILURE;
    }
    current.bus = bus;
    current.socket = options.socket;
    current.reconnecting.emplace(try_to_reconnect);
    bus->connection_lost = handle_lost_connection;
    ubus_add_uloop(bus);

    bool started = false;
    {
        network_daemon daemon(bus, options.daemon);
        const signal_source rescan(SIGHUP, [&daemon] { daemon.follow_files(); });
        started = daemon.start();
        if (started)
            uloop_run();
        daemon.stop();
    }
    current.reconnecting.reset();
    ubus_free(bus);
    uloop_done();
    return started ? EXIT_SUCCESS : EXIT_FAILURE;
}
