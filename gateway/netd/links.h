// The network devices of the private root, made to follow the configuration. Every made device is one end of
// a pair, since not every kernel has VLAN devices; where the name has room, the other end is called "far-"
// and the name. What a VLAN device has of its parent is done here: it is not there without it, begins with
// its address, and never has a greater MTU. On request VLAN devices are the kernel's own.
#pragma once

#include "netd/ip_settings.h"
#include "netd/network_config.h"

#include <map>
#include <set>
#include <string>
#include <vector>

// What the kernel says of a device: "mtu", "address". Empty when there is no such device.
std::string device_attribute(const std::string &device, const char *attribute);

class links {
public:
    // Not enabled, all devices count as present and nothing is done.
    links(bool enabled, bool kernel_vlans);

    bool present(const std::string &device) const;
    // Whether the device is a VLAN that was there before this process: one that was killed has left it, and
    // as long as it is there nobody can use it.
    bool left_over(const std::string &device) const { return left_over_.contains(device); }

    // Removes VLAN devices that have changed or are no longer configured, sets the MTU and MAC addresses of
    // the other devices, makes the VLAN devices that are missing and puts bridges' ports in.
    void follow(const network_config &config, const std::set<std::string> &changed);

    // Removes all policy rules but the kernel's own.
    void flush_rules() const;

    // Gives the interface's device its addresses and routes; a dialled or tunnelled interface gets its device
    // first. A default route takes the place of another interface's of the same metric.
    void bring_up(const config_section &interface, const ip_settings &settings);
    // Takes back what the interface has brought, as far as it is there: its address may have gone with
    // another interface's that has the same.
    void take_down(const config_section &interface, const ip_settings &settings);

private:
    void remove_vlans(const network_config &config, const std::set<std::string> &changed);
    void make_vlans(const network_config &config);
    // Commands that make the interface's routes, its own from now on, and that remove those which no other
    // interface has taken since.
    std::string take_routes(const config_section &interface, const ip_settings &settings);
    std::string give_up_routes(const config_section &interface, const ip_settings &settings);

    enum class failures { told, expected };
    void run(const std::string &commands, failures how = failures::told, const char *family = "") const;

    bool enabled_;
    bool kernel_vlans_;
    std::string program_;
    std::set<std::string> made_; // VLAN devices
    std::set<std::string> left_over_;
    // The interface that each route of the kernel's main table belongs to, by what tells routes apart there.
    std::map<std::string, std::string> route_owners_;
};
