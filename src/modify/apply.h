// Changes a WAN: deletes its configuration and writes it again under the same identifier.
#pragma once

#include "wan/wan_config.h"

// What wan_modify_apply() returns when something could not be read or written.
inline constexpr int modification_failed = -1;

// Applies a record to the WAN that its wanId names, and tells the hotplug system. Returns 0; or a conflict
// (conflicts.h, -2 to -4), the deletion's result when that failed, or modification_failed: all are logged,
// and nothing was changed. Afterwards the identifier stands last in the list. In
// the lane of changes; waits for reloads.
int wan_modify_apply(const wan_config *config);
