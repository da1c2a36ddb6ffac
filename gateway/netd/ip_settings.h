// The IP settings of an interface that is up: its addresses, routes and servers. They come from its
// configuration or, for the protocols that ask a provider, from addresses for documentation which follow from
// the digits in the interface's name: wan_3 always gets what wan_3 got before.
#pragma once

#include "netd/network_config.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

struct lifetime {
    int preferred;
    int valid;
};

struct address {
    std::string text;
    int mask;
    std::string peer;               // empty: none
    std::optional<lifetime> leased; // nothing: for ever
};

struct route {
    std::string target;
    int mask;
    std::string next_hop;
    std::string source; // "address/length"
    int metric = 0;     // 0: not said
    int valid = 0;      // 0: for ever
};

struct prefix {
    std::string text;
    int mask;
    std::optional<lifetime> leased;
    std::string owner; // interface that it was delegated to
};

struct ip_settings {
    std::vector<std::string> updated; // what the protocol has changed since the interface came up
    std::vector<address> v4;
    std::vector<address> v6;
    std::vector<prefix> prefixes;
    std::vector<route> routes;
    std::vector<std::string> servers; // DNS, configured ones first
    std::vector<std::string> search;  // domains
    // Known, but kept out of use by the configuration.
    std::vector<route> inactive_routes;
    std::vector<std::string> inactive_servers;
    std::vector<std::string> inactive_search;
    int lease_seconds = 0;      // 0: not said
    std::string passed_through; // DHCPv6 options for the LAN, in hexadecimal
};

// The network device of the interface's traffic: another one than the device below it for dialled and
// tunnelled ones.
std::string layer3_device(const config_section &interface);
// The device below; empty when the protocol has none.
std::string lower_device(const config_section &interface);
// Whether a new interface reports that it is down before it negotiates.
bool begins_down(const config_section &interface);
// How long an interface of its protocol takes to come up on a real line.
int real_negotiation_seconds(const config_section &interface);

// The provider on the other side. What it gives follows from the digits in the interface's name, so wan_3
// gets what wan_3 got before; but it knows a DHCP client by its device's MAC address, so two interfaces on
// one device have one lease, that of the first.
class provider {
public:
    // `client_address`: the MAC address of the interface's device; empty when it is the device's own.
    ip_settings settings_of(const config_section &interface, const std::string &client_address);

private:
    std::map<std::pair<std::string, std::string>, unsigned> leases_; // by device and MAC address
};

// The IPv6 side that a dialled interface brings up by itself, as a section; nothing when it has none.
std::optional<config_section> dynamic_v6_side(const config_section &interface);
