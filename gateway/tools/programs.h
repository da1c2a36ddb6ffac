// Running the machine's programs from a stand-in.
#pragma once

#include "tools/journal.h"

#include <sys/types.h>

// Replaces this process by the machine's program `name`. Throws when there is no such program or it cannot be
// started.
[[noreturn]] void become_program(const std::string &name, const command_words &arguments);

// Starts words[0], found on PATH, with its standard output and error in the file at `output_path` (cut
// first), or with this process's when that is empty. Throws std::system_error when it cannot be started.
pid_t start_program(const command_words &words, const std::string &output_path);

// Waits until the child has ended and returns its exit status, 128 plus the signal's number when one ended
// it.
int wait_for_program(pid_t child);

// Runs words[0] without any output and returns its exit status as wait_for_program does.
int run_silently(const command_words &words);
