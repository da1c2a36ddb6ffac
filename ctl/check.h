// `korvelctl check`.
#pragma once

#include "base/config.h"
#include "ctl/exit_status.h"
#include "ctl/findings.h"
#include "ctl/wan_list.h"

#include <span>

exit_status run_check(std::span<char *const> words);

// The parts. `wans` are those that are listed and can be read, each once, with their links' state.

// Configurations and scripts on the disk.
void check_configuration(const uci_loaded &network, const wan_list &wans, finding_report &report);
// What has to be there for any WAN to work.
void check_prerequisites(const uci_loaded &network, finding_report &report);
// The kernel's rules and tables; for root.
void check_kernel(const wan_list &wans, finding_report &report);

// Whether a WAN binds a port of this board.
bool has_bound_ports(const wan_config &record);
// The section of a type at a position, as @device[0] has it; null when there are not so many.
uci_section *section_at(const uci_loaded &package, const char *type, size_t position);
// Whether a list option has an entry.
bool list_has(const uci_loaded &package, uci_section *section, const char *option, const char *entry);
