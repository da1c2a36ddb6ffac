// Modifications that wait.
//
// Up to 16 changes wait in a table of slots, each with a timer of the event loop that hands it to the lane of
// changes. A new change takes the lowest empty slot, and the slot's number is added to its seconds, so that
// changes asked for together are applied one after the other. A further request for the same WAN is laid over
// the waiting change and starts its seconds anew. A change stays in its slot until it is applied, open to
// further requests until that begins; one that is taken back leaves it at once. One whose WAN was deleted or
// made meanwhile keeps its slot, too, but applies to no WAN, and no request joins it.
//
// Everything here is for the bus thread.
#pragma once

#include "base/bus_headers.h"
#include "base/text.h"
#include "wan/wan_config.h"

#include <span>

// What was asked of a WAN: the arguments that were given, by their bits (create/parse_args.h), and their
// values in a record that names the WAN.
struct asked_change {
    const wan_config &wan;
    uint64_t arguments;
    uint32_t wait; // seconds, 1 or more
};

enum class pending_result {
    queued,
    unknown,    // none waits for this WAN, and what it is now is not known here
    table_full, // 16 changes are waiting already
    no_memory,  // logged
};

// What comes before the arguments are judged: a request for a WAN whose change waits starts its seconds anew
// even if it is refused then. Returns whether there is room, which such a request needs as well.
bool wan_pending_begin(uint8_t wan_id, uint32_t wait);

// Lays a request over the change that waits for its WAN; or else has it wait over what is just being applied
// to the WAN.
pending_result wan_pending_join(const asked_change &asked);

// Has a change wait whose record is whole.
pending_result wan_pending_add(const asked_change &asked);

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

// What waits, in the order of the slots. Returns how many.
size_t wan_pending_changes(std::span<pending_change, most_pending> changes_out);

// Takes the waiting change of a WAN back. False: none waits, or it is just being applied.
bool wan_cancel_pending(uint8_t wan_id);
