// Deletes one WAN with everything that refers to it.
#pragma once

#include <cstdint>

#include "base/bus_headers.h"

// What wan_delete() returns when no device section has the identifier.
inline constexpr int no_such_wan = -1;

// Deletes a WAN's identifier from the list, its device section, its interfaces with their places in firewall,
// multicast proxy, UPnP and DHCP (routed) or in the LAN bridge and its VLANs (bridged), and removes its
// scripts. Every deletion is tried, whatever became of the one before.
//
// `reload` nonzero: the multicast script and the reload of the system services (service/reload) are done
// here; zero: they are the caller's, but for what must follow when a DHCPv6 interface went. `keep_ids`
// nonzero: the WAN is written again at once, so an emptied identifier list does not start over.
//
// Returns 0, no_such_wan (nothing is changed), or the OR of the configuration calls that failed; both are
// logged. Within an operation.
int wan_delete(uint8_t wanId, int reload, int keep_ids);

// Bus method `del`.
int wan_handle_del(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                   blob_attr *message);
