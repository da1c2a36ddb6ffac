// May a WAN be written next to those that are configured?
#pragma once

#include "wan/wan_config.h"

// Results of operations on WANs; bus replies carry them as "status".
enum : int {
    conflict_none = 0,
    conflict_unreadable = -1,    // `network` could not be loaded
    conflict_vlan = -2,          // the VLAN is taken, or is a LAN port's own
    conflict_port_bound = -3,    // a port is already bound to another WAN
    conflict_port_required = -4, // a bridged "OTHER" WAN binds no port
};

// Compares a WAN with the device sections of `network`, leaving out the section named exclude_section (null:
// none). Writes and logs nothing. Returns the first conflict found, and in *other_out, which may be null, the
// identifier of the WAN that it is with; 0 when it is with none.
int wan_check_conflicts(const wan_config *config, const char *exclude_section, uint8_t *other_out = nullptr);

// Logs a conflict as "Failed to <verb> wan: …" and notes it, with the other WAN, as what refuses the change.
// Returns whether `result` is one that refuses the operation; another result, conflict_unreadable among them,
// does not.
bool wan_conflict_refuses(int result, const char *verb, const wan_config *config, uint8_t other = 0);
