// The process: command line, start-up in order, event loop, stop.
#include <csignal>
#include <cstdio>
#include <cstring>

#include "base/bus_headers.h"
#include "base/config.h"
#include "base/log.h"
#include "base/recovery.h"
#include "base/stop_signals.h"
#include "modify/import.h"
#include "remove/orphans.h"
#include "rules/regenerate.h"
#include "service/board.h"
#include "bus_object.h"
#include "service/settings.h"
#include "state_object.h"

namespace {

constexpr char usage_text[] =
    "Usage: korvel [-dh]\n\nSystem WAN management utilities\n\n\t-d\tStart service in daemon mode";

void handle_stop_signal(int number)
{
    if (number != SIGHUP && number != SIGINT && number != SIGTERM) {
        log_warning("Receive unknown signal: %d", number);
        return;
    }
    log_warning("Receive stop signal: %d", number);
    stop_process();
}

// Without this an idle client of a bus daemon that went away would run on, deaf. The supervisor starts the
// process anew.
void handle_lost_bus(ubus_context *)
{
    uloop_end();
}

void install_stop_handler()
{
    for (const int number : {SIGHUP, SIGINT, SIGTERM})
        (void)signal(number, handle_stop_signal);
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

// What is done before the bus is there, and so before anybody can ask for anything. Returns whether to go on.
bool prepare()
{
    const stop_signal_mask blocked(stop_signal_mask::block);
    recover_operations(wan_script_directories());
    {
        const config_snapshot snapshot; // else each of these loads the configuration anew, some several times
        if (settings_load() != 0)
            return false;
        wan_log_orphans();
        nemtra_init_lan_num();
        wan_regen_missing_rules();
    }
    wan_import_custom();
    return true;
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
    const stop_signal_mask blocked(stop_signal_mask::block);
    log_error("Failed to register on the bus: %s", ubus_strerror(result));
    return false;
}

// Returns the exit status. Without a bus the loop runs all the same; but on a bus that does not take the
// object nobody would notice that this daemon is deaf, so its supervisor is to see that it ended.
int serve()
{
    // Whoever starts a child waits for it; a loop that reaps it first would make that fail.
    uloop_handle_sigchld = false;
    (void)uloop_init();
    ubus_context *const bus = ubus_connect(nullptr);
    const bool deaf = bus && !register_on(bus);
    if (!deaf)
        (void)uloop_run_timeout(-1);
    ubus_free(bus);
    uloop_done();
    return deaf ? 1 : 0;
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

    install_stop_handler();
    catch_broken_pipes();
    if (!prepare())
        return finish(1);
    const int status = serve();
    // A change that is being put into place ends first.
    stop_hold_end();
    return finish(status);
}
