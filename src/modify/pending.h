// Modifications that wait.
//
// Up to 16 changes wait in a table of slots, each with a worker thread that counts its seconds down and then
// applies it. A new change takes the lowest empty slot, and the slot's number is added to its seconds, so
// that changes asked for together are applied one after the other. A further request for the same WAN is laid
// over the waiting change and starts its seconds anew. A change stays in its slot, closed to further
// requests, until it is applied. One whose WAN was deleted or
// made meanwhile keeps its slot, too, but applies to no WAN, and no request joins it.
//
// The table has a lock of its own, which is only held for moments; a worker about to apply takes the handler
// mutex first.
#pragma once

#include "base/bus_headers.h"
#include "base/text.h"
#include "wan/wan_config.h"

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
