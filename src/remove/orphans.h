// Pieces of WANs that belong to no WAN: what older versions left when they were cut short half-way.
#pragma once

// Logs each of them: device sections with a VLAN or a link name but without a name, WAN interfaces and
// scripts without a device section, entries of a firewall zone for WAN interfaces that are not there,
// identifiers on the list without a device section or there more than once. Changes nothing.
void wan_log_orphans();

// Removes them, but for the identifiers, after the scripts are run with "-r". Returns how many there were.
// Call with the handler mutex held, or before the bus is connected.
unsigned wan_remove_orphans();
