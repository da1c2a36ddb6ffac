// The process: command line, start-up in order, event loop, stop.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <poll.h>

#include "base/bus_headers.h"
#include "base/config.h"
#include "base/log.h"
#include "base/long_commands.h"
#include "base/recovery.h"
#include "base/stop_signals.h"
#include "modify/import.h"
#include "remove/orphans.h"
#include "rules/regenerate.h"
#include "service/board.h"
#include "service/lanes.h"
#include "bus_object.h"
#include "service/settings.h"
#include "state_object.h"

namespace {

constexpr char usage_text[] =
    "Usage: korvel [-dh]\n\nSystem WAN management utilities\n\n\t-d\tStart service in daemon mode";

// Takes the signals that came. Returns whether one of them ends the process.
bool take_stop_signals()
{
    bool stops = false;
    while (const int number = stop_signal_take()) {
        if (number == SIGHUP || number == SIGINT || number == SIGTERM) {
            log_warning("Receive stop signal: %d", number);
            stops = true;
        } else {
            log_warning("Receive unknown signal: %d", number);
        }
    }
    return stops;
}

// Without this an idle client of a bus daemon that went away would run on, deaf. The supervisor starts the
// process anew.
void handle_lost_bus(ubus_context *)
{
    uloop_end();
}

// A broken connection must not end the process. The loop would have the signal ignored, which children
// inherit; one that is caught has its default effect again in a new program.
void catch_broken_pipes()
{
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    (void)sigaction(SIGPIPE, &action, nullptr);
}

// What is done before the bus is there, and so before anybody can ask for anything; a job, since there are
// children to wait for.
struct start_up {
    lane_job job;
    bool failed;
    bool done;
};

start_up &start_up_of(lane_job &job)
{
    return *reinterpret_cast<start_up *>(&job); // its first member
}

void prepare(lane_job &job)
{
    recover_operations(wan_script_directories());
    {
        const config_snapshot snapshot; // else each of these loads the configuration anew, some several times
        if (settings_load() != 0) {
            start_up_of(job).failed = true;
            return;
        }
        wan_log_orphans();
        nemtra_init_lan_num();
        wan_regen_missing_rules();
    }
    wan_import_custom();
}

void note_prepared(lane_job &job)
{
    start_up_of(job).done = true;
}

enum class next_step { serve, stop, fail };

// Waits for the start-up, and for the signals that may end it.
next_step wait_until_prepared(int stop_signals)
{
    start_up task = {.job = {.work = prepare, .ended = note_prepared}};
    lane_add(lane_name::changes, task.job);
    while (!task.done) {
        pollfd waiting[] = {{stop_signals, POLLIN, 0}, {lanes_bell(), POLLIN, 0}};
        (void)poll(waiting, std::size(waiting), log_long_commands());
        if (take_stop_signals())
            return next_step::stop;
        lanes_attend();
    }
    return task.failed ? next_step::fail : next_step::serve;
}

void handle_stop_signals(uloop_fd *, unsigned)
{
    if (take_stop_signals())
        uloop_end();
}

// Returns whether clients can reach the object. Without the one beside it they miss something, but nothing
// that they had before there was one.
bool register_on(ubus_context *bus)
{
    bus->connection_lost = handle_lost_bus;
    ubus_add_uloop(bus);
    const int result = bus_object_register(bus);
    if (result == UBUS_STATUS_OK) {
        state_object_start(bus);
        return true;
    }
    log_error("Failed to register on the bus: %s", ubus_strerror(result));
    return false;
}

// Returns the exit status. Without a bus the loop runs all the same; but on a bus that does not take the
// object nobody would notice that this daemon is deaf, so its supervisor is to see that it ended.
int serve(int stop_signals)
{
    uloop_fd signals = {};
    signals.cb = handle_stop_signals;
    signals.fd = stop_signals;
    // Whoever starts a child waits for it; a loop that reaps it first would make that fail.
    uloop_handle_sigchld = false;
    (void)uloop_init();
    if (uloop_fd_add(&signals, ULOOP_READ) != 0 || !lanes_join_loop()) {
        log_error("Failed to watch for events: %s", strerror(errno));
        uloop_done();
        return 1; // nobody would be answered
    }
    ubus_context *const bus = ubus_connect(nullptr);
    const bool deaf = bus && !register_on(bus);
    if (!deaf)
        (void)uloop_run_timeout(-1);
    ubus_free(bus);
    uloop_done();
    return deaf ? 1 : 0;
}

int run(int stop_signals)
{
    switch (wait_until_prepared(stop_signals)) {
    case next_step::serve:
        return serve(stop_signals);
    case next_step::stop:
        return 0;
    default:
        return 1;
    }
}

int finish(int status)
{
    log_close();
    return status;
}

} // namespace

int main(int argc, char *argv[])
{
    log_open();
    if (argc < 2 || strcmp(argv[1], "-h") == 0) {
        (void)puts(usage_text);
        return finish(0);
    }
    if (strcmp(argv[1], "-d") != 0)
        return finish(0);

    const int stop_signals = stop_signals_catch();
    catch_broken_pipes();
    if (const int error = stop_signals < 0 ? errno : lanes_start(); error != 0) {
        log_error("Failed to start: %s", strerror(error));
        return finish(1);
    }
    const int status = run(stop_signals);
    // A change that is being put into place ends first.
    stop_wait_for_holds();
    return finish(status);
}
