// What the launcher is asked to do.
#pragma once

#include "tools/journal.h"

#include <string>

struct launcher_options {
    bool help = false;
    bool bare = false; // start neither log, bus, network daemon nor korvel
    bool start_korvel = true;
    bool show_journal = false;
    bool show_log = false;
    std::string pace = "fast"; // at which interfaces come up, or "real"
    std::string config;        // directory whose files replace those in /etc/config; empty: none
    std::string programs;      // directory whose programs replace the gateway's; empty: none
    command_words command;     // to run in the gateway; empty: an interactive shell
};

extern const char launcher_usage[];

// Reads the command line. Throws std::invalid_argument, with the reason as text, when it cannot be
// understood.
launcher_options parse_launcher_options(int argc, char *const argv[]);
