#include "status/status_commands.h"

#include "base/log.h"
#include "base/stop_signals.h"

#include <cerrno>
#include <poll.h>

status_commands::answer status_commands::ask(const char *interface)
{
    if (count_ == most_at_once)
        return answer::later;
    question &next = at(count_);
    next.command = status_command(interface);
    next.started = next.running.start(next.command.text, next.reply);
    // Alone it may find what it lacks beside others: descriptors, processes, memory.
    if (!next.started && count_ > 0)
        return answer::later;
    count_++;
    return next.started ? answer::asked : answer::failed;
}

// Waits until one of the commands prints something or ends, and takes that of all.
void status_commands::wait_for_output()
{
    pollfd waiting[most_at_once];
    for (size_t i = 0; i < count_; i++)
        waiting[i] = {at(i).running.descriptor(), POLLIN, 0}; // none where the descriptor is -1
    int ready = 0;
    {
        const stop_signal_mask admitted(stop_signal_mask::admit);
        ready = poll(waiting, count_, -1);
    }
    if (ready < 0) {
        if (errno != EINTR)
            at(0).running.take(); // which waits as well, if for one only
        return;
    }
    for (size_t i = 0; i < count_; i++)
        if (waiting[i].revents != 0)
            at(i).running.take();
}

const char *status_commands::take()
{
    question &oldest = at(0);
    while (oldest.running.descriptor() >= 0)
        wait_for_output();
    oldest.running.finish();
    first_ = (first_ + 1) % most_at_once;
    count_--;
    if (oldest.started)
        return oldest.reply;
    log_error("Failed to open ubus call: %s", oldest.command.text);
    return nullptr;
}
