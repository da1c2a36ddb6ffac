// What goes wrong, one thing in each try.
#pragma once

#include "faults/calls.h"

#include <span>
#include <vector>

struct fault {
    enum what {
        killed,         // before a call
        stopped,        // SIGTERM before a call
        bus_lost,       // the bus daemon is killed before a call
        refused,        // a call fails with one of the errors
        refused_onward, // it and every later one
        child_fails,    // a child's program ends with status 1 at once
        memory,         // an allocation fails
        memory_onward,
        power_cut,
        killed_twice,   // and again before each call of the next start
        killed_and_cut, // and the power is cut during the next start
    };
    const char *name;
    what happens;
    kind_set calls; // those that are counted; none where something else is
    std::vector<int> errors;
};

// The first is the one of the short form.
std::span<const fault> all_faults();
