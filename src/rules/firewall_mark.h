// The firewall mark that ties a WAN's LAN ports to its policy routing.
#pragma once

#include <cstdint>

// The WAN's mark: one bit, identifier plus 11. Deliberate: identifiers above 20 take the bit of the first
// free identifier (or of their own modulo 32 when the list cannot be read), so two WANs may share one.
uint32_t wan_firewall_mark(uint8_t wan_id);
