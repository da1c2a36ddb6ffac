// How often each WAN was deleted since the daemon's start. An identifier is given again: who has kept one for
// a while learns here whether it still means the same WAN.
#pragma once

#include <cstdint>

// Bus thread, or with the handler mutex held.
uint32_t wan_deletions(uint8_t wan_id);

// Notes that a WAN, or all of them, were deleted for good, not to be written again at once. Bus thread, with
// the handler mutex held.
void wan_note_deletion(uint8_t wan_id);
void wan_note_all_deleted();
