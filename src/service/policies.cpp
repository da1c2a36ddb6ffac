#include "service/policies.h"

#include <algorithm>
#include <iterator>

#include "base/log.h"

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

template <size_t count> consteval bus_policy<count> make_policy(const char *first)
{
    bus_policy<count> policy = {};
    policy.rows[0] = {first, BLOBMSG_TYPE_INT32};
    for (size_t i = 0; i < record_arg_count; i++)
        policy.rows[first_record_arg + i] = {arg_rules[i].field.name, arg_rules[i].type};
    if constexpr (count > arg_wait)
        policy.rows[arg_wait] = {"wait", BLOBMSG_TYPE_INT32};
    return policy;
}

// Whether no row was left out at the table's end and each name shown fits the buffer that callers have for
// it.
consteval bool rules_are_whole()
{
    for (const arg_rule &rule : arg_rules)
        if (!rule.field.name || !rule.display || __builtin_strlen(rule.display) >= display_name_size)
            return false;
    return true;
}
static_assert(rules_are_whole());

} // namespace

constexpr bus_policy<add_arg_count> add_policy = make_policy<add_arg_count>("notUsed");
constexpr bus_policy<modify_arg_count> modify_policy = make_policy<modify_arg_count>("wanId");
constexpr bus_policy<1> wan_id_policy = {{{"wanId", BLOBMSG_TYPE_INT32}}};

void parse_request(std::span<const blobmsg_policy> policy, blob_attr *message,
                   std::span<blob_attr *> attributes_out)
{
    const size_t length = blob_len(message);
    if (length == 0) { // the library calls that an error, but every method may be called without arguments
        std::fill(attributes_out.begin(), attributes_out.end(), nullptr);
        return;
    }
    const int result = blobmsg_parse(policy.data(), static_cast<int>(policy.size()), attributes_out.data(),
                                     blob_data(message), static_cast<unsigned>(length));
    if (result == 0)
        return;
    log_error("Malformed request, its arguments are ignored");
    std::fill(attributes_out.begin(), attributes_out.end(), nullptr);
}
