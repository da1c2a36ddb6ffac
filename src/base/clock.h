// The time of a clock that nobody sets, and of the one that people set, since 1970.
#pragma once

#include <cstdint>

uint64_t steady_milliseconds();
uint64_t wall_milliseconds();
