// Modifications that wait.
//
// Up to 16 changes wait in a table of slots, each with a worker thread that counts its seconds down and then
// applies it. A new change takes the lowest empty slot, and the slot's number is added to its seconds, so
// that changes asked for together are applied one after the other. A further request for the same WAN is laid
// over the waiting change and starts its seconds anew. A change stays in its slot, closed to further
// requests, until it is applied; one that is taken back leaves it at once. One whose WAN was deleted or made
// meanwhile keeps its slot, too, but applies to no WAN, and no request joins it.
//
// The table has a lock of its own, which is only held for moments; a worker about to apply takes the handler
// mutex first.
#pragma once

#include "base/bus_headers.h"
#include "base/text.h"
#include "wan/wan_config.h"

#include <span>

enum modify_later_result {
    modify_queued,
    modify_invalid,    // an argument is out of range; its display name was handed back
    modify_table_full, // 16 changes are waiting already
    modify_no_memory,  // no memory or no thread for one more
};

// Queues a change of a WAN, to be applied in `wait` seconds (1 or more) and its slot's number of seconds.
// `attributes` is the parsed request in policy order; it is laid over the change that waits for this WAN, or
// else over what is stored. refused_out holds display_name_size bytes. A request that is refused changes
// nothing but, when one waits, the time at which that is applied. Bus thread, handler mutex not held.
modify_later_result wan_modify_later(uint8_t wan_id, uint32_t wait, blob_attr *const attributes[],
                                     text_ref refused_out);

inline constexpr size_t most_pending = 16;

// A change that waits or is just being applied.
struct pending_change {
    uint8_t wanId;
    bool applying;
    char wanName[sizeof(wan_config::wanName)]; // the stored one, terminated
    uint64_t seconds;                          // still to wait
    uint64_t asked;     // steady_milliseconds() when the last request for it was accepted
    uint64_t arguments; // bit i: a request gave the argument of arg_rules[i]
};

// What waits, in the order of the slots. Returns how many. Any thread.
size_t wan_pending_changes(std::span<pending_change, most_pending> changes_out);

// Takes the waiting change of a WAN back. False: none waits, or it is just being applied. Bus thread.
bool wan_cancel_pending(uint8_t wan_id);
