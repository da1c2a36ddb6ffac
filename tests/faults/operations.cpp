#include "faults/operations.h"

namespace {

using enum success;

#define PPPOE(vid, more)                                                                                     \
    R"("wanMode":1,"ipProtocol":3,"ipMode":2,"napt":true,"vlanMode":true,"vid":)" #vid                       \
    R"(,"prio":5,"mtu":1492,"service":1,"autoDns":true,"autoDnsV6":true,"pppUser":"alice@isp.example",)"     \
    R"("pppPwd":"hidden-word-of-alice")" more
#define DUAL_DHCP(vid, more)                                                                                 \
    R"("wanMode":1,"ipProtocol":3,"ipMode":0,"napt":true,"vlanMode":true,"vid":)" #vid                       \
    R"(,"mtu":1500,"service":1,"autoDns":true,"autoDnsV6":false,"priDnsV6":"2001:db8::53")" more
#define BRIDGED(vid, more)                                                                                   \
    R"("wanMode":0,"ipProtocol":1,"vlanMode":true,"vid":)" #vid                                              \
    R"(,"mvid":301,"mtu":1500,"service":3,"disableLanDhcp":true)" more
#define CALLS(vid)                                                                                           \
    R"("wanMode":1,"ipProtocol":1,"ipMode":1,"napt":false,"vlanMode":true,"vid":)" #vid                      \
    R"(,"mtu":1500,"service":4,"ip":"192.0.2.10","mask":"255.255.255.0","gateway":"192.0.2.1","priDns":"192.0.2.53")"

constexpr bus_request add_pppoe = {"add", "{" PPPOE(100, R"(,"bind":"11000000")") "}"};
constexpr bus_request add_dual_dhcp = {"add", "{" DUAL_DHCP(200, R"(,"bind":"00100000")") "}"};
constexpr bus_request add_bridged = {"add", "{" BRIDGED(300, R"(,"bind":"00010000")") "}"};
constexpr bus_request add_calls = {"add", "{" CALLS(400) "}"};

// The configuration holds secrets, so it is its owner's only.
#define SECRET "chmod 600 /etc/config/network; "
#define DNS_BY_WAN_1                                                                                         \
    "uci set dhcp.lan.dns_sync_with_wan=wan_1; uci add_list dhcp.lan.dhcp_option=6,192.0.2.53; uci commit "  \
    "dhcp; "
#define TWO_DEFINITIONS                                                                                      \
    "umask 077; printf '/tmp/first_wan\n/tmp/second_wan\n' > /tmp/wan_list; "                                \
    "printf "                                                                                                \
    "'wanMode=1\nipProtocol=3\nipMode=2\nnapt=1\nvlanMode=1\nvid=500\nmtu=1492\nservice=1\npppUser=bob\n"    \
    "pppPwd=hidden-word-of-bob\n' > /tmp/first_wan; "                                                        \
    "printf 'wanMode=0\nipProtocol=1\nvlanMode=1\nvid=600\nmtu=1500\nservice=3\nbind=00010000\n' > "         \
    "/tmp/second_wan; "
#define STAGED_BY_OTHERS                                                                                     \
    "uci set network.lan.ipaddr=192.168.9.1; uci set firewall.@defaults[0].input=ACCEPT; chmod 600 "         \
    "/tmp/.uci/*; "

const operation operations[] = {
    {"add bridged", {add_pppoe}, SECRET, add_bridged, means_done, true},
    {"add PPPoE", {add_bridged}, SECRET, add_pppoe, means_done, true},
    {"add dual DHCP", {add_pppoe}, SECRET, add_dual_dhcp, means_done, true},
    {"add PPPoE over staged changes", {add_bridged}, SECRET STAGED_BY_OTHERS, add_pppoe, means_done, false},
    {"del PPPoE", {add_pppoe, add_bridged}, SECRET DNS_BY_WAN_1, {"del", R"({"wanId":1})"}, means_done, true},
    {"del bridged", {add_pppoe, add_bridged}, SECRET, {"del", R"({"wanId":2})"}, means_done, true},
    {"del the last, dual DHCP", {add_dual_dhcp}, SECRET, {"del", R"({"wanId":1})"}, means_done, false},
    {"modify PPPoE",
     {add_pppoe, add_bridged},
     SECRET DNS_BY_WAN_1,
     {"modify", R"({"wanId":1,)" PPPOE(101, R"(,"bind":"11000000")") "}"},
     hides_failures,
     true},
    {"modify bridged",
     {add_pppoe, add_bridged},
     SECRET,
     {"modify", R"({"wanId":2,)" BRIDGED(302, R"(,"bind":"00010000")") "}"},
     hides_failures,
     true},
    {"modify dual DHCP",
     {add_dual_dhcp, add_bridged},
     SECRET,
     {"modify", R"({"wanId":1,)" DUAL_DHCP(201, R"(,"bind":"00100000")") "}"},
     hides_failures,
     true},
    {"modify a WAN of calls",
     {add_calls, add_pppoe},
     SECRET,
     {"modify", R"({"wanId":1,)" CALLS(401) "}"},
     hides_failures,
     false},
    {"modify PPPoE later",
     {add_pppoe, add_bridged},
     SECRET,
     {"modify", R"({"wanId":1,"mtu":1400,"vid":102,"wait":1})"},
     promises,
     false},
    {"modify dual DHCP later",
     {add_dual_dhcp, add_bridged},
     SECRET,
     {"modify", R"({"wanId":1,"mtu":1400,"vid":202,"wait":1})"},
     promises,
     false},
    {"delAll of three",
     {add_pppoe, add_dual_dhcp, add_bridged},
     SECRET DNS_BY_WAN_1,
     {"delAll", "{}"},
     hides_failures,
     false},
    {"addDev", {add_pppoe}, SECRET, {"addDev", "{}"}, means_done, false},
    {"import of two",
     {add_dual_dhcp, add_bridged},
     SECRET TWO_DEFINITIONS,
     {nullptr, nullptr},
     promises,
     false},
};

} // namespace

std::span<const operation> all_operations()
{
    return operations;
}
