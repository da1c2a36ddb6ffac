// Memory from malloc with an owner.
#pragma once

#include <cstdlib>
#include <memory>

struct free_memory {
    void operator()(void *memory) const { free(memory); }
};

// Owns what malloc() or calloc() gave; `type` may be an array type.
template <typename type> using heap_ptr = std::unique_ptr<type, free_memory>;
