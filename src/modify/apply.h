// Changes a WAN: deletes its configuration and writes it again under the same identifier.
#pragma once

#include "wan/wan_config.h"

// Applies a record to the WAN that its wanId names, and tells the hotplug system. Returns 0; a conflict
// (conflicts.h, -2 to -4, logged), upon which nothing was changed; or the deletion's result when that failed,
// upon which nothing was written. Afterwards the identifier stands last in the list. Call with the handler
// mutex held. Waits for reloads.
int wan_modify_apply(const wan_config *config);
