// Blocks that pieces are cut from, one behind the other.
#include "arena.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace uci {
namespace {

// With the pointer to the block before and what the C library puts before that, a page. Under the address
// sanitizer every piece is a block, or it would not see what is read behind its end.
#ifdef __SANITIZE_ADDRESS__
constexpr size_t usual_room = 0;
#else
constexpr size_t usual_room = 4096 - 3 * sizeof(uint64_t);
#endif

} // namespace

// Leaves at least `size` free; what is left of the block before stays unused.
bool arena::add_block(size_t size)
{
    const size_t room = std::max(size, usual_room);
    auto *const fresh = static_cast<block *>(malloc(sizeof(block) + room));
    if (!fresh)
        return false;
    *fresh = {latest_};
    latest_ = fresh;
    free_ = reinterpret_cast<char *>(fresh + 1);
    left_ = room;
    return true;
}

void *arena::take(size_t size)
{
    const size_t whole = (size + alignment - 1) / alignment * alignment;
    if (whole > left_ && !add_block(whole))
        return nullptr;
    char *const piece = free_;
    free_ += whole;
    left_ -= whole;
    return piece;
}

char *arena::copy(const char *text)
{
    const size_t size = strlen(text) + 1;
    auto *const piece = static_cast<char *>(take(size));
    return piece ? static_cast<char *>(memcpy(piece, text, size)) : nullptr;
}

void arena::clear()
{
    while (latest_) {
        block *const previous = latest_->previous;
        free(latest_);
        latest_ = previous;
    }
    free_ = nullptr;
    left_ = 0;
}

} // namespace uci
