#include "rules/firewall_mark.h"

#include "store/id_list.h"

namespace {

constexpr uint32_t first_mark_bit = 11;
constexpr uint8_t highest_own_bit = 20;

} // namespace

uint32_t wan_firewall_mark(uint8_t wan_id)
{
    return uint32_t{1} << ((wan_own_or_free_id(wan_id, highest_own_bit) + first_mark_bit) % 32);
}
