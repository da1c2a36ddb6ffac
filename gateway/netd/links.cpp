#include "netd/links.h"

#include "root/find_program.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <net/if.h>
#include <string_view>

namespace {

namespace fs = std::filesystem;

bool exists(const std::string &device)
{
    return if_nametoindex(device.c_str()) != 0;
}

std::string class_entry(const std::string &device, const char *attribute)
{
    return "/sys/class/net/" + device + "/" + attribute;
}

std::string bridge_of(const std::string &device)
{
    std::error_code none; // a device outside every bridge has no such link
    return fs::read_symlink(class_entry(device, "master"), none).filename();
}

// One command of a batch; words may hold several words, or none.
std::string line(std::initializer_list<std::string_view> words)
{
    std::string text;
    for (const std::string_view word : words) {
        if (word.empty())
            continue;
        text += word;
        text += ' ';
    }
    text.back() = '\n';
    return text;
}

std::string pair_commands(const std::string &device)
{
    const std::string far = "far-" + device;
    const std::string up = line({"link set", device, "up"});
    if (far.size() >= IF_NAMESIZE)
        return line({"link add", device, "type veth"}) + up;
    return line({"link add", device, "type veth peer name", far}) + line({"link set", far, "up"}) + up;
}

int mtu_of(const std::string &device)
{
    return atoi(device_attribute(device, "mtu").c_str());
}

std::string mtu_command(const std::string &device, int mtu)
{
    return line({"link set dev", device, "mtu", std::to_string(mtu)});
}

// Settings of a device that is there whatever the configuration says.
std::string attribute_commands(const config_section &section)
{
    const std::string device = section.text("name");
    std::string commands;
    for (const auto &[option, attribute] : {std::pair{"mtu", "mtu"}, std::pair{"macaddr", "address"}}) {
        const std::string value = section.text(option);
        if (!value.empty() && device_attribute(device, attribute) != value)
            commands += line({"link set dev", device, attribute, value});
    }
    return commands;
}

std::string vlan_on(const std::string &parent, const std::string &device, const std::string &vid)
{
    return line({"link add link", parent, "name", device, "type vlan id", vid}) +
           line({"link set", device, "up"});
}

std::string vlan_commands(const config_section &section, bool kernel_vlans)
{
    const std::string device = section.text("name");
    const std::string parent = section.text("ifname");
    const std::string own_address = section.text("macaddr");
    const int most = mtu_of(parent);
    const std::string made =
        kernel_vlans ? vlan_on(parent, device, section.text("vid")) : pair_commands(device);
    return made + mtu_command(device, std::min(section.number("mtu", most), most)) +
           line({"link set dev", device, "address",
                 own_address.empty() ? device_attribute(parent, "address") : own_address});
}

std::string bridge_commands(const config_section &section)
{
    const std::string bridge = section.text("name");
    std::string commands;
    if (!exists(bridge))
        commands += line({"link add", bridge, "type bridge"}) + line({"link set", bridge, "up"});
    const std::vector<std::string> ports = section.list("ports");
    std::set<std::string> surplus;
    std::error_code none; // a new bridge has no ports yet
    for (const fs::directory_entry &port : fs::directory_iterator(class_entry(bridge, "brif"), none))
        surplus.insert(port.path().filename());
    for (const std::string &port : ports) {
        surplus.erase(port);
        if (exists(port) && bridge_of(port) != bridge)
            commands += line({"link set", port, "master", bridge, "up"});
    }
    for (const std::string &port : surplus)
        commands += line({"link set", port, "nomaster"});
    return commands;
}

std::string address_words(const address &own)
{
    const std::string local = own.peer.empty() ? own.text : own.text + " peer " + own.peer;
    return local + "/" + std::to_string(own.mask);
}

// The family follows from the target.
std::string route_words(const char *operation, const route &path, const std::string &device)
{
    const bool direct = path.next_hop == "0.0.0.0" || path.next_hop == "::";
    const std::string hop = direct ? "" : "via " + path.next_hop;
    const std::string metric = path.metric ? "metric " + std::to_string(path.metric) : "";
    return line(
        {"route", operation, path.target + "/" + std::to_string(path.mask), hop, "dev", device, metric});
}

// An IPv6 route for one prefix stands beside others with the same target. Its source is left out, since not
// every kernel has such routes.
bool is_source_specific(const route &path)
{
    return path.target.find(':') != std::string::npos && !path.source.ends_with("/0");
}

// What the kernel tells a route by.
std::string route_key(const route &path, const std::string &device)
{
    const std::string key =
        path.target + "/" + std::to_string(path.mask) + " metric " + std::to_string(path.metric);
    return is_source_specific(path) ? key + " via " + path.next_hop + " dev " + device : key;
}

// The routes as the kernel gets them: with the interface's metric, unless they have one.
std::vector<route> kernel_routes(const config_section &interface, std::vector<route> routes)
{
    for (route &path : routes)
        path.metric = path.metric ? path.metric : interface.number("metric", 0);
    return routes;
}

// A made device exists as long as its interface is up.
bool has_own_device(const config_section &interface)
{
    return layer3_device(interface) != lower_device(interface);
}

} // namespace

std::string device_attribute(const std::string &device, const char *attribute)
{
    std::ifstream in(class_entry(device, attribute));
    std::string value;
    in >> value;
    return value;
}

links::links(bool enabled, bool kernel_vlans)
    : enabled_(enabled), kernel_vlans_(kernel_vlans), program_(find_program("ip"))
{}

void links::run(const std::string &commands, failures how, const char *family) const
{
    if (commands.empty())
        return;
    // Each line is independent: one that fails is told by ip, the others are done.
    const bool told = how == failures::told;
    FILE *const ip =
        popen((program_ + family + " -force -batch -" + (told ? "" : " 2>/dev/null")).c_str(), "w");
    if (!ip || fputs(commands.c_str(), ip) < 0)
        perror(program_.c_str());
    if (ip && pclose(ip) != 0 && told)
        fprintf(stderr, "gateway-netd: ip failed for some of:\n%s", commands.c_str());
}

bool links::present(const std::string &device) const
{
    return !enabled_ || exists(device);
}

void links::remove_vlans(const network_config &config, const std::set<std::string> &changed)
{
    std::string commands;
    for (auto device = made_.begin(); device != made_.end();) {
        const config_section *const section = find_device(config, *device);
        if (section && section->is_vlan() && !changed.contains(*device)) {
            ++device;
            continue;
        }
        if (exists(*device))
            commands += line({"link delete", *device});
        device = made_.erase(device);
    }
    run(commands);
}

void links::make_vlans(const network_config &config)
{
    left_over_.clear();
    std::string commands;
    for (const config_section &section : config.devices) {
        const std::string device = section.text("name");
        const std::string parent = section.text("ifname");
        if (&section != find_device(config, device) || !section.is_vlan() || !exists(parent))
            continue;
        if (!exists(device)) {
            commands += vlan_commands(section, kernel_vlans_);
            made_.insert(device);
        } else if (!made_.contains(device)) {
            left_over_.insert(device);
        } else if (mtu_of(device) > mtu_of(parent)) {
            commands += mtu_command(device, mtu_of(parent));
        }
    }
    run(commands);
}

void links::follow(const network_config &config, const std::set<std::string> &changed)
{
    if (!enabled_)
        return;
    remove_vlans(config, changed);
    std::string commands;
    for (const config_section &section : config.devices)
        if (!section.is_vlan() && exists(section.text("name")))
            commands += attribute_commands(section);
    run(commands);
    make_vlans(config);
    commands.clear();
    for (const config_section &section : config.devices)
        if (section.text("type") == "bridge")
            commands += bridge_commands(section);
    run(commands);
}

void links::flush_rules() const
{
    if (!enabled_)
        return;
    const std::string keep_main = "rule flush\nrule add lookup main pref 32766\n";
    run(keep_main + "rule add lookup default pref 32767\n");
    run(keep_main, failures::told, " -6");
}

std::string links::take_routes(const config_section &interface, const ip_settings &settings)
{
    const std::string device = layer3_device(interface);
    std::string commands;
    for (const route &path : kernel_routes(interface, settings.routes)) {
        const bool known = !route_owners_.insert_or_assign(route_key(path, device), interface.name).second;
        if (!is_source_specific(path))
            commands += route_words("replace", path, device);
        else if (!known)
            commands += route_words("append", path, device);
    }
    return commands;
}

std::string links::give_up_routes(const config_section &interface, const ip_settings &settings)
{
    const std::string device = layer3_device(interface);
    std::string commands;
    for (const route &path : kernel_routes(interface, settings.routes)) {
        const auto owner = route_owners_.find(route_key(path, device));
        if (owner == route_owners_.end() || owner->second != interface.name)
            continue;
        commands += route_words("del", path, device);
        route_owners_.erase(owner);
    }
    return commands;
}

void links::bring_up(const config_section &interface, const ip_settings &settings)
{
    const std::string device = layer3_device(interface);
    if (!enabled_ || device.empty())
        return;
    std::string commands;
    if (has_own_device(interface) && !exists(device))
        commands += pair_commands(device);
    for (const address &own : settings.v4)
        commands += line({"addr replace", address_words(own), "dev", device});
    for (const address &own : settings.v6)
        commands += line({"addr replace", address_words(own), "dev", device, "nodad"});
    commands += take_routes(interface, settings);
    run(commands);
}

void links::take_down(const config_section &interface, const ip_settings &settings)
{
    const std::string device = layer3_device(interface);
    if (!enabled_)
        return;
    std::string commands = give_up_routes(interface, settings);
    for (const std::vector<address> *addresses : {&settings.v4, &settings.v6})
        for (const address &own : *addresses)
            commands += line({"addr del", address_words(own), "dev", device});
    if (!exists(device))
        return;
    run(has_own_device(interface) ? line({"link delete", device}) : commands, failures::expected);
}
