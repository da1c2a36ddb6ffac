// Finding the programs of the machine.
#pragma once

#include <string>

// Directory of the gateway's own programs, in front of all others on PATH.
inline constexpr char gateway_bin[] = "/gateway/bin";

// Path of the machine's program `name`: searched on PATH and then where system programs are installed, but
// never among the gateway's own. Empty when there is none.
std::string find_program(const std::string &name);
