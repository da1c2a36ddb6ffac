// Tells the system services to take up a changed configuration.
#pragma once

#include <cstdint>

// What happened to the configuration. reload.cpp has the one table of who takes that up.
enum wan_change : uint8_t {
    wan_written = 1 << 0,
    wan_deleted = 1 << 1,
    all_wans_deleted = 1 << 2,
    // A WAN's DHCPv6 interface went, and the reload of the whole is somebody else's: the network daemon must
    // let go of the interface before one of the same name comes back.
    dhcpv6_deleted = 1 << 3,
    call_wan_deleted = 1 << 4, // the WAN carried telephone calls
};

// Runs "/etc/init.d/<name> reload" for each system service that the change concerns, in the table's order,
// and waits for it.
void reload_system_services(wan_change change);
