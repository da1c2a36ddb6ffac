// Takes over a list of WAN definitions that was handed to the gateway before the daemon started.
#pragma once

// Reads /tmp/wan_list and up to eight definition files that it names, creates a WAN from each usable one
// (replacing all configured WANs when the first is usable), and removes the list and the files it has read. A
// file that somebody else can have put there is left alone. Outcomes are logged. Before the bus
// is connected.
void wan_import_custom();
