// The changes that wait in the daemon, from its object korvel.state. Daemons of older versions have none.
#pragma once

#include "ctl/bus.h"
#include "ctl/output.h"

class waiting_changes {
public:
    // Returns whether the daemon tells; if not, there are none to look at.
    bool ask(bus_connection &bus);
    // Calls body(entry) with the table of each change: wanId, wanName, seconds, asked, changes.
    template <typename callable> void each(callable body) const
    {
        blob_attr *const list = bus_member(reply_.get(), "pending", BLOBMSG_TYPE_ARRAY);
        for (blob_attr *entry = nullptr; (entry = bus_next(list, entry, BLOBMSG_TYPE_TABLE)) != nullptr;)
            body(entry);
    }

private:
    bus_answer reply_;
};

// The arguments that a waiting change changes, "mtu, vid".
struct changed_words {
    char text[256];
    explicit changed_words(blob_attr *entry);
};
void write_waiting(json_writer &json, blob_attr *entry);
