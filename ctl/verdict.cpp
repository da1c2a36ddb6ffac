#include "ctl/verdict.h"

#include "ctl/gateway_state.h"
#include "ctl/words.h"
#include "wan/wan_names.h"

#include <arpa/inet.h>
#include <cstdarg>
#include <cstring>

namespace {

constexpr uint16_t highest_pppoe_mtu = 1492; // 8 bytes of an Ethernet frame are PPPoE's

bool has_v4(const wan_config &record)
{
    return (record.ipProtocol & ip_protocol_v4) != 0;
}

bool has_v6(const wan_config &record)
{
    return (record.ipProtocol & ip_protocol_v6) != 0;
}

bool same_vlan(const wan_config &one, const wan_config &other)
{
    return one.vlanMode ? other.vlanMode && one.vid == other.vid : !other.vlanMode;
}

struct vlan_words {
    char text[24];
    explicit vlan_words(const wan_config &record)
    {
        if (record.vlanMode)
            (void)text_ref(text).format("VLAN %u", record.vid);
        else
            (void)text_ref(text).format("the untagged link");
    }
};

// The first position that both bind; -1 when there is none.
int shared_port(const wan_config &one, const wan_config &other)
{
    for (size_t i = 0; i < sizeof(one.bind) && one.bind[i] != '\0' && other.bind[i] != '\0'; i++)
        if (one.bind[i] == '1' && other.bind[i] == '1')
            return static_cast<int>(i);
    return -1;
}

bool binds_ports(const wan_config &record)
{
    return memchr(record.bind, '1', sizeof(record.bind)) != nullptr;
}

// An IPv4 address in the machine's order. False: it is none.
bool read_v4(const char *text, uint32_t *address_out)
{
    in_addr address = {};
    if (inet_pton(AF_INET, text, &address) != 1)
        return false;
    *address_out = ntohl(address.s_addr);
    return true;
}

bool is_v4(const char *text)
{
    uint32_t address = 0;
    return read_v4(text, &address);
}

// Addresses that a link's end can have.
bool is_host_v4(uint32_t address)
{
    return address >> 24 != 0 && address >> 24 != 127 && address < 0xe0000000;
}

bool is_v6(const char *text)
{
    in6_addr address = {};
    return inet_pton(AF_INET6, text, &address) == 1;
}

// An IPv6 address with "/length". False: it is none.
bool read_v6(const char *text, in6_addr *address_out, uint32_t *length_out)
{
    char address[64] = {};
    const size_t end = strcspn(text, "/");
    if (text[end] == '\0' || end >= sizeof(address))
        return false;
    memcpy(address, text, end);
    return inet_pton(AF_INET6, address, address_out) == 1 && read_number(text + end + 1, 128, length_out);
}

bool same_network(const in6_addr &one, const in6_addr &other, uint32_t length)
{
    for (uint32_t bit = 0; bit < length; bit++)
        if (((one.s6_addr[bit / 8] ^ other.s6_addr[bit / 8]) & (0x80 >> bit % 8)) != 0)
            return false;
    return true;
}

bool is_link_local(const in6_addr &address)
{
    return address.s6_addr[0] == 0xfe && (address.s6_addr[1] & 0xc0) == 0x80;
}

// Every number in the range that the daemon takes.
void judge_ranges(const wan_config &record, verdict &result)
{
    for (size_t row = 0; row < record_arg_count; row++) {
        const arg_row &range = arg_rows[row];
        const uint32_t number = arg_field(row).number(record);
        if (arg_field(row).type == BLOBMSG_TYPE_INT32 && (number < range.low || number > range.high))
            result.refuse(exit_status::usage, "%s is %u and has to be %u to %u", arg_field(row).name, number,
                          range.low, range.high);
    }
    if (memchr(record.bind, '\0', sizeof(record.bind)) == nullptr)
        result.refuse(
            exit_status::usage,
            "the port binding is longer than a request may say; with --in it is left as it is stored");
}

// Options that the WAN as it would be has no use for.
void judge_use(const wan_request &request, const wan_config &record, verdict &result)
{
    constexpr arg_set v4_addresses = {ARG(ip), ARG(mask), ARG(gateway)};
    constexpr arg_set v6_addresses = {ARG(ipv6Addr), ARG(ipv6Gateway), ARG(ipv6Prefix)};
    constexpr arg_set of_ppp = {ARG(pppUser), ARG(pppPwd), ARG(pppServName), ARG(pppDialMode)};
    constexpr arg_set of_routed = v4_addresses | v6_addresses | of_ppp |
                                  arg_set{ARG(napt),       ARG(autoDns), ARG(autoDnsV6), ARG(ipv6PrefixProxy),
                                          ARG(ipv6DsLite), ARG(iphostId)};
    const arg_set given = request.given;
    const bool routed = record.wanMode == wan_mode_routed;
    if (!routed && given.has_any(of_routed))
        result.refuse(
            exit_status::usage,
            "a bridged WAN has no addresses, name servers, NAT or user of its own; leave them out, or make "
            "it routed with --dhcp, --static or --pppoe");
    if (!routed)
        return;
    if (record.ipMode != ip_mode_pppoe && given.has_any(of_ppp))
        result.refuse(exit_status::usage,
                      "only PPPoE has a user, a password, a service name and dials; add --pppoe USER");
    if (record.ipMode != ip_mode_static && given.has_any(v4_addresses | v6_addresses))
        result.refuse(exit_status::usage, "addresses are given to a static WAN alone; add --static");
    if (!has_v4(record) && given.has_any(v4_addresses | arg_set{ARG(priDns)}))
        result.refuse(exit_status::usage, "this WAN has no IPv4; add --ipv4 or --dual");
    if (!has_v4(record) && given.has(ARG(napt)) && record.napt)
        result.refuse(exit_status::usage, "NAT is for IPv4, which this WAN has not; add --ipv4 or --dual");
    if (!has_v6(record) && given.has_any(v6_addresses | arg_set{ARG(priDnsV6), ARG(ipv6PrefixProxy)}))
        result.refuse(exit_status::usage, "this WAN has no IPv6; add --ipv6 or --dual");
    if (record.ipMode == ip_mode_static &&
        ((given.has(ARG(autoDns)) && record.autoDns) || (given.has(ARG(autoDnsV6)) && record.autoDnsV6)))
        result.refuse(exit_status::usage,
                      "a static link tells no name servers; name them: --dns ADDRESS,ADDRESS");
}

void judge_v4(const wan_config &record, verdict &result)
{
    uint32_t address = 0, mask = 0, gateway = 0;
    if (text_empty(record.ip))
        return result.refuse(exit_status::usage,
                             "a static WAN needs an address: --address ADDRESS/LENGTH --gateway ADDRESS");
    if (!read_v4(record.ip, &address) || !is_host_v4(address))
        return result.refuse(exit_status::usage, "%s is no IPv4 address that a WAN can have", record.ip);
    if (!read_v4(record.mask, &mask) || mask == 0 || (~mask & (~mask + 1)) != 0)
        return result.refuse(
            exit_status::usage,
            "%s is no mask; write the length behind the address, as --address %s/24, or --mask "
            "255.255.255.0",
            record.mask[0] ? record.mask : "nothing", record.ip);
    const uint32_t network = address & mask;
    const bool has_ends = ~mask > 1; // longer prefixes have no address of the network nor one for all
    if (has_ends && (address == network || address == (network | ~mask)))
        return result.refuse(exit_status::usage, "%s with mask %s is the network's own address, no host's",
                             record.ip, record.mask);
    if (text_empty(record.gateway))
        return;
    if (!read_v4(record.gateway, &gateway))
        return result.refuse(exit_status::usage, "%s is no IPv4 address; --gateway takes one",
                             record.gateway);
    if ((gateway & mask) != network)
        return result.refuse(
            exit_status::usage,
            "the gateway %s is not in the network of %s with mask %s; give one of %u.%u.%u.%u and on, "
            "or a shorter mask",
            record.gateway, record.ip, record.mask, network >> 24, network >> 16 & 255, network >> 8 & 255,
            network & 255);
    if (gateway == address || (has_ends && (gateway == network || gateway == (network | ~mask))))
        result.refuse(exit_status::usage,
                      "the gateway %s is the WAN's own address or the network's; give the peer's",
                      record.gateway);
}

void judge_v6(const wan_config &record, verdict &result)
{
    in6_addr address = {}, gateway = {}, prefix = {}, none = {};
    uint32_t length = 0, prefix_length = 0;
    if (!read_v6(record.ipv6Addr, &address, &length) || length == 0)
        return result.refuse(exit_status::usage,
                             "%s is no IPv6 address with a length; give --address6 2001:db8::9/64",
                             text_empty(record.ipv6Addr) ? "nothing" : record.ipv6Addr);
    if (!text_empty(record.ipv6Gateway)) {
        if (inet_pton(AF_INET6, record.ipv6Gateway, &gateway) != 1)
            return result.refuse(exit_status::usage, "%s is no IPv6 address; --gateway6 takes one",
                                 record.ipv6Gateway);
        if (!is_link_local(gateway) && !same_network(address, gateway, length))
            return result.refuse(
                exit_status::usage,
                "the gateway %s is not in the network of %s; give one that is, or a link-local one",
                record.ipv6Gateway, record.ipv6Addr);
    }
    if (text_empty(record.ipv6Prefix))
        return;
    const bool good = read_v6(record.ipv6Prefix, &prefix, &prefix_length) && prefix_length > 0;
    for (uint32_t bit = prefix_length; good && bit < 128; bit++)
        none.s6_addr[bit / 8] |= static_cast<uint8_t>(prefix.s6_addr[bit / 8] & (0x80 >> bit % 8));
    if (!good || !IN6_IS_ADDR_UNSPECIFIED(&none))
        result.refuse(exit_status::usage, "%s is no IPv6 prefix; give --prefix6 2001:db8:1::/48",
                      record.ipv6Prefix);
}

void judge_servers(const wan_config &record, verdict &result)
{
    for (const char *const server : {record.priDns, record.secDns})
        if (has_v4(record) && !record.autoDns && server[0] != '\0' && !is_v4(server))
            result.refuse(exit_status::usage,
                          "the name server %s is no IPv4 address; --dns6 takes the others", server);
    for (const char *const server : {record.priDnsV6, record.secDnsV6})
        if (has_v6(record) && !record.autoDnsV6 && server[0] != '\0' && !is_v6(server))
            result.refuse(exit_status::usage, "the name server %s is no IPv6 address; --dns takes the others",
                          server);
}

void judge_ppp(const wan_config &record, verdict &result)
{
    if (record.mtu > highest_pppoe_mtu)
        result.refuse(exit_status::usage, "an MTU of %u does not fit PPPoE; it has at most %u: --mtu %u",
                      record.mtu, highest_pppoe_mtu, highest_pppoe_mtu);
    if (text_empty(record.pppUser))
        result.refuse(exit_status::usage, "PPPoE needs a user: --pppoe USER");
    if (text_empty(record.pppPwd))
        result.refuse(exit_status::usage,
                      "PPPoE needs a password: --password-file FILE, or - for standard input");
}

void judge_routed(const wan_config &record, verdict &result)
{
    if (!has_v4(record) && !has_v6(record))
        result.refuse(exit_status::usage, "a routed WAN has IPv4 or IPv6 or both: --ipv4, --ipv6, --dual");
    if (record.ipMode == ip_mode_static && has_v4(record))
        judge_v4(record, result);
    if (record.ipMode == ip_mode_static && has_v6(record))
        judge_v6(record, result);
    if (record.ipMode == ip_mode_pppoe)
        judge_ppp(record, result);
    judge_servers(record, result);
    if (record.ipv6DsLite && record.ipProtocol != ip_protocol_v6)
        result.refuse(exit_status::usage,
                      "DS-Lite carries IPv4 over a WAN of IPv6 alone; add --ipv6, or --dslite none");
}

void judge_ports(const wan_request &request, const wan_config &record, const wan_list &wans, verdict &result)
{
    const wan_service &service = wan_service_of(record.service);
    if (binds_ports(record) && !service.binds_ports)
        result.refuse(
            exit_status::usage,
            "no port can be bound to a WAN of service %s; add --ports none, or --service with internet or "
            "other",
            service_words(record.service).text);
    if (record.wanMode == wan_mode_bridged && record.service == service_other && !binds_ports(record))
        result.refuse(exit_status::port_required,
                      "a bridged WAN of service other needs a port: --ports lan1, or another --service");
    if (const wan_config *const holder = port_holder(record, request.wan_id, wans)) {
        (void)load_ports();
        const port_word port(static_cast<size_t>(shared_port(record, *holder)));
        result.refuse(exit_status::port_bound,
                      "%s is bound to WAN %u (%s); leave it out of --ports, or take it from there: modify %u "
                      "--ports ...",
                      port.text, holder->wanId, c_text(holder->wanName).data, holder->wanId);
    }
}

void judge_vlan(const wan_request &request, const wan_config &record, const wan_list &wans, verdict &result)
{
    if (!record.vlanMode && (record.prio != 0 || record.mvid != 0))
        result.refuse(exit_status::usage,
                      "an untagged WAN has no priority and no multicast VLAN; add --vlan VLAN");
    if (record.mvid != 0 && record.mvid == record.vid)
        result.refuse(exit_status::vlan_taken, "the multicast VLAN has to be another than the WAN's own, %u",
                      record.vid);
    const wan_config *const holder = vlan_holder(record, request.wan_id, wans);
    if (holder && same_vlan(record, *holder))
        result.refuse(exit_status::vlan_taken,
                      "%s is WAN %u's (%s), and a bridged WAN shares with nobody; take another: --vlan",
                      vlan_words(record).text, holder->wanId, c_text(holder->wanName).data);
    else if (holder)
        result.refuse(exit_status::vlan_taken,
                      "multicast VLAN %u is WAN %u's (%s); each has one of its own: --mvlan", record.mvid,
                      holder->wanId, c_text(holder->wanName).data);
    const bool asks = request.wan_id == 0 || request.given.has(ARG(vid)) || request.given.has(ARG(wanMode));
    for (const wan_config &other : wans)
        if (asks && !request.again && other.wanId != request.wan_id && same_vlan(record, other))
            result.refuse(
                exit_status::vlan_taken,
                "%s is WAN %u's (%s) already; two routed WANs may share it, if that is meant: --again",
                vlan_words(record).text, other.wanId, c_text(other.wanName).data);
}

} // namespace

void verdict::refuse(exit_status why, const char *pattern, ...)
{
    if (status != exit_status::done)
        return;
    status = why;
    va_list arguments;
    va_start(arguments, pattern);
    (void)vsnprintf(text, sizeof(text), pattern, arguments);
    va_end(arguments);
}

const wan_config *vlan_holder(const wan_config &record, uint8_t own_id, const wan_list &wans)
{
    for (const wan_config &other : wans) {
        if (other.wanId == own_id)
            continue;
        const bool alone = record.wanMode == wan_mode_bridged || other.wanMode == wan_mode_bridged;
        if ((alone && same_vlan(record, other)) || (record.mvid != 0 && record.mvid == other.mvid))
            return &other;
    }
    return nullptr;
}

const wan_config *port_holder(const wan_config &record, uint8_t own_id, const wan_list &wans)
{
    for (const wan_config &other : wans)
        if (other.wanId != own_id && shared_port(record, other) >= 0)
            return &other;
    return nullptr;
}

verdict judge(const wan_request &request, const wan_config &record, const wan_list &wans)
{
    verdict result;
    judge_use(request, record, result);
    if (record.wanMode == wan_mode_routed)
        judge_routed(record, result);
    judge_ranges(record, result);
    judge_ports(request, record, wans, result);
    judge_vlan(request, record, wans, result);
    return result;
}
