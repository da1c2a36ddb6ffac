// Whether what is left after a fault is the whole of an operation or nothing of it, and whether that is what
// was said.
#pragma once

#include "faults/file_tree.h"
#include "faults/operations.h"

// What an operation finds and what it leaves when nothing goes wrong.
struct whole_states {
    file_tree before, after;
    std::vector<std::string> reloads; // the services that it tells
    success meaning = success::means_done;
};

// What a request's client has heard.
struct heard_reply {
    bool answered = false, succeeded = false;
    std::string text;
};

// What a try came to.
struct observation {
    file_tree at_once;        // when the daemon was gone
    file_tree present;        // after its next start
    bool memory_lost = false; // the files below /tmp went with the power
    heard_reply reply;

    bool call_failed = false;              // of the daemon, rather than the daemon or the power
    std::vector<std::string> failed_paths; // of the calls that failed; empty: they were not about files
    int error = 0;
    std::vector<std::string> messages; // to the system log, as sent

    bool must_reload = false;
    std::vector<std::string> reloads;
    std::string wrong; // what was seen to be wrong during the try
};

struct verdict {
    bool before = false, after = false;
    std::string wrong;   // what is neither; empty: nothing
    bool healed = false; // whole only since the next start
    std::string struck;  // the call that the fault met
};

verdict judge(const observation &seen, const whole_states &states);
