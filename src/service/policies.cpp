#include "service/policies.h"

#include <iterator>

#define NUMBER(member, low, high, display)                                                                       \
    arg_rule                                                                                                     \
    {                                                                                                            \
        WAN_FIELD(member), BLOBMSG_TYPE_INT32, low, high, display                                                \
    }
#define FLAG(member, display)                                                                                    \
    arg_rule                                                                                                     \
    {                                                                                                            \
        WAN_FIELD(member), BLOBMSG_TYPE_INT8, 0, 1, display                                                      \
    }
#define TEXT(member, display)                                                                                    \
    arg_rule                                                                                                     \
    {                                                                                                            \
        WAN_FIELD(member), BLOBMSG_TYPE_STRING, 0, 0, display                                                    \
    }

// clang-format off
constexpr arg_rule arg_rules[record_arg_count] = {
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

namespace {

constexpr blobmsg_policy record_policy(size_t row)
{
    return {arg_rules[row].field.name, arg_rules[row].type};
}

// Whether no row was left out at the table's end and each name shown fits the buffer that callers have for it.
consteval bool rules_are_whole()
{
    for (const arg_rule &rule : arg_rules)
        if (!rule.field.name || !rule.display || __builtin_strlen(rule.display) >= display_name_size)
            return false;
    return true;
}
static_assert(rules_are_whole());

} // namespace

#define RECORD_ROWS_4(row) record_policy(row), record_policy(row + 1), record_policy(row + 2), record_policy(row + 3)
#define RECORD_ROWS                                                                                              \
    RECORD_ROWS_4(0), RECORD_ROWS_4(4), RECORD_ROWS_4(8), RECORD_ROWS_4(12), RECORD_ROWS_4(16), RECORD_ROWS_4(20), \
        RECORD_ROWS_4(24), RECORD_ROWS_4(28)

constexpr blobmsg_policy add_policy[add_arg_count] = {{"notUsed", BLOBMSG_TYPE_INT32}, RECORD_ROWS};
constexpr blobmsg_policy modify_policy[modify_arg_count] = {
    {"wanId", BLOBMSG_TYPE_INT32}, RECORD_ROWS, {"wait", BLOBMSG_TYPE_INT32}};
constexpr blobmsg_policy wan_id_policy[1] = {{"wanId", BLOBMSG_TYPE_INT32}};
