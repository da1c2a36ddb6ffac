#include "rules/isolation.h"

#include "base/config.h"
#include "base/log.h"
#include "base/os.h"
#include "rules/script_name.h"
#include "service/settings.h"
#include "wan/wan_names.h"

namespace {

// The names come from the configuration's list of bridge ports; only harmless ones reach the shell.
constexpr char rule_text[] = R"sh(ebtables -D FORWARD -i "%.*s" -o "%s" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "%.*s" -o "%s" -j DROP
)sh";

// A WAN device that gets rules of its own. Deliberate: cut at 10 bytes.
struct isolated_device {
    char name[10];
};

bool has_wan_name(const uci_element *port)
{
    return strstr(port->name, vlan_prefix) != nullptr;
}

bool is_wan_device(const uci_element *port)
{
    return has_wan_name(port) && is_script_name(port->name);
}

void log_left_out(uci_list *ports)
{
    uci_element *port = nullptr;
    uci_foreach_element(ports, port)
    {
        if (has_wan_name(port))
            (void)may_stand_in_script(port->name, isolate_rule_path);
    }
}

size_t collect_devices(uci_list *ports, isolated_device (&devices_out)[most_isolated_devices])
{
    size_t count = 0;
    uci_element *port = nullptr;
    uci_foreach_element(ports, port)
    {
        if (count == most_isolated_devices)
            break;
        if (is_wan_device(port))
            text_ref(devices_out[count++].name).set(port->name);
    }
    return count;
}

void print_rules(script_file &script, const isolated_device &device, uci_list *ports)
{
    const std::string_view name = text_view(device.name);
    const int length = static_cast<int>(name.size());
    uci_element *port = nullptr;
    uci_foreach_element(ports, port)
    {
        if (is_wan_device(port) && name != port->name)
            script.print(rule_text, length, name.data(), port->name, length, name.data(), port->name);
    }
}

// The section that stands for the LAN bridge: the first device, or the last section when there is no device
// at all.
uci_section *bridge_section(const uci_loaded &network)
{
    uci_section *section = nullptr;
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        section = uci_to_section(element);
        if (strcmp(section->type, "device") == 0)
            break;
    }
    return section;
}

} // namespace

void wan_remove_isolate_rule()
{
    char failure[96];
    text_ref(failure).format("Failed to delete bridge isolate rule: %s", isolate_rule_path);
    take_back_script(isolate_rule_path, failure);
}

void wan_write_isolate_rule()
{
    const uci_loaded network("network");
    uci_list *const ports = network ? network.list(bridge_section(network), "ports") : nullptr;
    if (!ports)
        return;

    wan_remove_isolate_rule();
    log_left_out(ports);
    isolated_device devices[most_isolated_devices] = {};
    const size_t count = collect_devices(ports, devices);
    if (count < 2)
        return;

    script_file script(isolate_rule_path);
    if (script) {
        script.print("#!/bin/sh\n");
        for (size_t i = 0; i < count; i++)
            print_rules(script, devices[i], ports);
    }
    if (!script || !script.commit())
        log_error("Failed to generate bridge isolate rule: %s", isolate_rule_path);
}
