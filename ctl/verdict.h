// Would a change do what is meant? What is wrong is told with what would be right, before anything is sent.
#pragma once

#include "ctl/request.h"
#include "ctl/wan_list.h"

// `done`, or why the change is refused.
struct verdict {
    exit_status status = exit_status::done;
    char text[400] = {};

    explicit operator bool() const { return status != exit_status::done; }
    // Keeps the first refusal.
    void refuse(exit_status why, const char *pattern, ...) __attribute__((format(printf, 3, 4)));
};

// Judges a WAN as it would be, `record`, beside the others that there are. `request.wan_id` is not among
// those that it is compared with.
verdict judge(const wan_request &request, const wan_config &record, const wan_list &wans);

// The WAN that keeps another from its VLAN or multicast VLAN, from its ports; null when none does.
const wan_config *vlan_holder(const wan_config &record, uint8_t own_id, const wan_list &wans);
const wan_config *port_holder(const wan_config &record, uint8_t own_id, const wan_list &wans);
