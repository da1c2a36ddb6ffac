// A WAN on its way into its record: first from the configuration, then from the network daemon.
#pragma once

#include "wan/wan_config.h"

struct wan_reading {
    wan_config *record;  // zero but for wanId at the beginning
    const char *failure; // the log text that says why there is nothing more to read; null: there is
    int error;           // the results of what could not be read, by bitwise OR
};
