// The `network` configuration as the stand-in uses it: plain copies of the sections, so that two states of it
// can be compared.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

struct config_option {
    std::string name;
    std::vector<std::string> values; // one for a plain option
    bool operator==(const config_option &) const = default;
};

struct config_section {
    std::string name;
    std::vector<config_option> options;
    bool operator==(const config_section &) const = default;

    // The first value; empty when the option is missing.
    std::string text(const char *option) const;
    int number(const char *option, int missing) const;
    bool has(const char *option) const;
    // All values; a plain option is taken apart at blanks, as the network daemon does.
    std::vector<std::string> list(const char *option) const;
    // Of a device: whether it is a VLAN on the device `ifname`.
    bool is_vlan() const;
    // Whether the network daemon sees no difference between the sections: names count for nothing, and so do
    // the options that other programs keep in its configuration.
    bool means_the_same_as(const config_section &other) const;
    // Of an interface: whether it is brought up without being asked for.
    bool starts_by_itself() const;
};

struct network_config {
    std::vector<config_section> devices;
    std::vector<config_section> interfaces;
};

// Reads it with pending changes. Nothing when it cannot be read or parsed; the reason is on standard error.
std::optional<network_config> read_network_config();

// The section that rules a device, the last of its name; nullptr when there is none.
const config_section *find_device(const network_config &config, const std::string &device);

// The devices that are set up anew when the configuration `next` follows `before`: the new ones, those that
// are gone, and those that get other options. Each section of a device is set up in turn, so one whose
// sections differ is set up anew every time.
std::set<std::string> changed_devices(const network_config &before, const network_config &next);

// With the VLAN devices on them: a parent that is set up takes the link from those.
std::set<std::string> interrupted_devices(const std::set<std::string> &changed, const network_config &next);
