#include "create/conflicts.h"

#include "base/config.h"
#include "base/log.h"
#include "base/text.h"
#include "service/board.h"
#include "service/change.h"
#include "service/settings.h"
#include "wan/wan_names.h"
#include "wan/stored_options.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int bind_positions = sizeof(wan_config::bind);

// Takes a sum of counts as the board describes them, which may be any numbers.
int examined(int64_t ports)
{
    return static_cast<int>(ports < bind_positions ? std::max<int64_t>(ports, 0) : bind_positions);
}

bool binds_a_port(const wan_config *config)
{
    for (int i = 0; i < examined(board_port_count()); i++)
        if (config->bind[i] == '1')
            return true;
    return false;
}

// On boards whose uplink is a VLAN of the LAN switch, LAN port k has the uplink's VLAN number.
bool binds_uplink_port(const wan_config *config)
{
    int uplink_port = 0;
    if (sscanf(uplink_name, "eth0.%d", &uplink_port) != 1)
        return false;
    for (int i = 0; i < examined(int64_t{lan_num} + lan_phy_num); i++)
        if (config->bind[i] == '1' && uplink_port == i + 1)
            return true;
    return false;
}

bool shares_port(const wan_config *config, uci_list *binding)
{
    int position = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(binding, entry)
    {
        if (position == bind_positions)
            return false;
        if (entry->name[0] == '1' && config->bind[position] == '1')
            return true;
        position++;
    }
    return false;
}

bool is_bridged(const uci_loaded &network, uci_section *device)
{
    const char *const wan_mode = network.plain(device, STORED(wanMode).name);
    return wan_mode && text_number(wan_mode) == wan_mode_bridged;
}

// Two routed WANs may share a VLAN; a bridged one shares with nobody.
bool shares_vlan(const wan_config *config, const uci_loaded &network, uci_section *device)
{
    if (config->wanMode != wan_mode_bridged &&
        !(config->wanMode == wan_mode_routed && is_bridged(network, device)))
        return false;
    const char *const vid = network.plain(device, STORED(vid).name);
    if (config->vlanMode != 1)
        return vid == nullptr;
    return vid && text_number(vid) == config->vid;
}

// The conflict that a WAN has with itself, as soon as there is any other.
bool is_own_multicast_vlan(const wan_config *config)
{
    return config->mvid != 0 && config->mvid == config->vid;
}

bool shares_multicast_vlan(const wan_config *config, const uci_loaded &network, uci_section *device)
{
    if (config->mvid == 0)
        return false;
    if (is_own_multicast_vlan(config))
        return true;
    const char *const mvid = network.plain(device, STORED(mvid).name);
    return mvid && text_number(mvid) == config->mvid;
}

int compare_with(const wan_config *config, const uci_loaded &network, uci_section *device)
{
    uci_list *const binding = network.list(device, STORED(bind).name);
    if (binding && shares_port(config, binding))
        return conflict_port_bound;
    if (shares_vlan(config, network, device) || shares_multicast_vlan(config, network, device))
        return conflict_vlan;
    return conflict_none;
}

bool is_lan_bridge(const uci_loaded &network, uci_section *device)
{
    const char *const type = network.plain(device, device_type_option);
    return type && strcmp(type, "bridge") == 0;
}

// The identifier that a device section's link name begins with; 0 when it has none.
uint8_t wan_of(const uci_loaded &network, uci_section *device)
{
    const char *const link_name = network.plain(device, STORED(wanName).name);
    return link_name ? static_cast<uint8_t>(text_number(link_name)) : uint8_t{0};
}

int compare_with_devices(const wan_config *config, const char *exclude_section, uint8_t *other_out)
{
    const uci_loaded network("network");
    if (!network)
        return conflict_unreadable;
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        if (strcmp(section->type, "device") != 0 || is_lan_bridge(network, section) ||
            (exclude_section && strcmp(exclude_section, element->name) == 0))
            continue;
        const int conflict = compare_with(config, network, section);
        if (conflict == conflict_none)
            continue;
        if (other_out && !(conflict == conflict_vlan && is_own_multicast_vlan(config)))
            *other_out = wan_of(network, section);
        return conflict;
    }
    return conflict_none;
}

} // namespace

int wan_check_conflicts(const wan_config *config, const char *exclude_section, uint8_t *other_out)
{
    if (other_out)
        *other_out = 0;
    if (config->wanMode == wan_mode_bridged && config->service == service_other && !binds_a_port(config))
        return conflict_port_required;
    if (binds_uplink_port(config))
        return conflict_vlan;
    return compare_with_devices(config, exclude_section, other_out);
}

bool wan_conflict_refuses(int result, const char *verb, const wan_config *config, uint8_t other)
{
    switch (result) {
    case conflict_port_bound:
        log_error("Failed to %s wan: port binding %.17s exist", verb, config->bind);
        note_refusal(wan_action::refused, "a port is bound to another WAN", "port", other);
        return true;
    case conflict_vlan:
        log_error("Failed to %s wan: vlan %u exist", verb, config->vid);
        note_refusal(wan_action::refused, "the VLAN is taken", "vlan", other);
        return true;
    case conflict_port_required:
        log_error("Failed to %s wan: port binding required", verb);
        note_refusal(wan_action::refused, "no port is bound", "unbound");
        return true;
    default:
        return false;
    }
}
