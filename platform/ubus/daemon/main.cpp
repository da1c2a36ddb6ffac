// ubusd: the message bus daemon. Options, start, stop.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include <getopt.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "access.h"
#include "bus.h"
#include "bus_headers.h"
#include "server.h"
#include "unique_fd.h"

namespace {

constexpr char socket_directory[] = "/var/run/ubus";
constexpr char default_access_directory[] = "/usr/share/acl.d";

struct options {
    const char *socket = UBUS_DEFAULT_SOCKET;
    const char *access_directory = default_access_directory;
};

// What the signals act on.
struct daemon_state {
    ubusd::access_rules access;
    const char *access_directory = nullptr;
    ubusd::unique_fd signals;
    uloop_fd watch{};
};

constinit daemon_state *running = nullptr;

bool read_options(int argc, char **argv, options &options_out)
{
    int option;
    while ((option = getopt(argc, argv, "A:s:")) != -1) {
        if (option == 's')
            options_out.socket = optarg;
        else if (option == 'A')
            options_out.access_directory = optarg;
        else
            return false;
    }
    return true;
}

void take_signal(uloop_fd *watch, unsigned)
{
    signalfd_siginfo signal;
    while (read(watch->fd, &signal, sizeof(signal)) == sizeof(signal)) {
        if (signal.ssi_signo == SIGHUP)
            running->access.load(running->access_directory);
        else
            uloop_end();
    }
}

// Signals arrive through the loop, so that one which comes before the loop runs is not lost.
void watch_signals(daemon_state &state)
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGHUP);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    running = &state;
    state.signals = ubusd::unique_fd(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
    state.watch.fd = state.signals.get();
    state.watch.cb = take_signal;
    uloop_fd_add(&state.watch, ULOOP_READ);
}

int serve(const options &options)
{
    daemon_state state;
    watch_signals(state);
    mkdir(socket_directory, 0755);
    ubusd::unique_fd listener = ubusd::listen_at(options.socket);
    if (!listener) {
        perror("usock");
        return -1;
    }
    state.access_directory = options.access_directory;
    state.access.load(state.access_directory);

    ubusd::bus bus(state.access);
    ubusd::server server(bus, std::move(listener));
    uloop_run();
    unlink(options.socket);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    options options;
    if (!read_options(argc, argv, options)) {
        fprintf(stderr,
                "Usage: %s [<options>]\n"
                "Options:\n"
                "  -A <directory>  where the access files are\n"
                "  -s <socket>     where clients connect\n",
                argv[0]);
        return 1;
    }
    // A client that vanishes must show as a failed write.
    signal(SIGPIPE, SIG_IGN);
    uloop_init();
    const int result = serve(options);
    uloop_done();
    return result;
}
