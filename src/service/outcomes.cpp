#include "service/outcomes.h"

#include "base/heap.h"
#include "base/lock.h"
#include "base/log.h"

#include <cstring>
#include "base/clock.h"

#include <unistd.h>

namespace {

struct entry {
    entry *next;
    wan_outcome outcome;
    char texts[]; // the result, and behind its terminator the file
};

// Guards the entries that wait to be taken, and whom to wake.
constinit mutex waiting_mutex;
constinit entry *first_waiting = nullptr;
constinit entry *last_waiting = nullptr;
constinit int wake_descriptor = -1;

// The bus thread's. Entry `oldest_kept` is the oldest once all are in use.
constinit entry *kept[most_kept_outcomes] = {};
constinit size_t oldest_kept = 0;

entry *make_entry(const wan_outcome &outcome)
{
    const size_t result_size = strlen(outcome.result) + 1;
    const size_t file_size = outcome.file ? strlen(outcome.file) + 1 : 1;
    entry *const made = static_cast<entry *>(calloc(1, sizeof(entry) + result_size + file_size));
    if (!made)
        return nullptr;
    made->outcome = outcome;
    made->outcome.when = steady_milliseconds();
    memcpy(made->texts, outcome.result, result_size);
    made->outcome.result = made->texts;
    if (outcome.file)
        memcpy(made->texts + result_size, outcome.file, file_size);
    made->outcome.file = made->texts + result_size;
    return made;
}

// With waiting_mutex held.
void wake()
{
    const uint64_t one = 1;
    if (wake_descriptor >= 0)
        (void)!write(wake_descriptor, &one, sizeof(one)); // it refuses only when it wakes already
}

} // namespace

const char *wan_action_name(wan_action action)
{
    constexpr const char *names[] = {"created",   "changed", "deleted", "pending",
                                     "cancelled", "refused", "failed",  "lost"};
    return names[static_cast<size_t>(action)];
}

void outcome_add(const wan_outcome &outcome)
{
    entry *const added = make_entry(outcome);
    if (!added)
        return log_error("Failed to allocate an outcome");
    const scoped_lock lock(waiting_mutex);
    (last_waiting ? last_waiting->next : first_waiting) = added;
    last_waiting = added;
    wake();
}

void outcomes_wake(int descriptor)
{
    const scoped_lock lock(waiting_mutex);
    wake_descriptor = descriptor;
    if (first_waiting)
        wake();
}

const wan_outcome *outcome_next()
{
    const scoped_lock lock(waiting_mutex);
    return first_waiting ? &first_waiting->outcome : nullptr;
}

void outcome_taken()
{
    entry *taken = nullptr;
    {
        const scoped_lock lock(waiting_mutex);
        taken = first_waiting;
        first_waiting = taken->next;
        if (!first_waiting)
            last_waiting = nullptr;
    }
    if (taken->outcome.action == wan_action::pending)
        return free(taken);
    free(kept[oldest_kept]);
    kept[oldest_kept] = taken;
    oldest_kept = (oldest_kept + 1) % most_kept_outcomes;
}

size_t outcomes_kept(std::span<const wan_outcome *, most_kept_outcomes> kept_out)
{
    size_t count = 0;
    for (size_t i = 0; i < most_kept_outcomes; i++)
        if (const entry *const each = kept[(oldest_kept + i) % most_kept_outcomes])
            kept_out[count++] = &each->outcome;
    return count;
}
