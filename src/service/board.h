// How many ports of each kind the gateway has. The counts decide what the positions of a port binding mean.
#pragma once

// Set once at start-up by nemtra_init_lan_num() and only read afterwards; 0 for a kind that the board does
// not name.
extern int lan_num;
extern int lan_phy_num;
extern int wlan_2g_num;
extern int wlan_5g_num;

// Asks the board description on the bus for the four counts. A description that cannot be had or parsed is
// logged and leaves all of them 0. Before the bus object is registered.
void nemtra_init_lan_num();

// The number of LAN-side ports: the sum of the four counts, 0 when that is negative.
int board_port_count();
