// The hotplug script that routes a WAN's own traffic and that of its LAN ports through the WAN's routing
// table.
#pragma once

#include "rules/rule_ctx.h"

// A WAN's routing table is its identifier and this.
inline constexpr uint32_t first_wan_table = 100;

// Writes the WAN's /etc/hotplug.d/iface/99-wan_<id>; does not run it. Failures are logged.
void wan_write_route_rule(const wan_rule_ctx *ctx);

// Removes the script, if there is one. Failures are logged.
void wan_remove_route_rule(uint8_t wan_id);
