#include "create/create.h"

#include "base/config.h"
#include "base/log.h"
#include "create/conflicts.h"
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "store/mac.h"
#include "rules/multicast_vlan.h"
#include "rules/route_rule.h"
#include "service/board.h"
#include "service/reload.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/read_config.h"
#include "wan/wan_names.h"

namespace {

// What the steps of one creation share.
struct creation {
    const wan_config *config;
    const service_type &service;
    wan_names names;
    wan_rule_ctx rule;
    char device[12];         // the network device's name
    char device_section[16]; // the generated name of its section
    char mac[18];            // empty when there is none to write
    unsigned bound_ports;
    int error; // the results of all writes, by bitwise OR
};

void set(creation &wan, const char *section, const char *option, const char *value)
{
    wan.error |= config_set("network", section, option, value);
}

void set_number(creation &wan, const char *section, const char *option, int value)
{
    wan.error |= config_set_number("network", section, option, value);
}

void add_list(creation &wan, const char *section, const char *option, const char *value)
{
    wan.error |= config_add_list("network", section, option, value);
}

template <size_t size>
void set_text(creation &wan, const char *section, const char *option, const char (&value)[size])
{
    set(wan, section, option, c_text(value));
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
        const char *const name = network.plain(section, "name");
        if (strcmp(section->type, "device") != 0 || !name || strcmp(name, wan.device) != 0)
            continue;
        // Deliberate: what the system says takes the place of the first 8 characters, the derived rest stays.
        if (network.get(section, "macaddr", wan.mac) != 0)
            (void)wan_read_dev_mac(wan.device, wan.mac);
        return;
    }
}

void write_vlan(creation &wan)
{
    const wan_config *const config = wan.config;
    set(wan, wan.device_section, "type", "8021q");
    set(wan, wan.device_section, "ifname", uplink_name);
    set_number(wan, wan.device_section, "vid", config->vid);
    if (config->mvid != 0)
        set_number(wan, wan.device_section, "mvid", config->mvid);
    if (config->prio != 0) {
        char mapping[8];
        text_ref(mapping).format("0:%d", config->prio);
        add_list(wan, wan.device_section, "egress_qos_mapping", mapping);
    }
}

void write_device_section(creation &wan)
{
    const wan_config *const config = wan.config;
    wan.error |= config_add_section("network", "device", wan.device_section);
    if (config->vlanMode == 1)
        write_vlan(wan);
    set(wan, wan.device_section, "name", wan.device);
    set_number(wan, wan.device_section, "mtu", config->mtu);
    set_number(wan, wan.device_section, "wanMode", config->wanMode);
    set_number(wan, wan.device_section, "IpProtocolType", config->ipProtocol);
    set_number(wan, wan.device_section, "service_mode", config->service);
    set_number(wan, wan.device_section, "disableLanDhcp", config->disableLanDhcp);
    if (!text_empty(wan.mac))
        set(wan, wan.device_section, "macaddr", wan.mac);
}

void write_port_binding(creation &wan)
{
    if (!wan.service.binds_ports)
        return;
    for (int i = 0; i < board_port_count(); i++) {
        const bool bound = static_cast<size_t>(i) < sizeof(wan.config->bind) && wan.config->bind[i] == '1';
        add_list(wan, wan.device_section, "port_binding", bound ? "1" : "0");
        wan.bound_ports += bound;
    }
}

void write_link_name(creation &wan)
{
    if (wan.config->ipProtocol == ip_protocol_v4)
        set(wan, wan.device_section, "ipv6", "0");
    set(wan, wan.device_section, "lkname", wan.rule.lkname);
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

template <size_t size>
void add_dns(creation &wan, const char *interface, const char (&first)[size], const char (&second)[size])
{
    if (!text_empty(first))
        add_list(wan, interface, "dns", c_text(first));
    if (!text_empty(second))
        add_list(wan, interface, "dns", c_text(second));
}

// The configured servers take the place of the link's, unless those are wanted.
template <size_t size>
void write_dns(creation &wan, const char *interface, uint8_t learnt, const char (&first)[size],
               const char (&second)[size])
{
    if (learnt != 0)
        return;
    set(wan, interface, "peerdns", "0");
    add_dns(wan, interface, first, second);
}

void write_prefix_proxy(creation &wan, const char *interface)
{
    if (wan.config->ipv6PrefixProxy == 0)
        set(wan, interface, "delegate", "0");
}

void write_pppoe(creation &wan)
{
    const wan_config *const config = wan.config;
    const char *const interface = wan.names.interface;
    set(wan, interface, "proto", "pppoe");
    set_text(wan, interface, "username", config->pppUser);
    set_text(wan, interface, "password", config->pppPwd);
    set_text(wan, interface, "service", config->pppServName);
    // The device carries the 8 bytes of PPPoE framing on top of the MTU that was asked for.
    set_number(wan, wan.device_section, "mtu", config->mtu + 8);
    if (config->pppDialMode == 1)
        set(wan, interface, "demand", "300");
    set(wan, interface, "ipv6", config->ipProtocol == ip_protocol_v4 ? "0" : "auto");
    if (config->ipProtocol & ip_protocol_v4)
        write_dns(wan, interface, config->autoDns, config->priDns, config->secDns);
    if (config->ipProtocol & ip_protocol_v6) {
        write_dns(wan, interface, config->autoDnsV6, config->priDnsV6, config->secDnsV6);
        write_prefix_proxy(wan, interface);
    }
}

void write_static(creation &wan)
{
    const wan_config *const config = wan.config;
    const char *const interface = wan.names.interface;
    set(wan, interface, "proto", "static");
    if (config->ipProtocol & ip_protocol_v4) {
        set_text(wan, interface, "ipaddr", config->ip);
        set_text(wan, interface, "netmask", config->mask);
        set_text(wan, interface, "gateway", config->gateway);
        add_dns(wan, interface, config->priDns, config->secDns);
    }
    if (config->ipProtocol & ip_protocol_v6) {
        add_list(wan, interface, "ip6addr", c_text(config->ipv6Addr));
        set_text(wan, interface, "ip6gw", config->ipv6Gateway);
        set_text(wan, interface, "ip6prefix", config->ipv6Prefix);
        set(wan, interface, "peerdns", "0");
        add_dns(wan, interface, config->priDnsV6, config->secDnsV6);
        write_prefix_proxy(wan, interface);
    }
}

void write_static_or_pppoe(creation &wan)
{
    char *const interface = wan.names.interface;
    add_interface(wan, interface);
    set(wan, interface, "device", wan.device);
    set_number(wan, interface, "napt", wan.config->napt);
    write_default_route(wan, interface);
    if (wan.config->ipMode == ip_mode_static)
        write_static(wan);
    else
        write_pppoe(wan);
    join_wan_zone(wan, interface);
}

void write_dhcp_ipv4(creation &wan)
{
    const wan_config *const config = wan.config;
    char *const interface = wan.names.interface;
    add_interface(wan, interface);
    set(wan, interface, "proto", "dhcp");
    set(wan, interface, "device", wan.device);
    set_number(wan, interface, "napt", config->napt);
    write_dns(wan, interface, config->autoDns, config->priDns, config->secDns);
    write_default_route(wan, interface);
    join_wan_zone(wan, interface);
}

void write_dhcp_ipv6(creation &wan)
{
    const wan_config *const config = wan.config;
    char *const interface = wan.names.interface_v6;
    add_interface(wan, interface);
    set(wan, interface, "proto", "dhcpv6");
    set(wan, interface, "device", wan.device);
    set(wan, interface, "reqaddress", "try");
    set(wan, interface, "reqprefix", "auto");
    write_dns(wan, interface, config->autoDnsV6, config->priDnsV6, config->secDnsV6);
    write_default_route(wan, interface);
    write_prefix_proxy(wan, interface);
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
    set(wan, interface, "proto", "dslite");
    set_text(wan, interface, "peeraddr", config->ipv6AddrDsLite);
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
    if (config->iphostId != 0)
        set_number(wan, wan.names.interface, "iphostId", config->iphostId);
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
    add_list(wan, "@device[0]", "ports", wan.device);
    wan_write_isolate_rule();
    if (wan.bound_ports != 0)
        wan_write_bridge_rule(&wan.rule);
}

} // namespace

int wan_write(const wan_config *config, uint8_t fixed_id)
{
    if (fixed_id == 0) {
        const int conflict = wan_check_conflicts(config, nullptr);
        if (wan_conflict_refuses(conflict, "add", config))
            return conflict;
    }

    const uint8_t id = static_cast<uint8_t>(wan_id_alloc(fixed_id));
    creation wan = {config, service_of(config->service), wan_names(id), {id, {}, *config}, {}, {}, {}, 0, 0};
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
