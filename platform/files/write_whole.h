#pragma once

#include <cstddef>

// Writes all of it, in as many calls as that takes. False: something is missing, and errno says why.
bool write_whole(int descriptor, const char *data, size_t size);
