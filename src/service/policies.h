// The arguments of `add` and `modify`: one table from which the bus policies, the validation and the names
// shown to clients are made.
#pragma once

#include <algorithm>
#include <iterator>
#include <span>
#include <string_view>

#include "base/bus_headers.h"
#include "wan/wan_fields.h"

// One argument that is stored in the record. `field.name` is its name on the bus.
struct arg_rule {
    wan_field field;
    enum blobmsg_type type; // INT32, INT8 (a boolean) or STRING
    uint32_t low, high;     // accepted numbers, judged after the cut to the field's width; unused for texts,
                            // whose greatest accepted length is the field's size less one
    char display[18];       // what a refusal calls it
};

#define NUMBER(member, low, high, display)                                                                   \
    arg_rule                                                                                                 \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_INT32, low, high, display                                            \
    }
#define FLAG(member, display)                                                                                \
    arg_rule                                                                                                 \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_INT8, 0, 1, display                                                  \
    }
#define TEXT(member, display)                                                                                \
    arg_rule                                                                                                 \
    {                                                                                                        \
        WAN_FIELD(member), BLOBMSG_TYPE_STRING, 0, 0, display                                                \
    }

// The row order is the order in which a request is judged, and row i is policy entry i + 1.
// clang-format off
inline constexpr arg_rule arg_rules[] = {
    NUMBER(wanMode, 0, 1,      "WAN_MODE"),
    NUMBER(ipProtocol, 0, 3,   "IP_PROTOCOL"),
    NUMBER(ipMode, 0, 2,       "IP_MODE"),
    FLAG(napt,                 "NAPT"),
    FLAG(vlanMode,             "VLAN_MODE"),
    NUMBER(vid, 0, 4095,       "VID"),
    NUMBER(mvid, 0, 4095,      "MVID"),
    NUMBER(prio, 0, 7,         "PRIO"),
    NUMBER(mtu, 650, 1500,     "MTU"),
    NUMBER(service, 0, 7,      "SERVICE"),
    FLAG(disableLanDhcp,       "DIS_LAN_DHCP"),
    TEXT(bind,                 "BIND"),
    FLAG(autoDns,              "AUTO_DNS"),
    TEXT(priDns,               "PRI_DNS"),
    TEXT(secDns,               "SEC_DNS"),
    FLAG(autoDnsV6,            "AUTO_DNS_V6"),
    TEXT(priDnsV6,             "PRI_DNS_V6"),
    TEXT(secDnsV6,             "SEC_DNS_V6"),
    TEXT(ip,                   "IP"),
    TEXT(mask,                 "MASK"),
    TEXT(gateway,              "GATEWAY"),
    FLAG(ipv6PrefixProxy,      "IPV6_PREFIX_PROXY"),
    TEXT(ipv6Addr,             "IPV6_ADDR"),
    TEXT(ipv6Gateway,          "IPV6_GATEWAY"),
    TEXT(ipv6Prefix,           "IPV6_PREFIX"),
    TEXT(pppUser,              "PPP_USER"),
    TEXT(pppPwd,               "PPP_PWD"),
    TEXT(pppServName,          "PPP_SERVNAME"),
    FLAG(pppDialMode,          "PPP_DIAL_MODE"),
    NUMBER(iphostId, 0, 2,     "IPHOST_ID"),
    FLAG(ipv6DsLite,           "DS_LITE"),
    TEXT(ipv6AddrDsLite,       "DS_LITE_ADDR"),
};
// clang-format on

#undef NUMBER
#undef FLAG
#undef TEXT

inline constexpr size_t record_arg_count = std::size(arg_rules);

// The position of an argument in the parsed attributes.
inline constexpr size_t first_record_arg = 1;
consteval size_t arg_position(const wan_field &field)
{
    for (size_t i = 0; i < record_arg_count; i++)
        if (arg_rules[i].field.offset == field.offset)
            return first_record_arg + i;
    __builtin_unreachable(); // this field is no argument
}
inline constexpr size_t arg_wan_id = 0; // `notUsed` in the policy of add
inline constexpr size_t arg_wan_mode = arg_position(WAN_FIELD(wanMode));
inline constexpr size_t arg_wait = first_record_arg + record_arg_count; // modify only

inline constexpr size_t add_arg_count = arg_wait;
inline constexpr size_t modify_arg_count = arg_wait + 1;

// A policy as the bus library's macros want it: a real array, in `rows`.
template <size_t count> struct bus_policy {
    blobmsg_policy rows[count];
};
extern const bus_policy<add_arg_count> add_policy;
extern const bus_policy<modify_arg_count> modify_policy;
// The policy of `get` and `del`: wanId alone.
extern const bus_policy<1> wan_id_policy;

// Takes a request apart: attributes_out[i] is the argument of policy entry i, null when it is missing or of
// another type. A malformed request counts as one without arguments, so that no half of it is acted upon;
// that is logged.
void parse_request(std::span<const blobmsg_policy> policy, blob_attr *message,
                   std::span<blob_attr *> attributes_out);

// Holds the longest display name and its terminator.
inline constexpr size_t display_name_size = [] {
    size_t longest = 0;
    for (const arg_rule &rule : arg_rules)
        longest = std::max(longest, std::string_view(rule.display).size());
    return longest + 1;
}();
