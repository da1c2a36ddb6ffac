#include "store/deletions.h"

namespace {

constinit uint32_t deletions[UINT8_MAX + 1] = {};

} // namespace

uint32_t wan_deletions(uint8_t wan_id)
{
    return deletions[wan_id];
}

void wan_note_deletion(uint8_t wan_id)
{
    deletions[wan_id]++;
}

void wan_note_all_deleted()
{
    for (uint32_t &each : deletions)
        each++;
}
