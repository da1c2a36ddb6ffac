// Ownership of C allocations. The library is linked into programs without a C++ run-time library, so nothing
// here throws: an allocation that fails yields null.
#pragma once

#include <cstdlib>
#include <cstring>
#include <memory>

namespace uci {

struct free_memory {
    void operator()(void *block) const { free(block); }
};

using text = std::unique_ptr<char, free_memory>;

// A copy of a string, null without memory.
inline text copy_text(const char *source)
{
    return text(strdup(source));
}

// "DIRECTORY/NAME", null without memory.
text join_path(const char *directory, const char *name);

// The contents of a file; data[size] is a NUL that size does not count.
struct bytes {
    text data;
    size_t size = 0;
};

} // namespace uci
