// Completes what earlier operations decided and did not end.
#pragma once

#include <span>

// Completes every decided operation that nobody is at work on, its commands included, and removes the records
// of those that decided nothing. False: one of them cannot be completed now, which is logged; nothing else
// may change before it is.
bool complete_recorded_operations();

// The same when the process starts; and then removes the temporary files of operations that were not decided
// from the directory of the configurations and from these, unless another process is at work on an operation.
void recover_operations(std::span<const char *const> script_directories);
