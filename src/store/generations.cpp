#include "store/generations.h"

#include <atomic>

namespace {

constinit std::atomic<uint32_t> generations[UINT8_MAX + 1] = {};

} // namespace

uint32_t wan_generation(uint8_t wan_id)
{
    return generations[wan_id];
}

void wan_generation_ends(uint8_t wan_id)
{
    generations[wan_id]++;
}

void wan_all_generations_end()
{
    for (std::atomic<uint32_t> &each : generations)
        each++;
}
