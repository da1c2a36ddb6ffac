// The process-wide settings that the configuration holds, and the integer reader that they are read with.
#pragma once

#include "base/text.h"
#include "wan/wan_config.h"

#include <atomic>
#include <cstdint>

// The highest WAN identifier that may exist. Written at start-up, and then by the identifier list only,
// within an operation. Queries read it at any time.
extern std::atomic<uint32_t> maxWanId;

// The uplink network device, "pon" when the configuration names none. Set at start-up, only read afterwards.
extern char uplink_name[12];

// The uplink's name followed by a point, cut to 9 characters: a tagged WAN's device is this and its VLAN id.
// Deliberate: an uplink name of 9 characters or more leaves no room for the point, and devices are named
// accordingly.
extern char vlan_prefix[10];

// The network device of a WAN: the uplink's VLAN device when it is tagged, else the uplink itself. name_out
// of 12 bytes; a longer name is cut.
void wan_device_name(const wan_config &config, text_ref name_out);

// Reads the settings. Returns 0, or -1 when `maxWanId` cannot be read; that and a missing uplink name are
// logged.
int settings_load();

// Reads an option of a section of the `network` configuration as a decimal number. Returns 0, or the
// configuration library's non-zero result, in which case *value_out stays as it was.
int uci_get_int(const char *section, const char *option, uint32_t *value_out);
