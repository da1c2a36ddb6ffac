// What is stored, read as the daemon does before it lays a waiting change over it.
#pragma once

#include "wan/wan_config.h"

// Takes the settings that reading depends on, once. False: this user may not read the configuration, or there
// is none of this daemon.
bool load_stored_settings();

// Reads a WAN such that sending all of it back would change nothing; what a link has learnt is left out.
// False: there is none, or it cannot be read.
bool read_stored(uint8_t wan_id, wan_config *record_out);

// What the daemon's own check says of a WAN as it would be: 0, or -2 to -4. `own_id` 0 is a new WAN's.
int stored_conflict(const wan_config &record, uint8_t own_id);
