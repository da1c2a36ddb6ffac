#include "netd/network_config.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string_view>
#include <uci.h>

namespace {

// Options that other programs keep in the sections of devices and interfaces.
constexpr std::string_view foreign_options[] = {
    "lkname", "wanMode",      "IpProtocolType", "service_mode", "disableLanDhcp",
    "mvid",   "port_binding", "napt",           "iphostId",
};

std::vector<config_option> own_options(const config_section &section)
{
    std::vector<config_option> own = section.options;
    std::erase_if(own, [](const config_option &option) {
        return std::ranges::find(foreign_options, option.name) != std::end(foreign_options);
    });
    return own;
}

config_option copy_option(uci_option *option)
{
    config_option copy{option->e.name, {}};
    if (option->type == UCI_TYPE_STRING) {
        copy.values.emplace_back(option->v.string);
        return copy;
    }
    uci_element *element;
    uci_foreach_element(&option->v.list, element) copy.values.emplace_back(element->name);
    return copy;
}

config_section copy_section(uci_section *section)
{
    config_section copy{section->e.name, {}};
    uci_element *element;
    uci_foreach_element(&section->options, element)
        copy.options.push_back(copy_option(uci_to_option(element)));
    return copy;
}

const config_option *find(const config_section &section, std::string_view name)
{
    const auto found = std::find_if(section.options.begin(), section.options.end(),
                                    [name](const config_option &option) { return option.name == name; });
    return found == section.options.end() ? nullptr : &*found;
}

} // namespace

std::string config_section::text(const char *option) const
{
    const config_option *const found = find(*this, option);
    return found && !found->values.empty() ? found->values[0] : "";
}

int config_section::number(const char *option, int missing) const
{
    const std::string value = text(option);
    return value.empty() ? missing : atoi(value.c_str());
}

bool config_section::has(const char *option) const
{
    return find(*this, option) != nullptr;
}

std::vector<std::string> config_section::list(const char *option) const
{
    std::vector<std::string> words;
    const config_option *const found = find(*this, option);
    if (!found)
        return words;
    for (const std::string &value : found->values) {
        std::istringstream in(value);
        for (std::string word; in >> word;)
            words.push_back(word);
    }
    return words;
}

bool config_section::is_vlan() const
{
    return text("type") == "8021q";
}

bool config_section::means_the_same_as(const config_section &other) const
{
    return own_options(*this) == own_options(other);
}

bool config_section::starts_by_itself() const
{
    return number("auto", 1) && !number("disabled", 0);
}

std::optional<network_config> read_network_config()
{
    const std::unique_ptr<uci_context, decltype(&uci_free_context)> context(uci_alloc_context(),
                                                                            uci_free_context);
    uci_package *package = nullptr;
    if (!context || uci_load(context.get(), "network", &package)) {
        uci_perror(context.get(), "gateway-netd: network");
        return std::nullopt;
    }
    network_config config;
    uci_element *element;
    uci_foreach_element(&package->sections, element)
    {
        uci_section *const section = uci_to_section(element);
        const std::string_view type = section->type;
        if (type == "device")
            config.devices.push_back(copy_section(section));
        else if (type == "interface")
            config.interfaces.push_back(copy_section(section));
    }
    return config;
}

const config_section *find_device(const network_config &config, const std::string &device)
{
    const auto found =
        std::find_if(config.devices.rbegin(), config.devices.rend(),
                     [&](const config_section &section) { return section.text("name") == device; });
    return found == config.devices.rend() ? nullptr : &*found;
}

std::set<std::string> changed_devices(const network_config &before, const network_config &next)
{
    std::set<std::string> changed;
    for (const config_section &section : before.devices)
        if (const std::string name = section.text("name"); !find_device(next, name))
            changed.insert(name);
    for (const config_section &section : next.devices) {
        const std::string name = section.text("name");
        const config_section *const ruling = find_device(before, name);
        if (!ruling || !section.means_the_same_as(*ruling))
            changed.insert(name);
    }
    return changed;
}

std::set<std::string> interrupted_devices(const std::set<std::string> &changed, const network_config &next)
{
    std::set<std::string> interrupted = changed;
    for (const config_section &section : next.devices)
        if (section.is_vlan() && changed.contains(section.text("ifname")) &&
            find_device(next, section.text("ifname")))
            interrupted.insert(section.text("name"));
    return interrupted;
}
