#include "create/create.h"

#include "base/config.h"
#include "base/log.h"
#include "create/conflicts.h"
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "rules/multicast_vlan.h"
#include "rules/route_rule.h"
#include "service/board.h"
#include "service/change.h"
#include "service/reload.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/mac.h"
#include "store/new_id.h"
#include "store/read_config.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

// What the steps of one creation share.
struct creation {
    const wan_config *config;
    const wan_service &service;
    wan_names names;
    wan_rule_ctx rule;
    char device[12];         // the network device's name
    char device_section[16]; // the generated name of its section
    char mac[18];            // empty when there is none to write
    unsigned bound_ports;
    int error; // the results of all writes, by bitwise OR
};

const char *section_of(const creation &wan, option_place place)
{
    switch (place) {
    case option_place::device:
    case option_place::vlan:
        return wan.device_section;
    case option_place::interface_v6:
        return wan.config->ipMode == ip_mode_dhcp ? wan.names.interface_v6 : wan.names.interface;
    case option_place::dslite:
        return wan.names.dslite;
    default:
        return wan.names.interface;
    }
}

void set(creation &wan, const char *section, const char *option, const char *value)
{
    wan.error |= config_set("network", section, option, value);
}

void set(creation &wan, const stored_option &option, const char *value)
{
    set(wan, section_of(wan, option.place), option.name, value);
}

void set_number(creation &wan, const stored_option &option, int value)
{
    wan.error |= config_set_number("network", section_of(wan, option.place), option.name, value);
}

void add_entry(creation &wan, const stored_option &option, const char *value)
{
    wan.error |= config_add_list("network", section_of(wan, option.place), option.name, value);
}

void write_number(creation &wan, const stored_option &option)
{
    const int value = static_cast<int>(field_number(*wan.config, option.field));
    if (value != 0 || option.kind != option_kind::unless_zero)
        set_number(wan, option, value);
}

void write_text(creation &wan, const stored_option &option)
{
    char value[sizeof(wan_config) + 1] = {}; // room for any field and a terminator
    text_ref(value).format("%.*s", option.field.size, field_text(*wan.config, option.field));
    if (option.kind == option_kind::plain)
        set(wan, option, value);
    else if (!text_empty(value) || option.kind == option_kind::entry)
        add_entry(wan, option, value);
}

// Writes a field as its row has it.
void write_option(creation &wan, const stored_option &option)
{
    if (option.field.kind == field_kind::text)
        write_text(wan, option);
    else
        write_number(wan, option);
}

void write_options(creation &wan, option_place place)
{
    for (const stored_option &option : stored_options)
        if (option.place == place && option.kind != option_kind::by_code)
            write_option(wan, option);
}

// A WAN on a device that is already configured keeps that device's address.
void choose_mac(creation &wan)
{
    (void)wan_derive_mac(wan.rule.wanId, wan.mac);

    const uci_loaded network("network");
    if (!network)
        return;
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        const char *const name = network.plain(section, STORED(device).name);
        if (strcmp(section->type, "device") != 0 || !name || strcmp(name, wan.device) != 0)
            continue;
        // Deliberate: what the system says takes the place of the first 8 characters, the derived rest stays.
        if (network.get(section, STORED(mac).name, wan.mac) != 0)
            (void)wan_read_dev_mac(wan.device, wan.mac);
        return;
    }
}

void write_vlan(creation &wan)
{
    set(wan, wan.device_section, device_type_option, "8021q");
    set(wan, wan.device_section, device_uplink_option, uplink_name);
    write_options(wan, option_place::vlan);
    if (wan.config->prio != 0) {
        char mapping[8];
        text_ref(mapping).format("0:%d", wan.config->prio);
        add_entry(wan, STORED(prio), mapping);
    }
}

void write_device_section(creation &wan)
{
    wan.error |= config_add_section("network", "device", wan.device_section);
    if (wan.config->vlanMode == 1)
        write_vlan(wan);
    set(wan, STORED(device), wan.device);
    write_options(wan, option_place::device);
    if (!text_empty(wan.mac))
        set(wan, STORED(mac), wan.mac);
}

void write_port_binding(creation &wan)
{
    if (!wan.service.binds_ports)
        return;
    for (int i = 0; i < board_port_count(); i++) {
        const bool bound = static_cast<size_t>(i) < sizeof(wan.config->bind) && wan.config->bind[i] == '1';
        add_entry(wan, STORED(bind), bound ? "1" : "0");
        wan.bound_ports += bound;
    }
}

void write_link_name(creation &wan)
{
    if (wan.config->ipProtocol == ip_protocol_v4)
        set(wan, wan.device_section, "ipv6", "0");
    set(wan, STORED(wanName), wan.rule.lkname);
}

void add_interface(creation &wan, char *name)
{
    wan.error |= config_add_section("network", "interface", text_ref(name, strlen(name) + 1));
}

// Only internet services carry the default route.
void write_default_route(creation &wan, const char *interface)
{
    if (!wan.service.internet)
        set(wan, interface, "defaultroute", "0");
}

void join_wan_zone(creation &wan, const char *interface)
{
    wan.error |= config_add_list("firewall", "@zone[1]", "network", interface);
}

// The configured servers take the place of the link's, unless those are wanted.
void write_dns_v4(creation &wan)
{
    if (wan.config->autoDns != 0)
        return;
    set(wan, STORED(autoDns), "0");
    write_option(wan, STORED(priDns));
    write_option(wan, STORED(secDns));
}

void replace_dns_v6(creation &wan)
{
    set(wan, STORED(autoDnsV6), "0");
    write_option(wan, STORED(priDnsV6));
    write_option(wan, STORED(secDnsV6));
}

void write_dns_v6(creation &wan)
{
    if (wan.config->autoDnsV6 == 0)
        replace_dns_v6(wan);
}

void write_prefix_proxy(creation &wan)
{
    if (wan.config->ipv6PrefixProxy == 0)
        set(wan, STORED(ipv6PrefixProxy), "0");
}

void write_pppoe(creation &wan)
{
    const wan_config *const config = wan.config;
    set(wan, STORED(ipMode), "pppoe");
    write_options(wan, option_place::pppoe);
    // The device carries the 8 bytes of PPPoE framing on top of the MTU that was asked for.
    set_number(wan, STORED(mtu), config->mtu + 8);
    if (config->pppDialMode == 1)
        set(wan, STORED(pppDialMode), "300");
    set(wan, wan.names.interface, "ipv6", config->ipProtocol == ip_protocol_v4 ? "0" : "auto");
    if (config->ipProtocol & ip_protocol_v4)
        write_dns_v4(wan);
    if (config->ipProtocol & ip_protocol_v6) {
        write_dns_v6(wan);
        write_prefix_proxy(wan);
    }
}

void write_static(creation &wan)
{
    set(wan, STORED(ipMode), "static");
    if (wan.config->ipProtocol & ip_protocol_v4) {
        write_options(wan, option_place::static_v4);
        write_option(wan, STORED(priDns));
        write_option(wan, STORED(secDns));
    }
    if (wan.config->ipProtocol & ip_protocol_v6) {
        write_options(wan, option_place::static_v6);
        replace_dns_v6(wan);
        write_prefix_proxy(wan);
    }
}

void write_static_or_pppoe(creation &wan)
{
    char *const interface = wan.names.interface;
    add_interface(wan, interface);
    set(wan, interface, "device", wan.device);
    write_option(wan, STORED(napt));
    write_default_route(wan, interface);
    if (wan.config->ipMode == ip_mode_static)
        write_static(wan);
    else
        write_pppoe(wan);
    join_wan_zone(wan, interface);
}

void write_dhcp_ipv4(creation &wan)
{
    char *const interface = wan.names.interface;
    add_interface(wan, interface);
    set(wan, STORED(ipMode), "dhcp");
    set(wan, interface, "device", wan.device);
    write_option(wan, STORED(napt));
    write_dns_v4(wan);
    write_default_route(wan, interface);
    join_wan_zone(wan, interface);
}

void write_dhcp_ipv6(creation &wan)
{
    char *const interface = wan.names.interface_v6;
    add_interface(wan, interface);
    set(wan, interface, STORED(ipMode).name, "dhcpv6");
    set(wan, interface, "device", wan.device);
    set(wan, interface, "reqaddress", "try");
    set(wan, interface, "reqprefix", "auto");
    write_dns_v6(wan);
    write_default_route(wan, interface);
    write_prefix_proxy(wan);
    join_wan_zone(wan, interface);
}

void write_dslite(creation &wan)
{
    const wan_config *const config = wan.config;
    if (config->ipv6DsLite != 1 || config->ipProtocol != ip_protocol_v6)
        return;
    char *const interface = wan.names.dslite;
    join_wan_zone(wan, interface);
    add_interface(wan, interface);
    set(wan, interface, STORED(ipMode).name, "dslite");
    write_option(wan, STORED(ipv6AddrDsLite));
    set(wan, interface, "tunlink",
        config->ipMode == ip_mode_dhcp ? wan.names.interface_v6 : wan.names.interface);
    set(wan, interface, "encaplimit", "ignore");
}

void write_interfaces(creation &wan)
{
    const wan_config *const config = wan.config;
    if (config->ipMode != ip_mode_dhcp) {
        write_static_or_pppoe(wan);
    } else {
        if (config->ipProtocol & ip_protocol_v4)
            write_dhcp_ipv4(wan);
        if (config->ipProtocol & ip_protocol_v6)
            write_dhcp_ipv6(wan);
    }
    write_dslite(wan);
    write_option(wan, STORED(iphostId));
}

// The first internet WAN becomes the multicast proxy's uplink.
void claim_multicast_proxy(creation &wan)
{
    char present[8] = {};
    if (config_get("omcproxy", "@proxy[0]", "uplink", present) == 0)
        return;
    const bool ipv6_only = wan.config->ipProtocol == ip_protocol_v6 && wan.config->ipMode == ip_mode_dhcp;
    char section[16] = {};
    (void)config_del_section("omcproxy", "@proxy[0]"); // there may be none
    wan.error |= config_add_section("omcproxy", "proxy", section);
    wan.error |=
        config_set("omcproxy", section, "uplink", ipv6_only ? wan.names.interface_v6 : wan.names.interface);
    wan.error |= config_set("omcproxy", section, "downlink", "lan");
}

// The first internet WAN becomes the UPnP daemon's external interface.
void claim_upnp(creation &wan)
{
    char present[8] = {};
    if (config_get("upnpd", "config", "external_iface", present) != 0)
        wan.error |= config_set("upnpd", "config", "external_iface", wan.names.interface);
}

void write_routed(creation &wan)
{
    write_interfaces(wan);
    if (wan.bound_ports == 0 && wan.config->service == service_other)
        return;
    wan_write_route_rule(&wan.rule);
    if (wan.service.internet) {
        claim_multicast_proxy(wan);
        claim_upnp(wan);
    }
}

void write_bridged(creation &wan)
{
    wan.error |= config_add_list("network", "@device[0]", "ports", wan.device);
    wan_write_isolate_rule();
    if (wan.bound_ports != 0)
        wan_write_bridge_rule(&wan.rule);
}

// Puts a new WAN on the list. Returns 0, or what refuses it.
int list_new(const wan_config *config, uint8_t &id_out)
{
    char device[sizeof(wan_config::device)] = {};
    wan_device_name(*config, device);
    note_subject("", device);
    uint8_t other = 0;
    const int conflict = wan_check_conflicts(config, nullptr, &other);
    if (wan_conflict_refuses(conflict, "add", config, other))
        return conflict;
    const config_hold hold;
    id_out = wan_id_choose();
    if (id_out == 0) {
        note_refusal(wan_action::refused, "no identifier is left");
        return no_identifier_left;
    }
    wan_id_take(id_out);
    return 0;
}

} // namespace

int wan_write(const wan_config *config, uint8_t fixed_id)
{
    uint8_t id = fixed_id;
    if (fixed_id != 0)
        (void)wan_id_alloc(fixed_id);
    else if (const int refusal = list_new(config, id))
        return refusal;

    creation wan = {config, wan_service_of(config->service), wan_names(id), {id, {}, *config}, {}, {}, {}, 0,
                    0};
    wan_device_name(*config, wan.device);
    wan_link_name(id, *config, wan.rule.lkname);
    choose_mac(wan);

    write_device_section(wan);
    write_port_binding(wan);
    write_link_name(wan);
    if (config->wanMode == wan_mode_bridged)
        write_bridged(wan);
    else
        write_routed(wan);
    if (wan.error != 0)
        log_error("Error happened when writing wan_%u data: %d", id, wan.error);
    note_wan(fixed_id != 0 ? wan_action::changed : wan_action::created, id, wan.rule.lkname, wan.device,
             wan.error == 0);

    wan_write_mvlan_rule();
    return 0;
}

int wan_create(const wan_config *config, uint8_t fixed_id)
{
    const int conflict = wan_write(config, fixed_id);
    if (conflict == conflict_none)
        reload_system_services(wan_written);
    return conflict;
}
