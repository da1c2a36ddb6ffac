#include "modify/pending.h"

#include "base/heap.h"
#include "base/lock.h"
#include "base/log.h"
#include "base/os.h"
#include "base/stop_signals.h"
#include "create/parse_args.h"
#include "modify/apply.h"
#include "service/outcomes.h"
#include "service/policies.h"
#include "service/reply.h"
#include "store/generations.h"
#include "store/read_config.h"

#include <cerrno>
#include <optional>

namespace {

// Its worker frees it.
struct pending_modify {
    size_t slot;
    uint64_t countdown;  // seconds still to wait
    uint64_t asked;      // steady_milliseconds() of the last request for it
    uint64_t arguments;  // the arguments that requests gave, a bit each
    uint32_t generation; // of its WAN when it was asked for
    bool applying;       // closed: its record is being applied as it is
    bool cancelled;      // taken out of its slot
    timed_signal ended;  // sent with that
    wan_config wan;
};

using pending_owner = heap_ptr<pending_modify>;

constexpr size_t slot_count = most_pending;
static_assert(record_arg_count <= 64, "one bit each in `arguments`");

// Guards the slots, the count and every entry behind them. Taken after handler_mutex where both are held.
constinit mutex pending_mutex;
constinit pending_modify *pending_slots[slot_count] = {};
constinit uint8_t pending_modify_count = 0;

// Whether its identifier does not mean what it meant when the change was asked for.
bool is_outlived(const pending_modify &entry)
{
    return entry.generation != wan_generation(entry.wan.wanId);
}

// With pending_mutex held, on the bus thread.
std::optional<size_t> find_slot(uint8_t wan_id, bool applying)
{
    for (size_t slot = 0; slot < slot_count; slot++) {
        const pending_modify *const entry = pending_slots[slot];
        if (entry && entry->wan.wanId == wan_id && entry->applying == applying && !is_outlived(*entry))
            return slot;
    }
    return std::nullopt;
}

// The change of an identifier that waits, or else one that waits in vain. With pending_mutex held.
std::optional<size_t> find_waiting(uint8_t wan_id)
{
    std::optional<size_t> found = find_slot(wan_id, /*applying=*/false);
    for (size_t slot = 0; slot < slot_count && !found; slot++) {
        const pending_modify *const entry = pending_slots[slot];
        if (entry && entry->wan.wanId == wan_id && !entry->applying)
            found = slot;
    }
    return found;
}

// With pending_mutex held.
size_t lowest_empty_slot()
{
    size_t slot = 0;
    while (pending_slots[slot])
        slot++;
    return slot;
}

void tell(const pending_modify &entry, wan_action action, const char *result = result_ok)
{
    wan_outcome outcome = {.action = action, .wanId = entry.wan.wanId, .result = result};
    (void)text_ref(outcome.wanName)
        .format("%.*s", static_cast<int>(sizeof(entry.wan.wanName)), entry.wan.wanName);
    (void)text_ref(outcome.device)
        .format("%.*s", static_cast<int>(sizeof(entry.wan.device)), entry.wan.device);
    outcome_add(outcome);
}

// Whether there surely is no WAN of an identifier.
bool is_free(uint8_t wan_id)
{
    const uci_loaded network("network");
    return network && !wan_device_section(network, wan_id);
}

// With handler_mutex held.
void apply(const pending_modify &due)
{
    const uint8_t wan_id = due.wan.wanId;
    if (is_outlived(due) && !is_free(wan_id)) {
        log_error("Failed to modify wan: wan_%u is not the one that was meant", wan_id);
        return tell(due, wan_action::lost, "the WAN is not the one that was meant");
    }
    (void)wan_modify_apply(&due.wan); // it logs and tells what fails, and there is nobody to reply to
}

// With pending_mutex held.
void empty_slot(size_t slot)
{
    pending_slots[slot] = nullptr;
    pending_modify_count--;
}

// Waits until the entry's seconds are over or it is taken back. A second ends where the clock says so,
// however late this thread comes to see it: lost moments must not add up until a change falls behind the next
// slot's.
void count_down(pending_modify &entry)
{
    const scoped_lock lock(pending_mutex);
    uint64_t second_end = steady_milliseconds();
    while (entry.countdown != 0 && !entry.cancelled) {
        second_end += 1000;
        while (!entry.cancelled && entry.ended.wait_until(pending_mutex, second_end))
            ;
        if (entry.countdown != 0)
            entry.countdown--;
    }
}

// What becomes of an entry whose seconds were over: it is closed unless a request has started them anew.
enum class due_entry { closed, waits_again, cancelled };

// With handler_mutex held.
due_entry close_entry(pending_modify &entry)
{
    const scoped_lock lock(pending_mutex);
    if (entry.cancelled)
        return due_entry::cancelled;
    if (entry.countdown != 0)
        return due_entry::waits_again;
    entry.applying = true;
    return due_entry::closed;
}

// Applies the entry if its seconds are still over. Returns whether it is done with.
bool apply_due(pending_modify &entry)
{
    const scoped_lock lock(handler_mutex);
    const due_entry state = close_entry(entry);
    if (state != due_entry::closed)
        return state == due_entry::cancelled;
    apply(entry);
    const scoped_lock slots_lock(pending_mutex);
    empty_slot(entry.slot);
    return true;
}

// The body of a worker thread; its argument is the entry.
void *wan_modify_worker(void *argument)
{
    const pending_owner entry(static_cast<pending_modify *>(argument));
    do
        count_down(*entry);
    while (!apply_due(*entry));
    entry->ended.close();
    return nullptr;
}

bool start_worker(pending_modify *entry)
{
    pthread_attr_t detached;
    if (pthread_attr_init(&detached) != 0)
        return false;
    (void)pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    // A worker inherits the mask: the stop handler then runs on the bus thread, or where a worker waits for a
    // child.
    const stop_signal_mask blocked(stop_signal_mask::block);
    pthread_t worker;
    const int result = pthread_create(&worker, &detached, wan_modify_worker, entry);
    (void)pthread_attr_destroy(&detached);
    errno = result;
    return result == 0;
}

// The record that a new change starts from: what is just being applied to this WAN, or else what is stored.
// False: that cannot be read, and nothing may be made of it.
bool read_base(uint8_t wan_id, wan_config *record_out)
{
    {
        const scoped_lock lock(pending_mutex);
        if (const std::optional<size_t> slot = find_slot(wan_id, /*applying=*/true)) {
            *record_out = pending_slots[*slot]->wan;
            return true;
        }
    }
    *record_out = {};
    record_out->wanId = wan_id;
    // A WAN that does not exist is refused when the change is applied.
    return wan_read_stored(record_out) != configuration_unreadable;
}

// Notes an accepted request with what waits, and tells that it waits. With pending_mutex held.
void accept(pending_modify &entry, blob_attr *const attributes[])
{
    entry.asked = steady_milliseconds();
    for (size_t i = 0; i < record_arg_count; i++)
        if (attributes[first_record_arg + i])
            entry.arguments |= uint64_t{1} << i;
    tell(entry, wan_action::pending);
}

modify_later_result merge(size_t slot, uint32_t wait, blob_attr *const attributes[], text_ref refused_out)
{
    pending_modify *const entry = pending_slots[slot];
    entry->countdown = slot + wait;
    // On a copy: what comes before an invalid argument must not slip into the change that was accepted.
    wan_config merged = entry->wan;
    if (wan_parse_args(attributes, &merged, refused_out) != 0)
        return modify_invalid;
    entry->wan = merged;
    accept(*entry, attributes);
    return modify_queued;
}

// Puts a change into a slot and starts its worker.
modify_later_result enqueue(pending_owner entry, uint32_t wait, blob_attr *const attributes[])
{
    const scoped_lock lock(pending_mutex);
    entry->slot = lowest_empty_slot();
    entry->countdown = entry->slot + wait;
    entry->generation = wan_generation(entry->wan.wanId);
    if (!entry->ended.open() || !start_worker(entry.get())) {
        log_error("Nothing was changed: a thread cannot be started: %m");
        return modify_no_memory;
    }
    pending_slots[entry->slot] = entry.get();
    pending_modify_count++;
    accept(*entry.release(), attributes);
    return modify_queued;
}

} // namespace

modify_later_result wan_modify_later(uint8_t wan_id, uint32_t wait, blob_attr *const attributes[],
                                     text_ref refused_out)
{
    {
        const scoped_lock lock(pending_mutex);
        if (pending_modify_count == slot_count)
            return modify_table_full;
        if (const std::optional<size_t> slot = find_slot(wan_id, /*applying=*/false))
            return merge(*slot, wait, attributes, refused_out);
    }
    // Only the bus thread adds entries, so there is still none for this WAN, and room for one.
    pending_owner entry(static_cast<pending_modify *>(calloc(1, sizeof(pending_modify))));
    if (!entry) {
        log_error("Nothing was changed: %m");
        return modify_no_memory;
    }
    if (!read_base(wan_id, &entry->wan))
        return modify_no_memory;
    if (wan_parse_args(attributes, &entry->wan, refused_out) != 0)
        return modify_invalid;
    return enqueue(static_cast<pending_owner &&>(entry), wait, attributes);
}

size_t wan_pending_changes(std::span<pending_change, most_pending> changes_out)
{
    const scoped_lock lock(pending_mutex);
    size_t count = 0;
    for (const pending_modify *const entry : pending_slots) {
        if (!entry)
            continue;
        pending_change &change = changes_out[count++];
        change = {entry->wan.wanId, entry->applying, {}, entry->countdown, entry->asked, entry->arguments};
        memcpy(change.wanName, entry->wan.wanName, sizeof(change.wanName));
        change.wanName[sizeof(change.wanName) - 1] = '\0';
    }
    return count;
}

bool wan_cancel_pending(uint8_t wan_id)
{
    const scoped_lock lock(pending_mutex);
    const std::optional<size_t> slot = find_waiting(wan_id);
    if (!slot)
        return false;
    pending_modify &entry = *pending_slots[*slot];
    empty_slot(*slot);
    entry.cancelled = true;
    entry.ended.send();
    tell(entry, wan_action::cancelled);
    return true;
}
