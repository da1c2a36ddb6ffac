// The options of the `network` configuration that hold the fields of a WAN's record: one row an option, from
// which creation writes and the readers read. An option is called by its field, STORED(vid), so that its
// name and its section stand here only.
#pragma once

#include "wan/wan_fields.h"

// The section that an option stands in, and with which others it is written.
enum class option_place : uint8_t {
    device,       // the device section
    vlan,         // the device section of a tagged WAN
    interface,    // wan_<id>
    pppoe,        // wan_<id> of a WAN that dials
    static_v4,    // wan_<id> of a static WAN with IPv4
    static_v6,    // wan_<id> of a static WAN with IPv6
    interface_v6, // the interface that carries IPv6: wan_<id>_v6 of a WAN with ipMode DHCP, else wan_<id>
    dslite,       // dslite_<id>
};

// How a field is written. Reading goes by the field alone: a number takes at most 11 characters, as atoi has
// them; a text is cut to the field, and gets the entries of a list joined by blanks.
enum class option_kind : uint8_t {
    plain,        // a number in decimal, or a text as it is
    unless_zero,  // a number, left out when it is 0
    entry,        // a text, as an entry of a list
    unless_empty, // the same, left out when it is empty
    by_code,      // by code of its own, which takes the name and the place from here
};

// Whether reading a WAN that lacks the option counts as failed.
enum class option_need : uint8_t { optional, required };

struct stored_option {
    option_place place;
    char name[19];
    wan_field field;
    option_kind kind;
    option_need need;
};

#define ROW(place, name, member, kind, need)                                                                 \
    stored_option                                                                                            \
    {                                                                                                        \
        option_place::place, name, WAN_FIELD(member), option_kind::kind, option_need::need                   \
    }

// Those of one place are written in this order.
// clang-format off
inline constexpr stored_option stored_options[] = {
    ROW(device,       "name",               device,          by_code,      required),
    ROW(device,       "mtu",                mtu,             plain,        required),
    ROW(device,       "wanMode",            wanMode,         plain,        required),
    ROW(device,       "IpProtocolType",     ipProtocol,      plain,        required),
    ROW(device,       "service_mode",       service,         plain,        required),
    ROW(device,       "disableLanDhcp",     disableLanDhcp,  plain,        required),
    ROW(device,       "macaddr",            mac,             by_code,      optional),
    ROW(device,       "port_binding",       bind,            by_code,      optional),
    ROW(device,       "lkname",             wanName,         by_code,      required),

    ROW(vlan,         "vid",                vid,             plain,        optional),
    ROW(vlan,         "mvid",               mvid,            unless_zero,  optional),
    ROW(vlan,         "egress_qos_mapping", prio,            by_code,      optional),

    ROW(interface,    "proto",              ipMode,          by_code,      required),
    ROW(interface,    "napt",               napt,            plain,        required),
    ROW(interface,    "peerdns",            autoDns,         by_code,      optional),
    ROW(interface,    "dns",                priDns,          unless_empty, optional),
    ROW(interface,    "dns",                secDns,          unless_empty, optional),
    ROW(interface,    "iphostId",           iphostId,        unless_zero,  optional),

    ROW(pppoe,        "username",           pppUser,         plain,        required),
    ROW(pppoe,        "password",           pppPwd,          plain,        required),
    ROW(pppoe,        "service",            pppServName,     plain,        optional),
    ROW(pppoe,        "demand",             pppDialMode,     by_code,      optional),

    ROW(static_v4,    "ipaddr",             ip,              plain,        optional),
    ROW(static_v4,    "netmask",            mask,            plain,        optional),
    ROW(static_v4,    "gateway",            gateway,         plain,        optional),

    ROW(static_v6,    "ip6addr",            ipv6Addr,        entry,        optional),
    ROW(static_v6,    "ip6gw",              ipv6Gateway,     plain,        optional),
    ROW(static_v6,    "ip6prefix",          ipv6Prefix,      plain,        optional),

    ROW(interface_v6, "peerdns",            autoDnsV6,       by_code,      optional),
    ROW(interface_v6, "dns",                priDnsV6,        unless_empty, optional),
    ROW(interface_v6, "dns",                secDnsV6,        unless_empty, optional),
    ROW(interface_v6, "delegate",           ipv6PrefixProxy, by_code,      optional),

    ROW(dslite,       "peeraddr",           ipv6AddrDsLite,  plain,        optional),
};
// clang-format on

#undef ROW

// The option of a field, looked up by the compiler, which refuses a field that has none.
consteval const stored_option &option_of(const wan_field &field)
{
    for (const stored_option &option : stored_options)
        if (option.field.offset == field.offset)
            return option;
    __builtin_unreachable(); // this field has no row
}
#define STORED(member) option_of(WAN_FIELD(member))

// Options of a device section that no field holds.
inline constexpr char device_type_option[] = "type";     // "8021q", or "bridge" of the LAN bridge
inline constexpr char device_uplink_option[] = "ifname"; // the device below a tagged one
