// The commands of the tool.
#pragma once

#include <span>

#include "session.h"

namespace uci_tool {

// Runs the command that the first word names; the words are changed on the way. Nothing stays loaded.
// exit_misused: no such command, or a wrong number of words, and nothing was done or printed.
int run_command(session &tool, std::span<char *> words);

} // namespace uci_tool
