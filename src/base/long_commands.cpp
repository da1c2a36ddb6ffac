#include "base/long_commands.h"

#include "base/lock.h"
#include "base/log.h"
#include "base/text.h"
#include "base/clock.h"

#include <algorithm>

struct command_watch {
    char command[128]; // cut at its end; empty: nothing is watched here
    uint64_t started;
    uint64_t patience; // when it has run for so long it is logged
};

namespace {

constinit mutex watches_mutex;
constinit command_watch watches[4] = {}; // more than there are threads that run commands

unsigned seconds_of(const command_watch &each, uint64_t now)
{
    return static_cast<unsigned>((now - each.started) / 1000);
}

} // namespace

watched_command::watched_command(const char *command) : watch_(nullptr)
{
    const scoped_lock hold(watches_mutex);
    for (command_watch &each : watches) {
        if (each.command[0] != '\0')
            continue;
        each = {{}, steady_milliseconds(), long_command_milliseconds};
        (void)text_ref(each.command).format("%s", command);
        watch_ = &each;
        return;
    }
}

watched_command::~watched_command()
{
    if (!watch_)
        return;
    const scoped_lock hold(watches_mutex);
    if (watch_->patience > long_command_milliseconds)
        log_warning("It ended after %u s: %s", seconds_of(*watch_, steady_milliseconds()), watch_->command);
    watch_->command[0] = '\0';
}

int log_long_commands()
{
    const scoped_lock hold(watches_mutex);
    const uint64_t now = steady_milliseconds();
    uint64_t next = long_command_milliseconds;
    for (command_watch &each : watches) {
        if (each.command[0] == '\0')
            continue;
        if (now - each.started >= each.patience) {
            log_warning("It has run for %u s: %s", seconds_of(each, now), each.command);
            while (now - each.started >= each.patience)
                each.patience *= 2;
        }
        next = std::min(next, each.started + each.patience - now);
    }
    return static_cast<int>(next);
}
