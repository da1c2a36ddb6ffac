// The runtime state of WANs' interfaces, as the network daemon reports it on the bus.
#pragma once

#include "status/status_commands.h"
#include "wan/wan_reading.h"

#include <span>

// Reads the state of some WANs, one after the other, while the status commands of those behind run already.
class ifstatus_reader {
public:
    // `asked`: steady_milliseconds() when the request came in.
    explicit ifstatus_reader(uint64_t asked) : commands_(asked) {}

    // Starts the first status commands, so that they run while the caller does something else. To be called
    // once, with the WANs in the order in which they will be read. Of each, the record's wanId, wanMode,
    // ipMode and ipProtocol are set, or the reading has failed: then it is not asked for.
    void ask(std::span<const wan_reading> wans);

    // Fills the runtime fields of the next of the WANs that have not failed, whose record this is: link
    // states, uptime, addresses, prefixes, gateways and DNS servers. What a reply does not name stays as it
    // was. A bridged WAN counts as up without asking. Returns 0, also when an interface is down, or -1 when a
    // command cannot be started or a document that is needed does not parse (logged). Takes no lock.
    int read(wan_config *record);

private:
    void ask_ahead();
    const char *next_reply();
    int read_ipv6_interface(wan_config *record);
    int read_ipv4_interface(wan_config *record);

    std::span<const wan_reading> wans_;
    size_t next_wan_ = 0;       // the first WAN whose commands have not all been started,
    size_t next_interface_ = 0; // and the first of its interfaces that has not been asked for
    status_commands commands_;
};
