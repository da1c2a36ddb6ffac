// MAC addresses of WAN devices.
#pragma once

#include <cstdint>

// Derives a WAN's address from the LAN bridge's by adding the identifier (from 8 on, the first free one) to
// its low three octets. Writes "xx:xx:xx:xx:xx:xx" and returns 0; when the bridge has no address that can be
// parsed, logs that, returns -1 and leaves mac_out as it was.
int wan_derive_mac(uint8_t wan_id, char (&mac_out)[18]);

// Reads a network device's current address. Returns 0, or -1 (logged) when there is no such device; one whose
// address cannot be read leaves mac_out as it was.
// Deliberate: only the first 8 characters of the address are taken; what mac_out holds behind them stays. A
// shorter address ends the text.
int wan_read_dev_mac(const char *device, char (&mac_out)[18]);
