// The stand-in for ebtables.
#pragma once

#include "tools/journal.h"

// Does what `ebtables <arguments>` does and returns its exit status. The broute table is kept in a file,
// since current kernels lack it; every other table is the kernel's. Where the kernel has no bridge tables at
// all, the filter table is kept in a file, too, which the first call says in the log. Throws std::exception's
// children with the reason when it cannot do its work.
int run_ebtables(const command_words &arguments);
