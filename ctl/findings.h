// What `check` finds: numbers that stay, words, and what to do about it.
#pragma once

#include "ctl/exit_status.h"

#include <cstddef>
#include <cstdint>

// Numbers are interface: they are printed, and scripts and manuals tell findings by them. None is given
// twice.
enum class finding : uint8_t {
    listed_without_device = 1,
    listed_twice = 2,
    device_not_listed = 3,
    device_without_name = 4,
    interface_without_wan = 5,
    wan_without_interface = 6,
    zone_entry_without_interface = 7,
    interface_outside_zone = 8,
    bridged_outside_bridge = 9,
    proxy_without_interface = 10,
    upnp_without_interface = 11,
    script_without_wan = 12,
    wan_without_script = 13,
    above_highest = 14,
    reserved_identifier = 15,
    shared_mark = 16,
    shared_port = 17,
    shared_vlan = 18,
    too_many_bridged = 19,
    ipv6_on_ports = 20,
    foreign_mark = 21,
    dhcp_without_interface = 22,
    no_wan_zone = 30,
    no_bridge = 31,
    no_iproute2 = 32,
    no_broute = 33,
    no_ipcalc = 34,
    rule_missing = 40,
    rule_doubled = 41,
    rule_without_wan = 42,
    no_main_rule = 43,
    wrong_gateway = 44,
    down_without_prohibit = 45,
};

// Prints findings as they come; as JSON in one object. The end tells how many there were.
class finding_report {
public:
    finding_report();
    finding_report(const finding_report &) = delete;
    finding_report &operator=(const finding_report &) = delete;

    // What is the case, and behind it what to do.
    finding_report &found(finding number, const char *pattern, ...) __attribute__((format(printf, 3, 4)));
    void remedy(const char *pattern, ...) __attribute__((format(printf, 2, 3)));
    // What could not be looked at. The first 16 are kept.
    void cannot_tell(const char *what);
    // Prints the rest. The result is `findings`, else `unknown`, else `done`.
    exit_status end();

private:
    static constexpr size_t most_unknown = 16;
    unsigned count_ = 0;
    size_t unknown_ = 0;
    char reasons_[most_unknown][160];
};
