// The script that maps each WAN's multicast VLAN to its own VLAN in the IGMP control program.
#pragma once

// Writes the script from the device sections that have both VLANs; does not run it. Without any, removes the
// script and clears the control program at once. Failures are logged.
void wan_write_mvlan_rule();
