#include "store/read_config.h"

#include "base/log.h"
#include "service/settings.h"
#include "status/ifstatus.h"
#include "store/mac.h"
#include "store/section_index.h"
#include "wan/dns_servers.h"
#include "wan/wan_names.h"

#include <string_view>

int wan_read_option(const uci_loaded &network, uci_section *section, const stored_option &option,
                    wan_config *record)
{
    if (option.field.kind == field_kind::text)
        return network.get(section, option.name, field_ref(*record, option.field));
    char text[12] = {};
    const int result = network.get(section, option.name, text);
    if (result == 0)
        set_field_number(*record, option.field, static_cast<uint32_t>(text_number(text)));
    return result;
}

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
        const char *const link_name = network.plain(section, STORED(wanName).name);
        if (link_name && strncmp(link_name, prefix.text, prefix_length) == 0 &&
            network.plain(section, STORED(device).name))
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
    text_ref(device_out).set(network.plain(section, STORED(device).name));
    return 0;
}

unsigned wan_read_port_binding(const uci_loaded &network, uci_section *section, char (&bind_out)[17])
{
    uci_list *const entries = network.list(section, STORED(bind).name);
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
    uci_list *const servers = network.list(interface, STORED(priDns).name);
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

// What the steps of reading the configuration share.
struct configured_wan {
    const uci_loaded &network;
    wan_config *record;
    const wan_sections &sections;
    int error; // the results of the reads that count, by bitwise OR
};

uci_section *section_of(const configured_wan &state, option_place place)
{
    switch (place) {
    case option_place::device:
    case option_place::vlan:
        return state.sections.device;
    case option_place::interface_v6:
        return state.record->ipMode == ip_mode_dhcp ? state.sections.interface_v6 : state.sections.interface;
    case option_place::dslite:
        return state.sections.dslite;
    default:
        return state.sections.interface;
    }
}

int read_option(configured_wan &state, const stored_option &option)
{
    uci_section *const section = section_of(state, option.place);
    const int result = wan_read_option(state.network, section, option, state.record);
    if (option.need == option_need::required)
        state.error |= result;
    return result;
}

void read_options(configured_wan &state, option_place place)
{
    for (const stored_option &option : stored_options)
        if (option.place == place && option.kind != option_kind::by_code)
            (void)read_option(state, option);
}

void read_priority(configured_wan &state)
{
    char mapping[6] = {};
    if (state.network.get(state.sections.device, STORED(prio).name, mapping) == 0 &&
        strncmp(mapping, "0:", 2) == 0)
        state.record->prio = static_cast<uint8_t>(mapping[2] - '0');
}

void read_device_section(configured_wan &state)
{
    wan_config *const record = state.record;
    read_options(state, option_place::device);
    state.error |=
        state.network.get(state.sections.device, STORED(wanName).name, text_ref(record->wanName, 34));
    text_ref(record->device).set(state.network.plain(state.sections.device, STORED(device).name));
    (void)wan_read_port_binding(state.network, state.sections.device, record->bind);
    if (read_option(state, STORED(vid)) == 0) {
        record->vlanMode = 1;
        (void)read_option(state, STORED(mvid));
    }
    read_priority(state);
}

// Whether the operator's branding hides the PPPoE service name.
bool ppp_service_name_hidden()
{
    char text[12] = {};
    return config_get("custom", "gpon", "ppp_service_name_hidden", text) == 0 && text_number(text) == 1;
}

void read_pppoe(configured_wan &state)
{
    wan_config *const record = state.record;
    record->ipMode = ip_mode_pppoe;
    // Deliberate: wraps to 65528 when the device section has no MTU.
    record->mtu = static_cast<uint16_t>(record->mtu - 8);
    read_options(state, option_place::pppoe);
    if (!text_empty(record->pppServName) && ppp_service_name_hidden())
        text_ref(record->pppServName).clear();
    (void)read_option(state, STORED(pppDialMode));
}

void read_address_mode(configured_wan &state)
{
    constexpr const char *option = STORED(ipMode).name;
    char protocol[8] = {};
    if (state.network.get(state.sections.interface, option, protocol) != 0)
        state.error |= state.network.get(state.sections.interface_v6, option, protocol);

    const std::string_view name = text_view(protocol);
    if (name == "static") {
        state.record->ipMode = ip_mode_static;
        wan_read_dns(state.network, state.sections.interface, state.record);
    } else if (name == "pppoe") {
        read_pppoe(state);
    }
}

// Servers come from the link unless the option says otherwise; where it is set at all, the configured ones
// are read too.
void read_dns_choice(configured_wan &state, const stored_option &choice)
{
    set_field_number(*state.record, choice.field, 1);
    if (read_option(state, choice) == 0)
        wan_read_dns(state.network, section_of(state, choice.place), state.record);
}

void read_ipv4(configured_wan &state)
{
    (void)read_option(state, STORED(iphostId));
    (void)read_option(state, STORED(napt));
    if (state.record->ipMode != ip_mode_static)
        read_dns_choice(state, STORED(autoDns));
}

void read_ipv6(configured_wan &state)
{
    read_dns_choice(state, STORED(autoDnsV6));
    state.record->ipv6PrefixProxy = 1;
    (void)read_option(state, STORED(ipv6PrefixProxy));
    if (read_option(state, STORED(ipv6AddrDsLite)) == 0)
        state.record->ipv6DsLite = 1;
}

void read_interfaces(configured_wan &state)
{
    read_address_mode(state);
    if (state.record->ipProtocol & ip_protocol_v4)
        read_ipv4(state);
    if (state.record->ipProtocol & ip_protocol_v6)
        read_ipv6(state);
}

} // namespace

void wan_read_configured(const uci_loaded &network, wan_reading *reading)
{
    const uint8_t id = reading->record->wanId;
    const wan_names names(id);
    wan_sections sections = {};
    if (network)
        sections = {wan_device_section(network, id), network.section(names.interface),
                    network.section(names.interface_v6), network.section(names.dslite)};
    wan_read_configured(network, sections, reading);
}

void wan_read_configured(const uci_loaded &network, const wan_sections &sections, wan_reading *reading)
{
    wan_config *const record = reading->record;
    if (record->wanId == 0 || record->wanId > maxWanId) {
        reading->failure = "Failed to get wan data";
        return;
    }
    if (!sections.device) {
        reading->failure = "Failed to get wan device and pon name";
        return;
    }

    configured_wan state = {network, record, sections, 0};
    read_device_section(state);
    if (record->wanMode == wan_mode_routed)
        read_interfaces(state);
    if (read_option(state, STORED(mac)) != 0)
        state.error |= wan_read_dev_mac(c_text(record->device), record->mac);
    reading->error = state.error;
}

namespace {

int log_failure(const wan_reading &reading)
{
    log_error("%s", reading.failure);
    return -1;
}

void log_errors(const wan_reading &reading, int error)
{
    if (error != 0)
        log_error("Error happened when getting wan_%u data: %d", reading.record->wanId, error);
}

} // namespace

int wan_finish_reading(ifstatus_reader &states, const wan_reading &reading)
{
    if (reading.failure)
        return log_failure(reading);
    log_errors(reading, reading.error | states.read(reading.record));
    return 0;
}

int wan_read_config(wan_config *record, uint64_t asked)
{
    wan_reading reading = {record, nullptr, 0};
    ifstatus_reader states(asked);
    {
        const uci_loaded network("network");
        wan_read_configured(network, &reading);
        states.ask({&reading, 1}); // giving back what was loaded takes a while
    }
    return wan_finish_reading(states, reading);
}

namespace {

// Replaces a text field by its option, or empties it when there is none.
void restore(const uci_loaded &network, uci_section *interface, const stored_option &option,
             wan_config *record)
{
    field_ref(*record, option.field).clear();
    (void)wan_read_option(network, interface, option, record);
}

// Queries leave out what the WAN's protocols do not use.
void restore_static(const uci_loaded &network, uci_section *interface, wan_config *record)
{
    for (const stored_option &option : stored_options)
        if (option.place == option_place::static_v4 || option.place == option_place::static_v6)
            restore(network, interface, option, record);
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

int wan_read_stored(const uci_loaded &network, wan_config *record)
{
    wan_reading reading = {record, nullptr, 0};
    wan_read_configured(network, &reading);
    int result = 0;
    if (reading.failure)
        result = log_failure(reading);
    else
        log_errors(reading, reading.error);
    if (!network) {
        log_error("Failed to read file: /etc/config/network: %s", network.reason());
        return configuration_unreadable;
    }
    if (result != 0 || record->wanMode != wan_mode_routed)
        return result;

    const wan_names names(record->wanId);
    uci_section *const interface = network.section(names.interface);
    restore_dns(network, interface, network.section(names.interface_v6), record);
    (void)wan_read_option(network, interface, STORED(iphostId), record);
    (void)wan_read_option(network, interface, STORED(napt), record);
    if (record->ipMode == ip_mode_static)
        restore_static(network, interface, record);
    if (record->ipMode == ip_mode_pppoe) {
        restore(network, interface, STORED(pppServName), record);
        record->pppDialMode = record->pppDialMode != 0 ? 1 : 0;
    }
    return result;
}
