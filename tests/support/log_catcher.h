// The system log of a test: the socket /dev/log, drained by a thread from the first use to the end of the
// process, so that nobody who logs ever waits.
#pragma once

#include "support/gateway.h"

#include <vector>

// Starts catching, once per process, then forgets what was caught so far.
void log_catcher_restart();

// What was logged since then, in order. Every message that was sent before the call is in it.
std::vector<log_entry> log_catcher_entries();
