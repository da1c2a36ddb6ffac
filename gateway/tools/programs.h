// Running the machine's programs from a stand-in.
#pragma once

#include "tools/journal.h"

// Replaces this process by the machine's program `name`. Throws when there is no such program or it cannot be
// started.
[[noreturn]] void become_program(const std::string &name, const command_words &arguments);

// Runs words[0], a path, without any output and returns its exit status, 128 plus the signal when one ended
// it.
int run_silently(const command_words &words);
