#include "status/status_commands.h"

#include "base/log.h"
#include "base/clock.h"

#include <algorithm>
#include <cerrno>
#include <poll.h>

namespace {

constexpr uint64_t tool_patience = 30000; // milliseconds, the bus tool's own
constexpr uint64_t most_patience = tool_patience + 1000;

// When the network daemon last answered, and when it was last found not to.
struct daemon_answers {
    uint64_t last;
    uint64_t silent;
};

// The lane of queries has them to itself.
constinit daemon_answers answers = {};

} // namespace

status_commands::answer status_commands::ask(const char *interface)
{
    if (count_ == most_at_once)
        return answer::later;
    question &next = at(count_);
    next.command = status_command(interface);
    next.begun = steady_milliseconds();
    if (asked_ < answers.silent) {
        next.started = true;
        next.reply[0] = '\0';
    } else {
        next.started = next.running.start(next.command.text, next.reply);
    }
    // Alone it may find what it lacks beside others: descriptors, processes, memory.
    if (!next.started && count_ > 0)
        return answer::later;
    count_++;
    return next.started ? answer::asked : answer::failed;
}

// Waits until one of the commands prints something or ends, and takes that of all; but no longer than until a
// moment.
void status_commands::wait_for_output(uint64_t until)
{
    pollfd waiting[most_at_once];
    for (size_t i = 0; i < count_; i++)
        waiting[i] = {at(i).running.descriptor(), POLLIN, 0}; // none where the descriptor is -1
    const uint64_t now = steady_milliseconds();
    const int ready = poll(waiting, count_, until > now ? static_cast<int>(until - now) : 0);
    if (ready < 0) {
        if (errno != EINTR)
            at(0).running.take(); // which waits as well, if for one only
        return;
    }
    for (size_t i = 0; i < count_; i++)
        if (waiting[i].revents != 0)
            at(i).running.take();
}

// Draws the conclusion from a command that has ended, or that was given up.
void status_commands::judge(const question &ended, bool by_itself)
{
    const uint64_t now = steady_milliseconds();
    if (!by_itself)
        log_error("No answer after %u s: %s", static_cast<unsigned>((now - ended.begun) / 1000),
                  ended.command.text);
    if (ended.reply[0] != '\0' || (by_itself && now - ended.begun < tool_patience))
        answers.last = now;
    else if (answers.last < ended.begun)
        answers.silent = now;
}

const char *status_commands::take()
{
    question &oldest = at(0);
    const uint64_t until = oldest.begun + most_patience;
    while (oldest.running.descriptor() >= 0 && steady_milliseconds() < until)
        wait_for_output(until);
    if (oldest.running.runs())
        judge(oldest, oldest.running.finish_until(until));
    first_ = (first_ + 1) % most_at_once;
    count_--;
    if (oldest.started)
        return oldest.reply;
    log_error("Failed to open ubus call: %s", oldest.command.text);
    return nullptr;
}
