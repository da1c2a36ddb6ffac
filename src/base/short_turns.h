// How long a thread's turns on the processor are, for threads that start programs.
//
// Who starts a program waits until it runs, and may then be left waiting until the program's first turn is
// over: a second one would start as late as that. A thread whose own turns are the shorter ones goes on at
// once. That counts from when it last woke, so a thread has to ask for it before it goes to sleep.
//
// All threads have turns of one length on kernels before 6.12. Nothing is changed there, nor for a thread
// with another policy than the usual one or a niceness below 0, since what it starts would lose that.
#pragma once

#include <cstdint>

// The calling thread has short turns from now on; what it starts has those of the usual length.
void take_short_turns();
// It has those of the usual length again, if it has short ones.
void take_usual_turns();

// The kernel's struct sched_attr, which not every C library has.
struct turn_attributes {
    uint32_t size;
    uint32_t policy;
    uint64_t flags;
    int32_t niceness;
    uint32_t priority;
    uint64_t length; // of a turn, in nanoseconds
    uint64_t deadline;
    uint64_t period;
};
