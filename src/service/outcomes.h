// What became of changes: told on the bus, and kept for whoever asks later.
//
// Whoever brings a change to its end adds an outcome, on any thread; the bus thread takes the outcomes in
// that order, sends each, and keeps the last of them. None is kept from one process to the next.
#pragma once

#include "wan/wan_config.h"

#include <cstddef>
#include <cstdint>
#include <span>

enum class wan_action : uint8_t {
    created,
    changed,
    deleted,
    pending,   // a change was accepted and waits
    cancelled, // it was taken back
    refused,   // nothing was changed: the WAN may not be as was asked
    failed,    // nothing was changed: something could not be read or written
    lost,      // nothing was changed: the WAN is not there any more
};
// The action's name on the bus.
const char *wan_action_name(wan_action action);

// Nothing in it is secret. Texts are copied by outcome_add().
struct wan_outcome {
    wan_action action;
    uint8_t wanId;                             // 0: no WAN in particular, or none came to be
    uint8_t other;                             // the WAN that a conflict is with, 0: none
    char wanName[sizeof(wan_config::wanName)]; // terminated, may be empty; so is `device`
    char device[sizeof(wan_config::device) + 1];
    const char *result;   // how it went: result_ok or what was amiss
    const char *conflict; // what a refusal is about: a text that lives for ever, or null
    const char *file;     // what could not be read or written; empty: no file
    uint64_t when;        // steady_milliseconds(); outcome_add() fills it in
};
inline constexpr char result_ok[] = "OK";

// Adds an outcome behind all others. One that memory does not suffice for is logged and dropped. Any thread.
void outcome_add(const wan_outcome &outcome);

// Has outcome_add() write the number 1 to a descriptor (an eventfd) each time, and once now if there is
// something to take. -1: nobody waits any more. Bus thread.
void outcomes_wake(int descriptor);

// The rest is for the bus thread alone. What it is handed lives until its next call of outcome_taken().

// The first outcome that was not taken yet; null when there is none.
const wan_outcome *outcome_next();
// Takes it, and keeps it in place of the oldest one unless it tells of a change that waits.
void outcome_taken();

// The outcomes that are kept, oldest first. Returns how many.
inline constexpr size_t most_kept_outcomes = 16;
size_t outcomes_kept(std::span<const wan_outcome *, most_kept_outcomes> kept_out);
