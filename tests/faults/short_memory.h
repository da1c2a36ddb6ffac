/* What the allocations and the clock of a watched program share with the watcher. */
#pragma once

#define short_memory_page "/gateway/faults/memory"

struct short_memory {
    unsigned armed;       /* whether allocations count */
    unsigned count;       /* how many there were */
    unsigned first, last; /* those that fail */
    long long skipped;    /* milliseconds by which the steady clock goes ahead */
};
