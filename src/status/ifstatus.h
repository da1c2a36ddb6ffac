// The runtime state of a WAN's interfaces, as the network daemon reports it on the bus.
#pragma once

#include "wan/wan_config.h"

// Fills the runtime fields of a record whose wanId, wanMode, ipMode and ipProtocol are set: link states,
// uptime, addresses, prefixes, gateways and DNS servers. What a reply does not name stays as it was. A
// bridged WAN counts as up without asking. Returns 0, also when an interface is down, or -1 when a command
// cannot be started or a document that is needed does not parse (logged). Waits for one or two bus calls;
// takes no lock.
int wan_read_ifstatus(wan_config *record);
