/* What the allocations of a watched program and the watcher share. */
#pragma once

#define short_memory_page "/gateway/faults/memory"

struct short_memory {
    unsigned armed;       /* whether allocations count */
    unsigned count;       /* how many there were */
    unsigned first, last; /* those that fail */
};
