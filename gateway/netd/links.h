// The network devices of the private root, made to follow the configuration. Every made device is one end of
// a pair, since not every kernel has VLAN devices; where the name has room, the other end is called "far-"
// and the name.
#pragma once

#include "netd/ip_settings.h"
#include "netd/network_config.h"

#include <set>
#include <string>
#include <vector>

// What the kernel says of a device: "mtu", "address". Empty when there is no such device.
std::string device_attribute(const std::string &device, const char *attribute);

class links {
public:
    // Not enabled, all devices count as present and nothing is done.
    explicit links(bool enabled);

    bool present(const std::string &device) const;

    // Makes VLAN devices that are missing, sets MTU and MAC addresses, puts bridges' ports in.
    void make(const std::vector<config_section> &devices);
    // Removes VLAN devices that are no longer configured.
    void remove_others(const std::vector<config_section> &devices);

    // Gives the interface's device its addresses and routes; a dialled or tunnelled interface gets its device
    // first.
    void bring_up(const config_section &interface, const ip_settings &settings);
    void take_down(const config_section &interface, const ip_settings &settings);

private:
    void run(const std::string &commands) const;

    bool enabled_;
    std::string program_;
    std::set<std::string> made_; // VLAN devices
};
