// Which WAN an identifier means. Identifiers are given again: who has kept one for a while learns here
// whether it still means the same WAN, or still none.
#pragma once

#include <cstdint>

// A number that changes when a WAN of the identifier is made, or deleted for good, not to be written again at
// once. Any thread.
uint32_t wan_generation(uint8_t wan_id);

// To be called when that happens, to one WAN or to all, or is about to; that it then does not does no harm.
void wan_generation_ends(uint8_t wan_id);
void wan_all_generations_end();
