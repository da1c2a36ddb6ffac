// The script that keeps bridged WANs which share the LAN bridge from forwarding to each other.
#pragma once

#include <cstddef>

// So many bridged WANs get rules of their own. Deliberate: a ninth is kept apart in one direction only.
inline constexpr size_t most_isolated_devices = 8;

// Removes the present script, and writes a new one from the LAN bridge's ports when two or
// more of them are WAN devices with names that a shell takes for nothing else; does not run that. A bridge
// without a `ports` list leaves the script alone. Failures are logged.
void wan_write_isolate_rule();

// Removes the script, if there is one. Failures are logged.
void wan_remove_isolate_rule();
