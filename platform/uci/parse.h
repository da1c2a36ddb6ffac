// Reading configuration files and streams.
#pragma once

#include "memory.h"
#include "model.h"

namespace uci {

// Parses a text, which is changed on the way, into p, recording changes if p does. `package` lines are
// checked and otherwise ignored.
int parse_package(package *p, bytes source);

// Parses a text into a new package of the context for each `package` line. *last_out is the last one, if any.
// On failure packages remain that the caller drops.
int parse_packages(context *ctx, bytes source, package **last_out);

} // namespace uci
