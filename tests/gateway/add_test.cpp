// WANs of every kind, added over the bus and read back while the network daemon runs them.
#include "support/daemon_test.h"
#include "support/golden_tables.h"

#include <libubox/blobmsg.h>

namespace {

// A reply of `get` without a WAN behind it.
std::string blank_reply()
{
    std::string members;
    for (const golden_field &field : golden_get_fields()) {
        const char *const blank = field.type == BLOBMSG_TYPE_STRING ? R"("")"
                                  : field.type == BLOBMSG_TYPE_INT8 ? "false"
                                                                    : "0";
        members += (members.empty() ? "\"" : ",\"") + field.name + "\":" + blank;
    }
    return "{" + members + "}";
}

struct wan_kind {
    const char *name;
    const char *request;
    const char *reply; // what differs from a blank one; the uptime is not compared
};

constexpr wan_kind kinds[] = {
    {"bridged_tagged",
     R"({"wanMode":0,"ipProtocol":3,"vlanMode":true,"vid":100,"mvid":300,"prio":5,"mtu":1400,"service":3,)"
     R"("disableLanDhcp":true,"bind":"10100000","napt":true,"autoDns":true})",
     R"({"wanName":"1_OTHER_B_VID_100","status":true,"statusV6":true,"device":"pon.100",)"
     R"("mac":"00:11:22:33:44:56","ipProtocol":3,"vlanMode":true,"vid":100,"mvid":300,"prio":5,"mtu":1400,)"
     R"("service":3,"disableLanDhcp":true,"bind":"10100000"})"},
    {"bridged_untagged",
     R"({"wanMode":0,"ipProtocol":1,"vlanMode":false,"vid":100,"mvid":300,"prio":5,"mtu":1500,"service":1,"bind":"01"})",
     R"({"wanName":"1_INTERNET_B_VID_","status":true,"statusV6":true,"device":"pon","mac":"00:11:22:33:44:56",)"
     R"("ipProtocol":1,"mtu":1500,"service":1,"bind":"01000000"})"},
    {"dhcp_ipv4_tagged",
     R"({"wanMode":1,"ipProtocol":1,"ipMode":0,"napt":true,"vlanMode":true,"vid":200,"prio":7,"mtu":1500,)"
     R"("service":1,"bind":"11","autoDns":true,"iphostId":2})",
     R"({"wanName":"1_INTERNET_R_VID_200","status":true,"device":"pon.200","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":1,"napt":true,"vlanMode":true,"vid":200,"prio":7,"mtu":1500,"service":1,"bind":"11000000",)"
     R"("autoDns":true,"priDns":"198.51.100.53","secDns":"203.0.113.53","ip":"198.51.100.23",)"
     R"("mask":"255.255.255.0","gateway":"198.51.100.1"})"},
    {"dhcp_ipv4_with_own_servers",
     R"({"wanMode":1,"ipProtocol":1,"ipMode":0,"mtu":1500,"service":2,"autoDns":false,"priDns":"192.0.2.51",)"
     R"("secDns":"192.0.2.52"})",
     R"({"wanName":"1_TR069_R_VID_","status":true,"device":"pon","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":1,"mtu":1500,"service":2,"priDns":"192.0.2.51","secDns":"192.0.2.52","ip":"198.51.100.23",)"
     R"("mask":"255.255.255.0","gateway":"198.51.100.1"})"},
    {"dhcp_ipv6_untagged",
     R"({"wanMode":1,"ipProtocol":2,"ipMode":0,"napt":true,"mtu":1500,"service":0,"autoDnsV6":true,)"
     R"("ipv6PrefixProxy":true})",
     R"({"wanName":"1_TR069_INTERNET_R_VID_","statusV6":true,"device":"pon","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":2,"mtu":1500,"bind":"00000000","autoDnsV6":true,"priDnsV6":"2001:db8::53",)"
     R"("secDnsV6":"2001:db8::54","ipv6PrefixProxy":true,"ipv6Addr":"2001:db8:1:1::9/128","ipv6Gateway":"fe80::1",)"
     R"("ipv6Prefix":"2001:db8:aa00::/56"})"},
    {"dhcp_dual_with_own_servers",
     R"({"wanMode":1,"ipProtocol":3,"ipMode":0,"napt":true,"vlanMode":true,"vid":4095,"mtu":650,"service":4,)"
     R"("autoDns":false,"priDns":"192.0.2.51","autoDnsV6":false,"priDnsV6":"2001:db8::51",)"
     R"("secDnsV6":"2001:db8::52"})",
     R"({"wanName":"1_VOIP_R_VID_4095","status":true,"statusV6":true,"device":"pon.4095",)"
     R"("mac":"00:11:22:33:44:56","wanMode":1,"ipProtocol":3,"napt":true,"vlanMode":true,"vid":4095,"mtu":650,)"
     R"("service":4,"priDns":"192.0.2.51","priDnsV6":"2001:db8::51","secDnsV6":"2001:db8::52",)"
     R"("ip":"198.51.100.23","mask":"255.255.255.0","gateway":"198.51.100.1","ipv6Addr":"2001:db8:1:1::9/128",)"
     R"("ipv6Gateway":"fe80::1","ipv6Prefix":"2001:db8:aa00::/56"})"},
    {"static_ipv4",
     R"({"wanMode":1,"ipProtocol":1,"ipMode":1,"napt":true,"vlanMode":true,"vid":300,"mtu":1500,"service":1,)"
     R"("autoDns":true,"priDns":"192.0.2.53","ip":"192.0.2.10","mask":"255.255.255.240","gateway":"192.0.2.1"})",
     R"({"wanName":"1_INTERNET_R_VID_300","status":true,"device":"pon.300","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":1,"ipMode":1,"napt":true,"vlanMode":true,"vid":300,"mtu":1500,"service":1,"bind":"00000000",)"
     R"("priDns":"192.0.2.53","ip":"192.0.2.10","mask":"255.255.255.240","gateway":"192.0.2.1"})"},
    {"static_ipv6",
     R"({"wanMode":1,"ipProtocol":2,"ipMode":1,"mtu":1500,"service":5,"ipv6Addr":"2001:db8:7::10/64",)"
     R"("ipv6Gateway":"2001:db8:7::1","ipv6Prefix":"2001:db8:700::/56","priDnsV6":"2001:db8:7::53"})",
     R"({"wanName":"1_TR069_VOIP_R_VID_","status":true,"statusV6":true,"device":"pon","mac":"00:11:22:33:44:56",)"
     R"("wanMode":1,"ipProtocol":2,"ipMode":1,"mtu":1500,"service":5,"priDnsV6":"2001:db8:7::53",)"
     R"("ipv6Addr":"2001:db8:7::10/64","ipv6Gateway":"2001:db8:7::1","ipv6Prefix":"2001:db8:700::/56"})"},
    {"static_dual",
     R"({"wanMode":1,"ipProtocol":3,"ipMode":1,"napt":true,"mtu":1500,"service":6,"priDns":"192.0.2.53",)"
     R"("secDns":"192.0.2.54","ip":"192.0.2.10","mask":"255.255.255.0","gateway":"192.0.2.1",)"
     R"("ipv6Addr":"2001:db8:7::10/64","ipv6Gateway":"2001:db8:7::1","ipv6Prefix":"2001:db8:700::/56",)"
     R"("priDnsV6":"2001:db8:7::53","ipv6PrefixProxy":true})",
     R"({"wanName":"1_VOIP_INTERNET_R_VID_","status":true,"statusV6":true,"device":"pon",)"
     R"("mac":"00:11:22:33:44:56","wanMode":1,"ipProtocol":3,"ipMode":1,"napt":true,"mtu":1500,"service":6,)"
     R"("bind":"00000000","priDns":"192.0.2.53","secDns":"192.0.2.54","priDnsV6":"2001:db8:7::53",)"
     R"("ip":"192.0.2.10","mask":"255.255.255.0","gateway":"192.0.2.1","ipv6PrefixProxy":true,)"
     R"("ipv6Addr":"2001:db8:7::10/64","ipv6Gateway":"2001:db8:7::1","ipv6Prefix":"2001:db8:700::/56"})"},
    {"pppoe_ipv4_on_demand",
     R"({"wanMode":1,"ipProtocol":1,"ipMode":2,"napt":true,"vlanMode":true,"vid":400,"mtu":1492,"service":1,)"
     R"("autoDns":true,"pppUser":"user@isp","pppPwd":"s3cret","pppServName":"isp","pppDialMode":true})",
     R"({"wanName":"1_INTERNET_R_VID_400","status":true,"device":"pon.400","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":1,"ipMode":2,"napt":true,"vlanMode":true,"vid":400,"mtu":1492,"service":1,"bind":"00000000",)"
     R"("autoDns":true,"priDns":"203.0.113.1","secDns":"203.0.113.2","ip":"100.64.2.9","mask":"255.255.255.255",)"
     R"("gateway":"100.64.0.1","pppUser":"user@isp","pppPwd":"s3cret","pppServName":"isp","pppDialMode":true})"},
    {"pppoe_ipv6",
     R"({"wanMode":1,"ipProtocol":2,"ipMode":2,"mtu":1400,"service":7,"autoDnsV6":true,"pppUser":"u","pppPwd":"p"})",
     R"({"wanName":"1_TR069_VOIP_INTERNET_R_VID_","statusV6":true,"device":"pon","mac":"00:11:22:33:44:56",)"
     R"("wanMode":1,"ipProtocol":2,"ipMode":2,"mtu":1400,"service":7,"bind":"00000000","autoDnsV6":true,)"
     R"("priDnsV6":"2001:db8::53","secDnsV6":"2001:db8::54","ipv6Addr":"2001:db8:1:1::9/128",)"
     R"("ipv6Gateway":"fe80::1","ipv6Prefix":"2001:db8:aa00::/56","pppUser":"u","pppPwd":"p"})"},
    {"pppoe_dual",
     R"({"wanMode":1,"ipProtocol":3,"ipMode":2,"napt":true,"mtu":1492,"service":1,"autoDns":true,"autoDnsV6":true,)"
     R"("ipv6PrefixProxy":true,"pppUser":"u","pppPwd":"p"})",
     R"({"wanName":"1_INTERNET_R_VID_","status":true,"statusV6":true,"device":"pon","mac":"00:11:22:33:44:56",)"
     R"("wanMode":1,"ipProtocol":3,"ipMode":2,"napt":true,"mtu":1492,"service":1,"bind":"00000000","autoDns":true,)"
     R"("priDns":"203.0.113.1","secDns":"203.0.113.2","autoDnsV6":true,"priDnsV6":"2001:db8::53",)"
     R"("secDnsV6":"2001:db8::54","ip":"100.64.2.9","mask":"255.255.255.255","gateway":"100.64.0.1",)"
     R"("ipv6PrefixProxy":true,"ipv6Addr":"2001:db8:1:1::9/128","ipv6Gateway":"fe80::1",)"
     R"("ipv6Prefix":"2001:db8:aa00::/56","pppUser":"u","pppPwd":"p"})"},
    {"ds_lite",
     R"({"wanMode":1,"ipProtocol":2,"ipMode":0,"vlanMode":true,"vid":500,"mtu":1500,"service":1,"autoDnsV6":true,)"
     R"("ipv6PrefixProxy":true,"ipv6DsLite":true,"ipv6AddrDsLite":"2001:db8:f::1"})",
     R"({"wanName":"1_INTERNET_R_VID_500","statusV6":true,"device":"pon.500","mac":"00:11:22:33:44:56","wanMode":1,)"
     R"("ipProtocol":2,"vlanMode":true,"vid":500,"mtu":1500,"service":1,"bind":"00000000","autoDnsV6":true,)"
     R"("priDnsV6":"2001:db8::53","secDnsV6":"2001:db8::54","ipv6PrefixProxy":true,)"
     R"("ipv6Addr":"2001:db8:1:1::9/128","ipv6Gateway":"fe80::1","ipv6Prefix":"2001:db8:aa00::/56",)"
     R"("ipv6DsLite":true,"ipv6AddrDsLite":"2001:db8:f::1"})"},
    {"ds_lite_is_ignored_with_ipv4",
     R"({"wanMode":1,"ipProtocol":3,"ipMode":0,"napt":true,"mtu":1500,"service":2,"autoDns":true,"autoDnsV6":true,)"
     R"("ipv6PrefixProxy":true,"ipv6DsLite":true,"ipv6AddrDsLite":"2001:db8:f::1"})",
     R"({"wanName":"1_TR069_R_VID_","status":true,"statusV6":true,"device":"pon","mac":"00:11:22:33:44:56",)"
     R"("wanMode":1,"ipProtocol":3,"napt":true,"mtu":1500,"service":2,"autoDns":true,"priDns":"198.51.100.53",)"
     R"("secDns":"203.0.113.53","autoDnsV6":true,"priDnsV6":"2001:db8::53","secDnsV6":"2001:db8::54",)"
     R"("ip":"198.51.100.23","mask":"255.255.255.0","ipv6PrefixProxy":true,"ipv6Addr":"2001:db8:1:1::9/128",)"
     R"("ipv6Prefix":"2001:db8:aa00::/56","gateway":"198.51.100.1","ipv6Gateway":"fe80::1"})"},
};

void PrintTo(const wan_kind &kind, std::ostream *out)
{
    *out << kind.name;
}

// Member by member, so that a failure names what differs.
void expect_reply(const char *differences, const json_value &actual)
{
    const json_value blank = json_value::parse(blank_reply());
    const json_value expected = json_value::parse(differences);
    ASSERT_TRUE(expected) << differences;
    EXPECT_EQ(blank.keys(), actual.keys());
    for (const std::string &name : expected.keys())
        EXPECT_TRUE(blank.has(name.c_str())) << name;
    for (const std::string &name : blank.keys()) {
        if (name == "uptime")
            continue;
        SCOPED_TRACE(name);
        const char *const key = name.c_str();
        EXPECT_EQ(expected.has(key) ? expected.at(key) : blank.at(key), actual.at(key));
    }
}

class add_kind_test : public daemon_test, public testing::WithParamInterface<wan_kind> {};

TEST_P(add_kind_test, reads_back_as_it_was_added)
{
    gateway.start_netd();
    gateway.start_korvel();

    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), gateway.call("add", GetParam().request));

    gateway.settle_netd();
    const bus_reply reply = gateway.call("get", R"({"wanId":1})");
    EXPECT_EQ(0, reply.status);
    expect_reply(GetParam().reply, reply.json());
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

std::string name_of_kind(const testing::TestParamInfo<wan_kind> &kind)
{
    return kind.param.name;
}

INSTANTIATE_TEST_SUITE_P(every_kind, add_kind_test, testing::ValuesIn(kinds), name_of_kind);

class add_test : public daemon_test {
protected:
    void SetUp() override
    {
        gateway.start_netd();
        gateway.start_korvel();
    }
};

TEST_F(add_test, a_refused_request_writes_and_starts_nothing)
{
    const std::string before = gateway.config("network");

    EXPECT_EQ(result_reply(2, -1, "korvel get ERR! Invalid WAN mode."),
              gateway.call("add", R"({"mtu":1500})"));
    EXPECT_EQ(result_reply(0, -1, "korvel add ERR! Invalid MTU."),
              gateway.call("add", R"({"wanMode":1,"mtu":2000})"));
    EXPECT_EQ(result_reply(0, -4, "korvel modify ERR!"),
              gateway.call("add", add_request(bridged_wan(1, "", {.vid = 100, .service = 3}))));

    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_TRUE(gateway.commands().empty());
    EXPECT_TRUE(gateway.list_directory("/etc/korvel").empty());
}

TEST_F(add_test, the_unused_argument_makes_no_difference)
{
    std::string request = add_request(routed_dhcp(1, {.vid = 100}));
    request.insert(1, R"("notUsed":9,)");

    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), gateway.call("add", request));

    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));
}

TEST_F(add_test, all_reports_every_wan_as_get_does)
{
    for (const wan_config &wan :
         {bridged_wan(1, "1000", {.vid = 100}), routed_dhcp(2, {.vid = 200, .ip_protocol = 3}),
          routed_pppoe(3, {.vid = 300}), routed_static(4, {.vid = 400})})
        ASSERT_EQ(result_reply(0, 0, "korvel modify OK."), gateway.call("add", add_request(wan)));
    gateway.settle_netd();

    const json_value all = gateway.call("all").json();

    EXPECT_EQ((std::vector<std::string>{"1", "2", "3", "4"}), all.keys());
    for (const std::string &id : all.keys()) {
        SCOPED_TRACE(id);
        const json_value get = gateway.call("get", "{\"wanId\":" + id + "}").json();
        std::vector<std::string> keys = get.keys();
        keys.insert(keys.begin(), "wanId");
        keys.push_back("iphostId");
        EXPECT_EQ(keys, all.at(id.c_str()).keys());
        for (const std::string &key : get.keys()) {
            if (key != "uptime") {
                EXPECT_EQ(get.at(key.c_str()), all.at(id.c_str()).at(key.c_str())) << key;
            }
        }
    }
}

TEST_F(add_test, after_255_creations_new_wans_fill_the_gaps_and_live_ones_stay)
{
    const bus_reply added = result_reply(0, 0, "korvel modify OK.");
    gateway.uci_set("network.korvel.maxWanId", "253");
    gateway.restart_korvel();
    for (uint16_t vid = 100; vid < 105; vid++)
        ASSERT_EQ(added, gateway.call("add", add_request(routed_dhcp(1, {.vid = vid}))));

    EXPECT_EQ("254 255 1 2 3", gateway.uci_get("network.korvel.wanList"));
    EXPECT_EQ("255", gateway.uci_get("network.korvel.maxWanId"));
    for (const auto &[id, vid] : {std::pair(254, 100), {255, 101}, {1, 102}, {2, 103}, {3, 104}})
        EXPECT_EQ(vid, gateway.call("get", "{\"wanId\":" + std::to_string(id) + "}").at("vid")) << id;
    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":2})"));
    EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(1, {.vid = 200}))));
    EXPECT_EQ("254 255 1 3 2", gateway.uci_get("network.korvel.wanList"));
}

TEST_F(add_test, with_every_identifier_in_use_a_wan_and_the_management_device_are_refused)
{
    for (unsigned id = 1; id <= 255; id++)
        gateway.uci_add_list("network.korvel.wanList", std::to_string(id));
    gateway.uci_set("network.korvel.maxWanId", "255");
    gateway.restart_korvel();
    gateway.clear_log();
    const std::string before = gateway.config("network");

    EXPECT_EQ(result_reply(0, -1, "korvel modify ERR!"),
              gateway.call("add", add_request(routed_dhcp(1, {.vid = 100}))));
    EXPECT_EQ(result_reply(2, -1, "korvel add WAN device ERR!"), gateway.call("addDev"));

    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ((text_lines{"No WAN identifier is left", "No WAN identifier is left"}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(add_test, a_binding_cannot_forge_a_log_message)
{
    ASSERT_EQ(result_reply(0, 0, "korvel modify OK."),
              gateway.call("add", add_request(bridged_wan(1, "1000", {.vid = 100}))));
    gateway.clear_log();

    EXPECT_EQ(result_reply(0, -3, "korvel modify ERR!"),
              gateway.call("add", R"({"wanMode":0,"service":1,"bind":"1\n<0>kernel: x\u00e9"})"));

    EXPECT_EQ(text_lines{"Failed to add wan: port binding 1?<0>kernel: x?? exist"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(add_test, ports_of_a_service_that_binds_none_are_steered_until_the_script_is_written_anew)
{
    constexpr char script[] = "/etc/hotplug.d/iface/99-wan_1";
    ASSERT_EQ(result_reply(0, 0, "korvel modify OK."),
              gateway.call("add", R"({"wanMode":1,"ipProtocol":1,"mtu":1500,"service":2,"bind":"11"})"));
    EXPECT_TRUE(gateway.file(script).starts_with("#!/bin/sh\nDEVICE_LIST=\"eth0.1 eth0.2\"\n"));
    EXPECT_EQ("", gateway.call("get", R"({"wanId":1})").at("bind"));

    gateway.remove(script);
    gateway.restart_korvel();

    EXPECT_TRUE(gateway.file(script).starts_with("#!/bin/sh\nDEVICE_LIST=\"\"\n"));
}

// Shell code that fits into every text, and binds the first port where it is a binding.
constexpr char hostile_text[] = "1;$(>/tmp/ran)";

std::string hostile_request(const std::string &kind)
{
    std::string request = "{" + kind + R"(,"ipProtocol":3,"vlanMode":true,"vid":100,"mtu":1400,"service":3)";
    for (const golden_argument &argument : golden_arguments())
        if (argument.type == BLOBMSG_TYPE_STRING)
            request += ",\"" + argument.name + "\":\"" + hostile_text + "\"";
    return request + "}";
}

// The scripts there are, and the commands of the daemon. What `ip` is told of a static address comes from the
// network daemon, whose stand-in takes any text for one; there it is an argument.
text_lines what_shells_read(const gateway &router)
{
    text_lines texts = router.commands();
    std::erase_if(texts, [](const std::string &command) { return command.starts_with("ip "); });
    for (const std::string place : {"/etc/korvel/", "/etc/hotplug.d/iface/"})
        for (const std::string &name : router.list_directory(place))
            texts.push_back(router.file(place + name));
    return texts;
}

TEST_F(add_test, no_text_of_a_request_reaches_a_shell)
{
    for (const std::string kind : {R"("wanMode":0)", R"("wanMode":1,"ipMode":0)", R"("wanMode":1,"ipMode":1)",
                                   R"("wanMode":1,"ipMode":2)"}) {
        SCOPED_TRACE(kind);
        gateway.clear_commands();
        EXPECT_EQ(result_reply(0, 0, "korvel modify OK."), gateway.call("add", hostile_request(kind)));
        gateway.settle_netd();
        if (kind.ends_with("2")) {
            EXPECT_EQ(hostile_text, gateway.uci_get("network.wan_1.password"));
        }
        const text_lines texts = what_shells_read(gateway);
        EXPECT_TRUE(texts.back().starts_with("#!/bin/sh\n"));
        for (const std::string &text : texts)
            EXPECT_EQ(std::string::npos, text.find(hostile_text)) << text;
        EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));
    }
    EXPECT_FALSE(gateway.exists("/tmp/ran"));
}

TEST_F(add_test, minimum_mode_prints_what_it_chose)
{
    gateway.uci_set("network.korvel.use_min_wan_id", "1");
    for (const uint16_t vid : {uint16_t{100}, uint16_t{200}})
        ASSERT_EQ(0, gateway.call("add", add_request(routed_dhcp(1, {.vid = vid}))).status);

    // Without a list the first one counts on from the highest.
    EXPECT_EQ("use_min_wan_id = 1, min_wan_id = 2, maxWanId = 2\n", gateway.korvel_output());
}

} // namespace
