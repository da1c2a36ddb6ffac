// The kernel interfaces behind the positions of a port binding.
#pragma once

#include "wan/wan_config.h"

#include <cstddef>

// The size of a port list's buffer.
inline constexpr size_t port_list_size = 128;

// Lists the interfaces of the ports that `wan->bind` binds and, when `unbound` is not null, of the others,
// separated by blanks, in board order. Both buffers hold port_list_size bytes and come in filled with zeros.
// A name that no longer fits is left out whole and logged.
void wan_build_port_lists(const wan_config *wan, char *bound, char *unbound);
