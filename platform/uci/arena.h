// Memory that is given back as a whole.
#pragma once

#include <cstddef>
#include <cstdint>

namespace uci {

// Many small pieces of memory that live as long as each other: taking one costs next to nothing, and none is
// given back before all are. All zero is the empty arena, which owns no memory.
class arena {
public:
    // Pieces are aligned for pointers, sizes and numbers of 64 bits.
    static constexpr size_t alignment = alignof(uint64_t);

    // Uninitialized memory, null when there is none.
    void *take(size_t size);
    // A copy of a text, null without memory.
    char *copy(const char *text);
    // Gives everything back and leaves the empty arena.
    void clear();

private:
    struct alignas(alignment) block {
        block *previous;
    };

    bool add_block(size_t size);

    block *latest_;
    char *free_; // what is left of the latest block
    size_t left_;
};

} // namespace uci
