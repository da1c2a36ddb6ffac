// What korvelctl ends with. The numbers are interface: scripts tell by them what happened.
#pragma once

#include <cstdint>

enum class exit_status : uint8_t {
    done = 0,
    findings = 1,      // `check` found something
    unknown = 2,       // `check` could not tell
    usage = 3,         // the command line or the combination is wrong; nothing was sent
    no_such = 4,       // no such WAN
    vlan_taken = 5,    // the daemon's -2
    port_bound = 6,    // the daemon's -3
    port_required = 7, // the daemon's -4
    refused = 8,       // refused or failed otherwise
    no_daemon = 9,     // the bus or the daemon is not there
    no_answer = 10,    // nothing came in time, and what became of the request is not known
    denied = 11,       // the bus or the system does not let this user
};

// One row for each, in their order.
struct exit_status_row {
    exit_status status;
    const char *meaning;
};
inline constexpr exit_status_row exit_statuses[] = {
    {exit_status::done, "done"},
    {exit_status::findings, "check: something was found"},
    {exit_status::unknown, "check: could not tell"},
    {exit_status::usage, "wrong command line or combination of options; nothing was sent"},
    {exit_status::no_such, "no such WAN"},
    {exit_status::vlan_taken, "another WAN has the VLAN"},
    {exit_status::port_bound, "a port is bound to another WAN"},
    {exit_status::port_required, "a bridged WAN of service other binds no port"},
    {exit_status::refused, "refused, or failed on the gateway"},
    {exit_status::no_daemon, "the bus or the daemon is not there"},
    {exit_status::no_answer, "no answer in time, and it is not known what became of the request"},
    {exit_status::denied, "not permitted"},
};
