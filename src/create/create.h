// Turns a record into the gateway's configuration. The only writer of a WAN's configuration.
#pragma once

#include "wan/wan_config.h"

// What wan_write() returns when each identifier is in use.
inline constexpr int no_identifier_left = -1;

// Writes a WAN: its device section, its interfaces (routed) or its place in the LAN bridge (bridged), its
// entries in firewall, multicast proxy and UPnP, its scripts. fixed_id 0 checks for conflicts and takes a new
// identifier, any other value writes the WAN under that identifier without a check. Arguments are not judged
// here.
//
// Returns 0, or what refused the WAN before anything was written, which is logged: a conflict (conflicts.h,
// -2 to -4) or that no identifier is left. A write that fails is logged, the others are still made, and the
// result stays 0. Within an operation.
int wan_write(const wan_config *config, uint8_t fixed_id);

// wan_write(), and unless that was refused the reload of the system services. Same locking.
int wan_create(const wan_config *config, uint8_t fixed_id);
