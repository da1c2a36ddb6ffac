#include "rules/firewall_mark.h"

#include "store/id_list.h"

namespace {

constexpr uint32_t first_mark_bit = 11;
constexpr uint8_t highest_own_bit = 20;

uint32_t mark_source(uint8_t wan_id)
{
    if (wan_id <= highest_own_bit)
        return wan_id;
    const uint32_t first_free = wan_min_free_id();
    return first_free == no_free_id ? wan_id : first_free;
}

} // namespace

uint32_t wan_firewall_mark(uint8_t wan_id)
{
    return uint32_t{1} << ((mark_source(wan_id) + first_mark_bit) % 32);
}
