#include "modify/pending.h"

#include "base/heap.h"
#include "base/lock.h"
#include "base/log.h"
#include "base/os.h"
#include "base/stop_signals.h"
#include "create/parse_args.h"
#include "modify/apply.h"
#include "service/reply.h"
#include "store/generations.h"
#include "store/read_config.h"

#include <optional>

namespace {

struct pending_modify {
    uint64_t countdown;  // seconds still to wait
    uint32_t generation; // of its WAN when it was asked for
    bool applying;       // closed: its record is being applied as it is
    wan_config wan;
};

using pending_owner = heap_ptr<pending_modify>;

constexpr size_t slot_count = 16;

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

// With pending_mutex held.
size_t lowest_empty_slot()
{
    size_t slot = 0;
    while (pending_slots[slot])
        slot++;
    return slot;
}

// Waits until the entry's seconds are over. A second ends where the clock says so, however late this thread
// comes to see it: lost moments must not add up until a change falls behind the next slot's.
void count_down(size_t slot)
{
    uint64_t second_end = steady_milliseconds();
    for (;;) {
        {
            const scoped_lock lock(pending_mutex);
            if (pending_slots[slot]->countdown == 0)
                return;
        }
        second_end += 1000;
        sleep_until(second_end);
        const scoped_lock lock(pending_mutex);
        uint64_t &countdown = pending_slots[slot]->countdown;
        if (countdown != 0)
            countdown--;
    }
}

// Closes the entry and hands out a copy, unless a request has started its seconds anew. With
// handler_mutex held.
bool close_entry(size_t slot, pending_modify *closed_out)
{
    const scoped_lock lock(pending_mutex);
    pending_modify *const entry = pending_slots[slot];
    if (entry->countdown != 0)
        return false;
    entry->applying = true;
    *closed_out = *entry;
    return true;
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
    if (is_outlived(due) && !is_free(wan_id))
        return log_error("Failed to modify wan: wan_%u is not the one that was meant", wan_id);
    (void)wan_modify_apply(&due.wan); // it logs what fails, and there is nobody to reply to
}

void empty_slot(size_t slot)
{
    const scoped_lock lock(pending_mutex);
    const pending_owner entry(pending_slots[slot]);
    pending_slots[slot] = nullptr;
    pending_modify_count--;
}

// Applies the entry if its seconds are still over. Returns whether it did.
bool apply_due(size_t slot)
{
    const scoped_lock lock(handler_mutex);
    pending_modify due;
    if (!close_entry(slot, &due))
        return false;
    apply(due);
    empty_slot(slot);
    return true;
}

// The body of a worker thread; its argument is the slot's number.
void *wan_modify_worker(void *argument)
{
    const size_t slot = reinterpret_cast<size_t>(argument);
    do
        count_down(slot);
    while (!apply_due(slot));
    return nullptr;
}

bool start_worker(size_t slot)
{
    pthread_attr_t detached;
    if (pthread_attr_init(&detached) != 0)
        return false;
    (void)pthread_attr_setdetachstate(&detached, PTHREAD_CREATE_DETACHED);
    // A worker inherits the mask: the stop handler then runs on the bus thread, or where a worker waits for a
    // child.
    const stop_signal_mask blocked(stop_signal_mask::block);
    pthread_t worker;
    const int result = pthread_create(&worker, &detached, wan_modify_worker, reinterpret_cast<void *>(slot));
    (void)pthread_attr_destroy(&detached);
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

modify_later_result merge(size_t slot, uint32_t wait, blob_attr *const attributes[], text_ref refused_out)
{
    pending_modify *const entry = pending_slots[slot];
    entry->countdown = slot + wait;
    // On a copy: what comes before an invalid argument must not slip into the change that was accepted.
    wan_config merged = entry->wan;
    if (wan_parse_args(attributes, &merged, refused_out) != 0)
        return modify_invalid;
    entry->wan = merged;
    return modify_queued;
}

// Puts a change into a slot and starts its worker.
modify_later_result enqueue(pending_owner entry, uint32_t wait)
{
    const scoped_lock lock(pending_mutex);
    const size_t slot = lowest_empty_slot();
    entry->countdown = slot + wait;
    entry->generation = wan_generation(entry->wan.wanId);
    pending_slots[slot] = entry.get();
    if (!start_worker(slot)) {
        log_error("Nothing was changed: a thread cannot be started");
        pending_slots[slot] = nullptr;
        return modify_no_memory;
    }
    (void)entry.release();
    pending_modify_count++;
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
    return enqueue(static_cast<pending_owner &&>(entry), wait);
}
