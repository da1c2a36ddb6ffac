// `try`, `confirm` and `take-back`: a change that goes again unless somebody confirms it.
//
// What a try needs to be taken back is on the disk before the change is made: a safe point, and a file that
// says that a try waits. A guard, a process of its own that needs neither its caller nor a terminal, takes
// the change back when its time is up. Who takes the file away by renaming it, the guard or `confirm`, has
// decided. A file that is left without a guard (the gateway has restarted, the guard was killed) is found by
// the next start of the daemon's service.
#pragma once

#include "ctl/exit_status.h"

#include <span>

using change_function = exit_status (*)(std::span<char *const> words);

exit_status run_try(std::span<char *const> words);
exit_status run_confirm(std::span<char *const> words);
exit_status run_take_back(std::span<char *const> words);

// Whether a try waits to be confirmed.
bool try_waits();
