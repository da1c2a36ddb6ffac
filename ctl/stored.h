// What is stored, read from the configuration alone: what a link has learnt is no part of it.
#pragma once

#include "base/config.h"
#include "wan/wan_config.h"

// Takes the settings that reading depends on, once. False: this user may not read the configuration, or there
// is none of this daemon.
bool load_stored_settings();

// Reads a WAN such that sending all of it back would change nothing. False: there is none, or it cannot be
// read. Settings have to be loaded.
bool read_stored(const uci_loaded &network, uint8_t wan_id, wan_config *record_out);
// The same with the settings and the configuration read before.
bool read_stored(uint8_t wan_id, wan_config *record_out);

// What the daemon's own check says of a WAN as it would be: 0, or -2 to -4. `own_id` 0 is a new WAN's.
int stored_conflict(const wan_config &record, uint8_t own_id);
