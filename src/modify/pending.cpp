#include "modify/pending.h"

#include "base/config.h"
#include "base/heap.h"
#include "base/log.h"
#include "base/clock.h"
#include "create/parse_args.h"
#include "modify/apply.h"
#include "service/lanes.h"
#include "service/outcomes.h"
#include "service/policies.h"
#include "store/generations.h"
#include "store/read_config.h"

#include <algorithm>

namespace {

struct pending_modify {
    lane_job job;
    uloop_timeout timer;
    size_t slot;
    uint64_t due;        // steady_milliseconds() when it is to be applied
    uint64_t asked;      // the same of the last request for it
    uint64_t arguments;  // the arguments that requests gave, a bit each
    uint32_t generation; // of its WAN when it was asked for
    bool in_lane;        // it is due, and waits for its turn or is being applied
    bool applying;       // closed: its record is being applied as it is
    bool outlived;       // when that began
    wan_config wan;
};

constexpr size_t slot_count = most_pending;

constinit pending_modify *pending_slots[slot_count] = {};
constinit uint8_t pending_modify_count = 0;

pending_modify &entry_of(lane_job &job)
{
    return *reinterpret_cast<pending_modify *>(&job); // its first member
}

// Whether its identifier does not mean what it meant when the change was asked for.
bool is_outlived(const pending_modify &entry)
{
    return entry.generation != wan_generation(entry.wan.wanId);
}

pending_modify *find_entry(uint8_t wan_id, bool applying)
{
    for (pending_modify *const entry : pending_slots)
        if (entry && entry->wan.wanId == wan_id && entry->applying == applying && !is_outlived(*entry))
            return entry;
    return nullptr;
}

// The change of an identifier that waits, or else one that waits in vain.
pending_modify *find_waiting(uint8_t wan_id)
{
    if (pending_modify *const found = find_entry(wan_id, /*applying=*/false))
        return found;
    for (pending_modify *const entry : pending_slots)
        if (entry && entry->wan.wanId == wan_id && !entry->applying)
            return entry;
    return nullptr;
}

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

// On the lane's thread.
void apply(lane_job &job)
{
    const pending_modify &due = entry_of(job);
    const uint8_t wan_id = due.wan.wanId;
    if (due.outlived && !is_free(wan_id)) {
        log_error("Failed to modify wan: wan_%u is not the one that was meant", wan_id);
        return tell(due, wan_action::lost, "the WAN is not the one that was meant");
    }
    (void)wan_modify_apply(&due.wan); // it logs and tells what fails, and there is nobody to reply to
}

void close_entry(lane_job &job)
{
    pending_modify &entry = entry_of(job);
    entry.applying = true;
    entry.outlived = is_outlived(entry);
}

void drop(pending_modify &entry)
{
    (void)uloop_timeout_cancel(&entry.timer);
    pending_slots[entry.slot] = nullptr;
    pending_modify_count--;
    free(&entry);
}

void end_entry(lane_job &job)
{
    drop(entry_of(job));
}

uint64_t milliseconds_left(const pending_modify &entry)
{
    const uint64_t now = steady_milliseconds();
    return entry.due > now ? entry.due - now : 0;
}

// The loop's timers take no more than some days at once.
void arm(pending_modify &entry)
{
    constexpr uint64_t day = 86400000;
    (void)uloop_timeout_set(&entry.timer, static_cast<int>(std::min(milliseconds_left(entry), day)));
}

void handle_timer(uloop_timeout *timer)
{
    for (pending_modify *const entry : pending_slots) {
        if (!entry || &entry->timer != timer)
            continue;
        if (milliseconds_left(*entry) > 0)
            return arm(*entry);
        entry->in_lane = true;
        return lane_add(lane_name::changes, entry->job);
    }
}

// Takes a change that is not being applied out of the lane.
void leave_lane(pending_modify &entry)
{
    if (entry.in_lane)
        (void)lane_withdraw(lane_name::changes, entry.job);
    entry.in_lane = false;
}

void start_seconds(pending_modify &entry, uint32_t wait)
{
    leave_lane(entry);
    entry.due = steady_milliseconds() + (uint64_t{entry.slot} + wait) * 1000;
    arm(entry);
}

// Notes an accepted request with what waits, and tells that it waits.
void accept(pending_modify &entry, uint64_t arguments)
{
    entry.asked = steady_milliseconds();
    entry.arguments |= arguments;
    tell(entry, wan_action::pending);
}

pending_result enter(const wan_config &wan, const asked_change &asked)
{
    pending_modify *const entry = static_cast<pending_modify *>(calloc(1, sizeof(pending_modify)));
    if (!entry) {
        log_error("Nothing was changed: %m");
        return pending_result::no_memory;
    }
    entry->job = {.work = apply, .ended = end_entry, .begins = close_entry};
    entry->timer.cb = handle_timer;
    entry->slot = lowest_empty_slot();
    entry->generation = wan_generation(wan.wanId);
    entry->wan = wan;
    pending_slots[entry->slot] = entry;
    pending_modify_count++;
    start_seconds(*entry, asked.wait);
    accept(*entry, asked.arguments);
    return pending_result::queued;
}

} // namespace

bool wan_pending_begin(uint8_t wan_id, uint32_t wait)
{
    if (pending_modify_count == slot_count)
        return false;
    if (pending_modify *const entry = find_entry(wan_id, /*applying=*/false))
        start_seconds(*entry, wait);
    return true;
}

pending_result wan_pending_join(const asked_change &asked)
{
    if (pending_modify_count == slot_count)
        return pending_result::table_full;
    if (pending_modify *const entry = find_entry(asked.wan.wanId, /*applying=*/false)) {
        start_seconds(*entry, asked.wait);
        wan_overlay_args(asked.arguments, asked.wan, &entry->wan);
        accept(*entry, asked.arguments);
        return pending_result::queued;
    }
    const pending_modify *const applied = find_entry(asked.wan.wanId, /*applying=*/true);
    if (!applied)
        return pending_result::unknown;
    wan_config wan = applied->wan;
    wan_overlay_args(asked.arguments, asked.wan, &wan);
    return enter(wan, asked);
}

pending_result wan_pending_add(const asked_change &asked)
{
    return pending_modify_count == slot_count ? pending_result::table_full : enter(asked.wan, asked);
}

size_t wan_pending_changes(std::span<pending_change, most_pending> changes_out)
{
    size_t count = 0;
    for (const pending_modify *const entry : pending_slots) {
        if (!entry)
            continue;
        pending_change &change = changes_out[count++];
        const uint64_t seconds = (milliseconds_left(*entry) + 999) / 1000;
        change = {entry->wan.wanId, entry->applying, {}, seconds, entry->asked, entry->arguments};
        memcpy(change.wanName, entry->wan.wanName, sizeof(change.wanName));
        change.wanName[sizeof(change.wanName) - 1] = '\0';
    }
    return count;
}

bool wan_cancel_pending(uint8_t wan_id)
{
    pending_modify *const entry = find_waiting(wan_id);
    if (!entry)
        return false;
    leave_lane(*entry);
    tell(*entry, wan_action::cancelled);
    drop(*entry);
    return true;
}
