// Looks at the calls of one run of the daemon and lets one thing go wrong.
#pragma once

#include "faults/disk_log.h"
#include "faults/faults.h"
#include "faults/traced_program.h"

#include <optional>

// A call that is left out of a run as if the daemon had been written without it: a planted fault.
struct left_out_call {
    call_kind kind = call_kind::unknown;
    size_t number = 0; // counted from 1 among its kind; 0: none
};

class watch {
public:
    static constexpr size_t nothing = ~size_t{0};

    // What goes wrong, at which of the calls that count, counted from 0, and with which error.
    const fault *wrong = nullptr;
    size_t number = nothing;
    int error = 0;
    left_out_call left_out;
    std::function<void(int milliseconds)> on_sleep; // has the clock go ahead instead
    std::function<void()> on_strike;                // called before the call of faults that come from outside
    disk_log *log = nullptr;                        // takes what is changed, if set

    // Calls count as long as this is set.
    bool armed = false;
    // Called when this file is opened for the first time, if one is named.
    std::string begins_with;
    std::function<void()> on_begin;

    // What was seen while it was.
    std::vector<call_kind> kinds;
    std::vector<std::string> texts;    // of the calls that change something
    std::vector<std::string> messages; // to the system log
    size_t sends = 0;                  // to the bus
    std::optional<system_call> struck;
    std::vector<std::string> refused_paths;

    // Follows a program's calls; must outlive it.
    void follow(traced_program &program);

private:
    fate look(const system_call &call);
    fate meet(const system_call &call);
    void note(const system_call &call, int64_t result);

    size_t counted_ = 0, left_out_counted_ = 0;
};
