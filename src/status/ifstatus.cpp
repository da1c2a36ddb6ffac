#include "status/ifstatus.h"

#include "base/json_guard.h"
#include "base/log.h"
#include "base/short_turns.h"
#include "wan/dns_servers.h"
#include "wan/wan_names.h"

#include <arpa/inet.h>

namespace {

// The text of a member, or null.
const char *member_text(json_object *object, const char *key)
{
    json_object *const value = json_member(object, key);
    return value ? json_object_get_string(value) : nullptr;
}

// The text of an entry of an array, or null; for what is no string, the library may lack the memory to make
// one.
const char *entry_text(json_object *array, size_t index)
{
    json_object *const value = json_object_array_get_idx(array, index);
    return value ? json_object_get_string(value) : nullptr;
}

void copy_member(json_object *object, const char *key, text_ref field)
{
    if (const char *const text = member_text(object, key))
        field.set(text);
}

// Stores "up" when the reply has it. Returns whether the interface is up.
bool read_up(json_object *root, uint8_t &status)
{
    json_object *const up = json_member(root, "up");
    if (!up)
        return false;
    status = json_object_get_boolean(up) ? 1 : 0;
    return status == 1;
}

void read_uptime(json_object *root, wan_config *record)
{
    if (json_object *const uptime = json_member(root, "uptime"))
        record->uptime = static_cast<uint32_t>(json_object_get_int(uptime));
}

// Writes "address/length" of an address entry; an entry without a mask goes on with the length of the one
// before it.
void read_prefixed(json_object *entry, int &length, text_ref field)
{
    if (json_object *const mask = json_member(entry, "mask"))
        length = json_object_get_int(mask);
    const char *const address = member_text(entry, "address");
    if (!address)
        return;
    field.clear();
    field.format("%s/%d", address, length);
}

void read_ipv6_addresses(json_object *root, wan_config *record)
{
    int length = 0;
    json_object *const addresses = json_member(root, "ipv6-address");
    const text_ref fields[] = {record->ipv6Addr, record->ipv6SecAddr};
    for (size_t i = 0; i < std::size(fields) && i < json_array_size(addresses); i++)
        read_prefixed(json_object_array_get_idx(addresses, i), length, fields[i]);

    json_object *const prefixes = json_member(root, "ipv6-prefix");
    for (size_t i = 0; i < json_array_size(prefixes); i++)
        read_prefixed(json_object_array_get_idx(prefixes, i), length, record->ipv6Prefix);
}

void read_ipv6_nexthops(json_object *holder, wan_config *record)
{
    json_object *const routes = json_member(holder, "route");
    for (size_t i = 0; i < json_array_size(routes); i++)
        copy_member(json_object_array_get_idx(routes, i), "nexthop", record->ipv6Gateway);
}

void read_ipv6_gateway(json_object *root, wan_config *record)
{
    read_ipv6_nexthops(root, record);
    const std::string_view gateway = text_view(record->ipv6Gateway);
    if (gateway.empty() || gateway == "::")
        read_ipv6_nexthops(json_member(root, "inactive"), record);
}

// The first two servers, of whatever family: this interface has IPv6 ones only.
void read_ipv6_dns(json_object *root, wan_config *record)
{
    json_object *const servers = json_member(root, "dns-server");
    const text_ref fields[] = {record->priDnsV6, record->secDnsV6};
    size_t count = 0;
    for (size_t i = 0; i < json_array_size(servers) && count < std::size(fields); i++)
        if (const char *const server = entry_text(servers, i))
            fields[count++].set(server);
}

void read_ipv6_document(json_object *root, wan_config *record)
{
    if (!read_up(root, record->statusV6))
        return;
    read_uptime(root, record);
    read_ipv6_addresses(root, record);
    read_ipv6_gateway(root, record);
    read_ipv6_dns(root, record);
}

// Deliberate: the shift is taken modulo 32, so a length of 0 gives the mask of 32.
void format_mask(int length, text_ref field)
{
    const uint32_t host_bits = (32U - static_cast<uint32_t>(length)) % 32;
    const in_addr mask = {htonl(UINT32_MAX << host_bits)};
    field.clear();
    (void)inet_ntop(AF_INET, &mask, field.data, static_cast<socklen_t>(field.size));
}

void read_ipv4_addresses(json_object *root, wan_config *record)
{
    json_object *const addresses = json_member(root, "ipv4-address");
    const size_t count = json_array_size(addresses);
    if (count > 0) {
        json_object *const first = json_object_array_get_idx(addresses, 0);
        copy_member(first, "address", record->ip);
        if (json_object *const mask = json_member(first, "mask"))
            format_mask(json_object_get_int(mask), record->mask);
    }
    if (count > 1)
        copy_member(json_object_array_get_idx(addresses, 1), "address", record->ipSec);
}

void read_nexthops(json_object *holder, wan_config *record)
{
    json_object *const routes = json_member(holder, "route");
    for (size_t i = 0; i < json_array_size(routes); i++) {
        const char *const nexthop = member_text(json_object_array_get_idx(routes, i), "nexthop");
        if (!nexthop)
            continue;
        if (strchr(nexthop, '.'))
            text_ref(record->gateway).set(nexthop);
        else if (strchr(nexthop, ':') && text_empty(record->ipv6Gateway))
            text_ref(record->ipv6Gateway).set(nexthop);
    }
}

void read_gateways(json_object *root, wan_config *record)
{
    read_nexthops(root, record);
    const std::string_view gateway = text_view(record->gateway);
    if (gateway.empty() || gateway == "0.0.0.0")
        read_nexthops(json_member(root, "inactive"), record);
}

void read_dns(json_object *root, wan_config *record)
{
    json_object *const servers = json_member(root, "dns-server");
    dns_sorter sorter(*record);
    for (size_t i = 0; i < json_array_size(servers); i++)
        if (const char *const server = entry_text(servers, i))
            sorter.take(server);
}

void read_ipv4_document(json_object *root, wan_config *record)
{
    if (!read_up(root, record->status))
        return;
    read_uptime(root, record);
    read_ipv4_addresses(root, record);
    // A static WAN has both protocols on this one interface.
    if (record->ipMode == ip_mode_static && (record->ipProtocol & ip_protocol_v6)) {
        record->statusV6 = record->status;
        read_ipv6_addresses(root, record);
    }
    read_gateways(root, record);
    read_dns(root, record);
}

bool has_own_ipv6_interface(const wan_config &wan)
{
    return wan.ipMode != ip_mode_static && (wan.ipProtocol & ip_protocol_v6);
}

// The interfaces whose status tells about a WAN, in the order in which they are asked for and read.
struct asked_interfaces {
    char names[2][12];
    size_t count = 0;

    explicit asked_interfaces(const wan_config &wan)
    {
        if (wan.wanMode == wan_mode_bridged)
            return;
        const wan_names of_wan(wan.wanId);
        if (has_own_ipv6_interface(wan)) {
            add(wan.ipMode == ip_mode_dhcp ? of_wan.interface_v6 : of_wan.dialled_v6);
            if (wan.ipProtocol == ip_protocol_v6)
                return;
        }
        add(of_wan.interface);
    }
    void add(const char *name) { (void)text_ref(names[count++]).format("%s", name); }
};

} // namespace

// Short turns are for whoever starts several. From then on they would only interrupt the commands: each time
// that one prints something, and while it ends.
void ifstatus_reader::ask(std::span<const wan_reading> wans)
{
    wans_ = wans;
    const size_t starts =
        wans.size() == 1 ? asked_interfaces(*wans[0].record).count : status_commands::most_at_once;
    if (starts == 1)
        take_usual_turns();
    ask_ahead();
    if (starts > 1)
        take_usual_turns();
}

// Starts as many commands as may run now.
void ifstatus_reader::ask_ahead()
{
    for (; next_wan_ < wans_.size(); next_wan_++, next_interface_ = 0) {
        if (wans_[next_wan_].failure)
            continue;
        const asked_interfaces asked(*wans_[next_wan_].record);
        while (next_interface_ < asked.count) {
            const auto answer = commands_.ask(asked.names[next_interface_]);
            if (answer == status_commands::answer::later)
                return;
            // What cannot be asked ends the reading of its WAN.
            next_interface_ = answer == status_commands::answer::failed ? asked.count : next_interface_ + 1;
        }
    }
}

const char *ifstatus_reader::next_reply()
{
    ask_ahead();
    return commands_.take();
}

int ifstatus_reader::read_ipv6_interface(wan_config *record)
{
    const char *const reply = next_reply();
    if (!reply)
        return -1;
    const json_document status(reply);
    if (!status) {
        log_error("Failed to parse netifd data_v6 json");
        return record->ipProtocol == ip_protocol_v6 ? -1 : 0;
    }
    read_ipv6_document(status.root(), record);
    return 0;
}

int ifstatus_reader::read_ipv4_interface(wan_config *record)
{
    const char *const reply = next_reply();
    if (!reply)
        return -1;
    const json_document status(reply);
    if (!status) {
        log_error("Failed to parse netifd data json");
        return -1;
    }
    read_ipv4_document(status.root(), record);
    return 0;
}

int ifstatus_reader::read(wan_config *record)
{
    if (record->wanMode == wan_mode_bridged) {
        record->status = 1;
        record->statusV6 = 1;
        return 0;
    }
    if (has_own_ipv6_interface(*record)) {
        const int result = read_ipv6_interface(record);
        if (result != 0 || record->ipProtocol == ip_protocol_v6)
            return result;
    }
    return read_ipv4_interface(record);
}
