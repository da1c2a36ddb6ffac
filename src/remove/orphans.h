// Pieces of WANs that belong to no WAN: what older versions left when they were cut short half-way.
#pragma once

#include <cstddef>
#include <cstdint>

enum class orphan_kind : uint8_t {
    device,        // a device section with a VLAN or a link name but without a name
    interface,     // a WAN interface without a device section
    zone_entry,    // an entry of a firewall zone for a WAN interface that is not there
    reference,     // what names a WAN's interface that is not there (remove/references.h)
    bridge_script, // a script without a device section
    route_script,
    listed,       // an identifier on the list without a device section
    listed_twice, // or there more than once
};

struct orphan {
    orphan_kind kind;
    uint8_t id;       // of a script; the row of a reference
    char section[64]; // of the configuration
    char text[64];    // the zone's entry, the script's path, the identifier
};

// Found first and dealt with later, since a removal changes what is walked.
struct orphan_list {
    orphan *rows = nullptr;
    size_t size = 0;

    orphan_list() = default;
    ~orphan_list();
    orphan_list(const orphan_list &) = delete;
    orphan_list &operator=(const orphan_list &) = delete;

    // What memory is too short for fails the operation, if there is one, and is logged.
    void add(orphan_kind kind, uint8_t id, const char *section, const char *text);
};

// Finds them all. Changes nothing.
void wan_find_orphans(orphan_list &found);

// Logs each of them. Changes nothing.
void wan_log_orphans();

// Removes them, but for the identifiers, after the scripts are run with "-r". Returns how many there were.
// Within an operation.
unsigned wan_remove_orphans();
