#include "store/read_config.h"

#include "base/log.h"
#include "service/settings.h"
#include "status/ifstatus.h"
#include "store/mac.h"
#include "wan/dns_servers.h"
#include "wan/wan_names.h"

#include <string_view>

uci_section *wan_device_section(const uci_loaded &network, uint32_t wan_id)
{
    const wan_names::prefix prefix = wan_names::device_prefix(wan_id & 0xff);
    const size_t prefix_length = strlen(prefix.text);
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        if (strcmp(section->type, "device") != 0)
            continue;
        const char *const link_name = network.plain(section, "lkname");
        if (link_name && network.plain(section, "name") &&
            strncmp(link_name, prefix.text, prefix_length) == 0)
            return section;
    }
    return nullptr;
}

int wan_find_device(uint32_t wan_id, char (&section_out)[section_name_size], char (&device_out)[12])
{
    const uci_loaded network("network");
    if (!network)
        return -1;
    uci_section *const section = wan_device_section(network, wan_id);
    if (!section)
        return -1;
    (void)text_ref(section_out).format("%s", section->e.name);
    text_ref(device_out).set(network.plain(section, "name"));
    return 0;
}

unsigned wan_read_port_binding(const uci_loaded &network, uci_section *section, char (&bind_out)[17])
{
    uci_list *const entries = network.list(section, "port_binding");
    if (!entries)
        return 0;
    size_t position = 0;
    unsigned bound = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        if (position == sizeof(bind_out))
            break;
        const bool is_bound = entry->name[0] == '1';
        bind_out[position++] = is_bound ? '1' : '0';
        bound += is_bound;
    }
    return bound;
}

void wan_read_dns(const uci_loaded &network, uci_section *interface, wan_config *record)
{
    uci_list *const servers = network.list(interface, "dns");
    if (!servers)
        return;
    dns_sorter sorter(*record);
    uci_element *server = nullptr;
    uci_foreach_element(servers, server)
    {
        sorter.take(server->name);
    }
}

namespace {

// What the steps of one reading share.
struct reading {
    const uci_loaded &network;
    wan_config *record;
    uci_section *device;       // the device section
    uci_section *interface;    // wan_<id>; null when there is none
    uci_section *interface_v6; // wan_<id>_v6; null when there is none
    uci_section *dslite;       // dslite_<id>; null when there is none
    int error;                 // the results of the reads that count, by bitwise OR
};

void read_priority(reading &state)
{
    char mapping[6] = {};
    if (state.network.get(state.device, "egress_qos_mapping", mapping) == 0 && strncmp(mapping, "0:", 2) == 0)
        state.record->prio = static_cast<uint8_t>(mapping[2] - '0');
}

void read_device_section(reading &state)
{
    wan_config *const record = state.record;
    state.error |= wan_read_number(state.network, state.device, "mtu", record->mtu);
    state.error |= wan_read_number(state.network, state.device, "wanMode", record->wanMode);
    state.error |= wan_read_number(state.network, state.device, "IpProtocolType", record->ipProtocol);
    state.error |= wan_read_number(state.network, state.device, "service_mode", record->service);
    state.error |= wan_read_number(state.network, state.device, "disableLanDhcp", record->disableLanDhcp);
    state.error |= state.network.get(state.device, "lkname", text_ref(record->wanName, 34));
    text_ref(record->device).set(state.network.plain(state.device, "name"));
    (void)wan_read_port_binding(state.network, state.device, record->bind);
    if (wan_read_number(state.network, state.device, "vid", record->vid) == 0) {
        record->vlanMode = 1;
        (void)wan_read_number(state.network, state.device, "mvid", record->mvid);
    }
    read_priority(state);
}

// Whether the operator's branding hides the PPPoE service name.
bool service_name_hidden()
{
    char text[12] = {};
    return config_get("custom", "gpon", "ppp_service_name_hidden", text) == 0 && text_number(text) == 1;
}

void read_pppoe(reading &state)
{
    wan_config *const record = state.record;
    record->ipMode = ip_mode_pppoe;
    // Deliberate: wraps to 65528 when the device section has no MTU.
    record->mtu = static_cast<uint16_t>(record->mtu - 8);
    state.error |= state.network.get(state.interface, "username", record->pppUser);
    state.error |= state.network.get(state.interface, "password", record->pppPwd);
    if (!service_name_hidden())
        (void)state.network.get(state.interface, "service", record->pppServName);
    (void)wan_read_number(state.network, state.interface, "demand", record->pppDialMode);
}

void read_address_mode(reading &state)
{
    char protocol[8] = {};
    if (state.network.get(state.interface, "proto", protocol) != 0)
        state.error |= state.network.get(state.interface_v6, "proto", protocol);

    const std::string_view name = text_view(protocol);
    if (name == "static") {
        state.record->ipMode = ip_mode_static;
        wan_read_dns(state.network, state.interface, state.record);
    } else if (name == "pppoe") {
        read_pppoe(state);
    }
}

// Servers come from the link unless `peerdns` says otherwise; where it is set at all, the configured ones are
// read too.
void read_dns_choice(reading &state, uci_section *interface, uint8_t &learnt)
{
    learnt = 1;
    if (wan_read_number(state.network, interface, "peerdns", learnt) == 0)
        wan_read_dns(state.network, interface, state.record);
}

void read_ipv4(reading &state)
{
    wan_config *const record = state.record;
    (void)wan_read_number(state.network, state.interface, "iphostId", record->iphostId);
    state.error |= wan_read_number(state.network, state.interface, "napt", record->napt);
    if (record->ipMode != ip_mode_static)
        read_dns_choice(state, state.interface, record->autoDns);
}

void read_ipv6(reading &state)
{
    wan_config *const record = state.record;
    uci_section *const interface = record->ipMode == ip_mode_dhcp ? state.interface_v6 : state.interface;
    read_dns_choice(state, interface, record->autoDnsV6);
    record->ipv6PrefixProxy = 1;
    (void)wan_read_number(state.network, interface, "delegate", record->ipv6PrefixProxy);
    if (state.network.get(state.dslite, "peeraddr", record->ipv6AddrDsLite) == 0)
        record->ipv6DsLite = 1;
}

void read_interfaces(reading &state)
{
    const wan_names names(state.record->wanId);
    state.interface = state.network.section(names.interface);
    state.interface_v6 = state.network.section(names.interface_v6);
    state.dslite = state.network.section(names.dslite);

    read_address_mode(state);
    if (state.record->ipProtocol & ip_protocol_v4)
        read_ipv4(state);
    if (state.record->ipProtocol & ip_protocol_v6)
        read_ipv6(state);
}

} // namespace

int wan_read_config(const uci_loaded &network, wan_config *record)
{
    if (record->wanId == 0 || record->wanId > maxWanId) {
        log_error("Failed to get wan data");
        return -1;
    }
    uci_section *const device = network ? wan_device_section(network, record->wanId) : nullptr;
    if (!device) {
        log_error("Failed to get wan device and pon name");
        return -1;
    }

    reading state = {network, record, device, nullptr, nullptr, nullptr, 0};
    read_device_section(state);
    if (record->wanMode == wan_mode_routed)
        read_interfaces(state);
    if (network.get(device, "macaddr", record->mac) != 0)
        state.error |= wan_read_dev_mac(c_text(record->device), record->mac);
    state.error |= wan_read_ifstatus(record);
    if (state.error != 0)
        log_error("Error happened when getting wan_%u data: %d", record->wanId, state.error);
    return 0;
}

int wan_read_config(wan_config *record)
{
    const uci_loaded network("network");
    return wan_read_config(network, record);
}

namespace {

// Replaces a field by an option of the interface, or empties it when there is none.
template <size_t size>
void restore(const uci_loaded &network, uci_section *interface, const char *option, char (&field)[size])
{
    text_ref(field).clear();
    (void)network.get(interface, option, field);
}

// The link's state must not become configuration: while it is down there are no addresses to read, and while
// it is up its routes need not be the configured gateway.
void restore_static(const uci_loaded &network, uci_section *interface, wan_config *record)
{
    restore(network, interface, "ipaddr", record->ip);
    restore(network, interface, "netmask", record->mask);
    restore(network, interface, "gateway", record->gateway);
    restore(network, interface, "ip6addr", record->ipv6Addr);
    restore(network, interface, "ip6gw", record->ipv6Gateway);
    restore(network, interface, "ip6prefix", record->ipv6Prefix);
}

void restore_dns(const uci_loaded &network, uci_section *interface, uci_section *interface_v6,
                 wan_config *record)
{
    for (const text_ref field : {text_ref(record->priDns), text_ref(record->secDns),
                                 text_ref(record->priDnsV6), text_ref(record->secDnsV6)})
        field.clear();
    wan_read_dns(network, interface, record);
    wan_read_dns(network, interface_v6, record);
}

} // namespace

int wan_read_stored(wan_config *record)
{
    const uci_loaded network("network");
    const int result = wan_read_config(network, record);
    if (result != 0 || record->wanMode != wan_mode_routed)
        return result;

    const wan_names names(record->wanId);
    uci_section *const interface = network.section(names.interface);
    restore_dns(network, interface, network.section(names.interface_v6), record);
    (void)wan_read_number(network, interface, "iphostId", record->iphostId);
    (void)wan_read_number(network, interface, "napt", record->napt);
    if (record->ipMode == ip_mode_static)
        restore_static(network, interface, record);
    if (record->ipMode == ip_mode_pppoe) {
        restore(network, interface, "service", record->pppServName);
        record->pppDialMode = record->pppDialMode != 0 ? 1 : 0;
    }
    return result;
}
