// What the board and the network daemon tell on the bus.
#pragma once

#include "ctl/bus.h"
#include "wan/wan_config.h"

// Asks the board for its ports, once. False: it does not tell.
bool load_ports();

// Fills in what the kernel's rules of a WAN depend on: whether its IPv4 link is up, and with which address
// and gateway, which are empty when it is not. The record's wanId, wanMode and ipProtocol are set; a bridged
// WAN is up without asking.
void read_link_state(bus_connection &bus, wan_config *record);
