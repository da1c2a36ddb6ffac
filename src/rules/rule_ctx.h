// What the creation of a WAN hands to the writers of its scripts.
#pragma once

#include "wan/wan_config.h"

struct wan_rule_ctx {
    uint8_t wanId;
    char lkname[35]; // at most 33 characters and a terminator
    wan_config config;
};
