// Commands from a file or standard input.
#pragma once

#include "session.h"

namespace uci_tool {

// Runs the commands of the session's input line by line until its end or the line "exit". Errors are reported
// and do not end the batch.
int run_batch(session &tool);

} // namespace uci_tool
