#include "rules/regenerate.h"

#include "base/config.h"
#include "base/log.h"
#include "base/os.h"
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "rules/multicast_vlan.h"
#include "rules/route_rule.h"
#include "rules/rule_ctx.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/read_config.h"
#include "store/section_index.h"
#include "wan/wan_names.h"

namespace {

// The directories of all scripts, outer ones first.
constexpr const char *script_directories[] = {"/etc/korvel", "/etc/hotplug.d", "/etc/hotplug.d/iface"};

void regenerate_route_rule(const wan_rule_ctx &wan, unsigned bound_ports)
{
    const script_path path = route_rule_path(wan.wanId);
    if (file_exists(path.text) || (bound_ports == 0 && wan.config.service == service_other))
        return;
    log_info("Generate missing wan_%u route rule: %s\n", wan.wanId, path.text);
    wan_write_route_rule(&wan);
}

// Deliberate: a WAN without bound ports never gets a script of its own, so the isolation is rebuilt at every
// start; once for all such WANs, which have it in common.
void regenerate_bridge_rule(const wan_rule_ctx &wan, unsigned bound_ports, bool &isolated)
{
    const script_path path = bridge_rule_path(wan.wanId);
    if (file_exists(path.text))
        return;
    log_info("Generate missing wan_%u bridge rule: %s\n", wan.wanId, path.text);
    if (!isolated)
        wan_write_isolate_rule();
    isolated = true;
    if (bound_ports != 0)
        wan_write_bridge_rule(&wan);
}

void regenerate_wan(const uci_loaded &network, uci_section *device, uint8_t wan_id, bool &isolated)
{
    if (!device) {
        log_error("Failed to get wan device and pon name\n");
        return;
    }
    wan_rule_ctx wan = {};
    wan.wanId = wan_id;
    wan.config.wanId = wan_id;
    (void)wan_read_option(network, device, STORED(wanMode), &wan.config);
    (void)wan_read_option(network, device, STORED(service), &wan.config);
    (void)wan_read_option(network, device, STORED(disableLanDhcp), &wan.config);
    const unsigned bound_ports = wan_read_port_binding(network, device, wan.config.bind);
    wan.config.vlanMode = wan_read_option(network, device, STORED(vid), &wan.config) == 0 ? 1 : 0;

    if (wan.config.wanMode == wan_mode_routed)
        regenerate_route_rule(wan, bound_ports);
    else
        regenerate_bridge_rule(wan, bound_ports, isolated);
}

} // namespace

std::span<const char *const> wan_script_directories()
{
    return script_directories;
}

void wan_regen_missing_rules()
{
    for (const char *const directory : script_directories)
        make_directory(directory);
    const uci_loaded network("network");
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return;
    const wan_section_index wans(network);
    bool isolated = false; // whether the isolation was written
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        const uint8_t wan_id = static_cast<uint8_t>(text_number(entry->name));
        regenerate_wan(network, wans.of(wan_id).device, wan_id, isolated);
    }
    wan_write_mvlan_rule();
}
