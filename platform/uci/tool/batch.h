// Commands from a file or standard input.
#pragma once

#include <span>

#include "session.h"

namespace uci_tool {

// Runs a command with its words; exit_misused: there is none such.
using command_runner = int (*)(session &tool, std::span<char *> words);

// Runs the commands of the session's input line by line until its end or the line "exit". Errors are reported
// and do not end the batch.
int run_batch(session &tool, command_runner run);

} // namespace uci_tool
