// The reply of an interface's method `status`, in the network daemon's shape.
#pragma once

#include "netd/bus_headers.h"
#include "netd/ip_settings.h"
#include "netd/network_config.h"

#include <string>
#include <vector>

// A prefix that an interface of the LAN has taken its part of.
struct prefix_assignment {
    std::string text;
    int mask;
    std::optional<lifetime> leased;
};

// Why an interface did not come up.
struct interface_error {
    std::string subsystem;
    std::string code;
};

enum class link_state { down, pending, up };

struct interface_status {
    const config_section *section;
    link_state state;
    bool available;
    bool autostart;
    bool dynamic;
    int uptime; // seconds
    const ip_settings *settings;
    std::string downstream;  // interface that gets the prefixes; empty: none
    int downstream_mask = 0; // size of its part
    std::vector<prefix_assignment> assignments;
    std::vector<interface_error> errors;
};

// Adds the members to the open container.
void add_status(blob_buf *reply, const interface_status &status);
