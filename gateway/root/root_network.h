// The network of a private root: a LAN bridge with its ports and an uplink, none of them connected to the
// machine.
#pragma once

#include "root/root_options.h"

// Address of the LAN bridge, from which WAN addresses are derived.
inline constexpr char lan_bridge_mac[] = "00:11:22:33:44:55";

// Brings up lo and, unless the options say otherwise, br-lan (192.168.1.1/24), the ports in it and the
// uplink. Each of them is one end of a pair; the other end is called "far-" and the name. The process must be
// alone in a new network namespace. Throws std::system_error or std::runtime_error with the failing step.
void bring_up_network(const private_root_options &options);
