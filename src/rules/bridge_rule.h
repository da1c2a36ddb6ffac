// The script that keeps a bridged WAN and the LAN ports that are not bound to it apart.
#pragma once

#include "rules/rule_ctx.h"

// Writes the WAN's /etc/korvel/rule_wan_<id>.sh, but not for a device whose name a shell could take for more
// than a name; does not run it. Failures are logged.
void wan_write_bridge_rule(const wan_rule_ctx *ctx);

// Removes the script, if there is one. Failures are logged.
void wan_remove_bridge_rule(uint8_t wan_id);
