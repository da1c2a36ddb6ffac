// Writes again the scripts that are missing at start-up, after their file system was wiped or a configuration
// restored.
#pragma once

#include <span>

// The directories of all scripts, outer ones first.
std::span<const char *const> wan_script_directories();

// Makes the directories of the scripts where they are missing too. For every WAN on the list whose script is
// missing, writes it from the configuration (for a bridged one also the isolation script), then rebuilds the
// multicast-VLAN script. Present scripts stay, none is run. Outcomes are logged. Before the bus
// is connected.
void wan_regen_missing_rules();
