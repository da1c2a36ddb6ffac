// The runtime fields of a WAN, from what the bus tool prints about its interfaces.
#include "status/ifstatus.h"

#include "base/clock.h"
#include "base/short_turns.h"
#include "base/text.h"
#include "support/broken_command.h"
#include "support/printed_replies.h"

#include <array>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr char v4_unparsable[] = "Failed to parse netifd data json";
constexpr char v6_unparsable[] = "Failed to parse netifd data_v6 json";

constexpr char main_interface[] = "network.interface.wan_7";
constexpr char dhcp_v6_interface[] = "network.interface.wan_7_v6";
constexpr char ppp_v6_interface[] = "network.interface.wan_7_6";

std::string command(const std::string &interface)
{
    return "ubus -S call " + interface + " status";
}

// The status of an interface that is up, with these members.
std::string up(const std::string &members)
{
    return R"({"up":true,)" + members + "}\n";
}

// An interface that is up, `length` bytes of text in all.
std::string up_with_length(size_t length)
{
    const std::string empty = R"({"up":true,"note":""})";
    return R"({"up":true,"note":")" + std::string(length - empty.size(), 'x') + "\"}";
}

class ifstatus_test : public gateway_test {
protected:
    ifstatus_test()
    {
        record.wanId = 7;
        record.wanMode = wan_mode_routed;
    }

    int read(uint8_t ip_mode, uint8_t ip_protocol)
    {
        record.ipMode = ip_mode;
        record.ipProtocol = ip_protocol;
        (void)take_started_commands();
        const wan_reading reading = {&record, nullptr, 0};
        ifstatus_reader states(steady_milliseconds());
        states.ask({&reading, 1});
        return states.read(&record);
    }

    // Reads the main interface of a DHCP WAN, IPv4 only.
    int read_v4(const std::string &printed)
    {
        bus.set(main_interface, printed);
        return read(ip_mode_dhcp, ip_protocol_v4);
    }

    // Reads the IPv6 interface of a DHCP WAN without IPv4.
    int read_v6(const std::string &printed)
    {
        bus.set(dhcp_v6_interface, printed);
        return read(ip_mode_dhcp, ip_protocol_v6);
    }

    void clear_record()
    {
        record = {};
        record.wanId = 7;
        record.wanMode = wan_mode_routed;
    }

    printed_replies bus{gateway};
    wan_config record = {};
};

constexpr uint8_t both_protocols = ip_protocol_v4 | ip_protocol_v6;

TEST_F(ifstatus_test, a_bridged_wan_is_up_without_asking)
{
    record.wanMode = wan_mode_bridged;

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1, record.statusV6);
    EXPECT_TRUE(bus.asked().empty());
}

TEST_F(ifstatus_test, address_mode_and_protocol_decide_who_is_asked)
{
    const struct {
        uint8_t ip_mode;
        uint8_t ip_protocol;
        text_lines asked;
    } cases[] = {
        {ip_mode_dhcp, 0, {command(main_interface)}},
        {ip_mode_dhcp, ip_protocol_v4, {command(main_interface)}},
        {ip_mode_dhcp, ip_protocol_v6, {command(dhcp_v6_interface)}},
        {ip_mode_dhcp, both_protocols, {command(dhcp_v6_interface), command(main_interface)}},
        {ip_mode_static, ip_protocol_v4, {command(main_interface)}},
        {ip_mode_static, ip_protocol_v6, {command(main_interface)}},
        {ip_mode_static, both_protocols, {command(main_interface)}},
        {ip_mode_pppoe, ip_protocol_v4, {command(main_interface)}},
        {ip_mode_pppoe, ip_protocol_v6, {command(ppp_v6_interface)}},
        {ip_mode_pppoe, both_protocols, {command(ppp_v6_interface), command(main_interface)}},
        {9, both_protocols, {command(ppp_v6_interface), command(main_interface)}},
    };
    bus.set_default(R"({"up":false})");
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.ip_mode) + "/" + std::to_string(row.ip_protocol));

        EXPECT_EQ(0, read(row.ip_mode, row.ip_protocol));

        EXPECT_EQ(row.asked, take_started_commands());
    }
}

TEST_F(ifstatus_test, a_command_line_is_cut_at_47_characters)
{
    record.wanId = 255;
    bus.set_default(R"({"up":false})");

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ((text_lines{"ubus -S call network.interface.wan_255_v6 statu",
                          "ubus -S call network.interface.wan_255 status"}),
              take_started_commands());
}

TEST_F(ifstatus_test, an_ipv4_interface_gives_its_values)
{
    EXPECT_EQ(0, read_v4(up(R"("uptime":86400,"ipv4-address":[{"address":"198.51.100.23","mask":24},)"
                            R"({"address":"198.51.100.24","mask":8}],"route":[{"nexthop":"198.51.100.1"}],)"
                            R"("dns-server":["198.51.100.53","203.0.113.53"])")));

    EXPECT_EQ(1, record.status);
    EXPECT_EQ(86400U, record.uptime);
    EXPECT_STREQ("198.51.100.23", record.ip);
    EXPECT_STREQ("255.255.255.0", record.mask);
    EXPECT_STREQ("198.51.100.24", record.ipSec);
    EXPECT_STREQ("198.51.100.1", record.gateway);
    EXPECT_STREQ("198.51.100.53", record.priDns);
    EXPECT_STREQ("203.0.113.53", record.secDns);
    EXPECT_EQ(0, record.statusV6);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(ifstatus_test, an_ipv6_interface_gives_its_values)
{
    EXPECT_EQ(0,
              read_v6(up(R"("uptime":60,"ipv6-address":[{"address":"2001:db8::9","mask":128},)"
                         R"({"address":"2001:db8::a","mask":64},{"address":"2001:db8::b","mask":1}],)"
                         R"("ipv6-prefix":[{"address":"2001:db8:ab00::","mask":56}],)"
                         R"("route":[{"nexthop":"fe80::1"}],"dns-server":["2001:db8::53","2001:db8::54"])")));

    EXPECT_EQ(1, record.statusV6);
    EXPECT_EQ(60U, record.uptime);
    EXPECT_STREQ("2001:db8::9/128", record.ipv6Addr);
    EXPECT_STREQ("2001:db8::a/64", record.ipv6SecAddr);
    EXPECT_STREQ("2001:db8:ab00::/56", record.ipv6Prefix);
    EXPECT_STREQ("fe80::1", record.ipv6Gateway);
    EXPECT_STREQ("2001:db8::53", record.priDnsV6);
    EXPECT_STREQ("2001:db8::54", record.secDnsV6);
    EXPECT_EQ(0, record.status);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(ifstatus_test, an_interface_that_is_not_up_gives_nothing)
{
    constexpr char rest[] = R"("uptime":5,"ipv4-address":[{"address":"192.0.2.1","mask":24}],)"
                            R"("ipv6-address":[{"address":"2001:db8::9","mask":128}],)"
                            R"("route":[{"nexthop":"192.0.2.2"}],"dns-server":["192.0.2.3"]})";
    for (const char *head : {R"({"up":false,)", R"({)", R"({"up":null,)"}) {
        SCOPED_TRACE(head);
        clear_record();

        EXPECT_EQ(0, read_v4(std::string(head) + rest));
        EXPECT_EQ(0, read_v6(std::string(head) + rest));

        wan_config untouched = {};
        untouched.wanId = 7;
        untouched.wanMode = wan_mode_routed;
        untouched.ipProtocol = ip_protocol_v6;
        EXPECT_EQ(0, memcmp(&untouched, &record, sizeof(record)));
    }
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(ifstatus_test, without_up_the_state_stays_and_with_false_it_falls)
{
    record.status = 1;
    record.statusV6 = 1;
    EXPECT_EQ(0, read_v4("{}"));
    EXPECT_EQ(0, read_v6("{}"));
    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1, record.statusV6);

    EXPECT_EQ(0, read_v4(R"({"up":false})"));
    EXPECT_EQ(0, read_v6(R"({"up":false})"));

    EXPECT_EQ(0, record.status);
    EXPECT_EQ(0, record.statusV6);
}

TEST_F(ifstatus_test, the_ipv4_uptime_overwrites_the_ipv6_one)
{
    bus.set(dhcp_v6_interface, up(R"("uptime":60)"));
    bus.set(main_interface, up(R"("uptime":30)"));

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ(30U, record.uptime);
    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1, record.statusV6);
}

TEST_F(ifstatus_test, an_ipv6_uptime_stays_when_ipv4_reports_none)
{
    bus.set(dhcp_v6_interface, up(R"("uptime":60)"));
    bus.set(main_interface, up(R"("ipv4-address":[])"));

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ(60U, record.uptime);
}

TEST_F(ifstatus_test, a_prefix_length_becomes_a_dotted_mask)
{
    constexpr struct {
        int length;
        const char *mask;
    } cases[] = {
        {0, "255.255.255.255"},  {1, "128.0.0.0"},        {8, "255.0.0.0"},  {24, "255.255.255.0"},
        {30, "255.255.255.252"}, {31, "255.255.255.254"}, {33, "128.0.0.0"}, {32, "255.255.255.255"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.length);

        EXPECT_EQ(0, read_v4(up(R"("ipv4-address":[{"address":"192.0.2.1","mask":)" +
                                std::to_string(row.length) + "}]")));

        EXPECT_STREQ(row.mask, record.mask);
    }
}

TEST_F(ifstatus_test, an_ipv4_address_without_a_mask_leaves_the_mask_empty)
{
    EXPECT_EQ(0, read_v4(up(R"("ipv4-address":[{"address":"192.0.2.1"},{"mask":24}])")));

    EXPECT_STREQ("192.0.2.1", record.ip);
    EXPECT_STREQ("", record.mask);
    EXPECT_STREQ("", record.ipSec);
}

TEST_F(ifstatus_test, a_second_ipv6_address_without_a_mask_takes_the_first_length)
{
    EXPECT_EQ(
        0, read_v6(up(R"("ipv6-address":[{"address":"2001:db8::1","mask":64},{"address":"2001:db8::2"}])")));

    EXPECT_STREQ("2001:db8::1/64", record.ipv6Addr);
    EXPECT_STREQ("2001:db8::2/64", record.ipv6SecAddr);
}

TEST_F(ifstatus_test, a_first_ipv6_address_without_a_mask_has_length_0)
{
    EXPECT_EQ(0, read_v6(up(R"("ipv6-address":[{"address":"2001:db8::1"},{"mask":64}])")));

    EXPECT_STREQ("2001:db8::1/0", record.ipv6Addr);
    EXPECT_STREQ("", record.ipv6SecAddr);
}

TEST_F(ifstatus_test, the_last_prefix_with_an_address_wins)
{
    EXPECT_EQ(0, read_v6(up(R"("ipv6-prefix":[{"address":"2001:db8:1::","mask":48},)"
                            R"({"address":"2001:db8:2::"},{"mask":60}])")));

    EXPECT_STREQ("2001:db8:2::/48", record.ipv6Prefix);
}

TEST_F(ifstatus_test, a_prefix_without_a_mask_takes_the_length_before_it)
{
    const struct {
        const char *members, *prefix;
    } cases[] = {
        {R"("ipv6-prefix":[{"address":"2001:db8:1::"}])", "2001:db8:1::/0"},
        {R"("ipv6-prefix":[{"mask":48},{"address":"2001:db8:1::"}])", "2001:db8:1::/48"},
        {R"("ipv6-address":[{"address":"2001:db8::1","mask":64}],"ipv6-prefix":[{"address":"2001:db8:1::"}])",
         "2001:db8:1::/64"},
        {R"("ipv6-address":[{"mask":64},{"mask":128},{"mask":1}],"ipv6-prefix":[{"address":"2001:db8:1::"}])",
         "2001:db8:1::/128"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.members);

        EXPECT_EQ(0, read_v6(up(row.members)));

        EXPECT_STREQ(row.prefix, record.ipv6Prefix);
    }
}

TEST_F(ifstatus_test, the_last_ipv6_next_hop_wins)
{
    EXPECT_EQ(0, read_v6(up(R"("route":[{"nexthop":"fe80::1"},{"target":"::"},{"nexthop":"fe80::2"}],)"
                            R"("inactive":{"route":[{"nexthop":"fe80::3"}]})")));

    EXPECT_STREQ("fe80::2", record.ipv6Gateway);
}

TEST_F(ifstatus_test, without_an_ipv6_next_hop_the_inactive_routes_count)
{
    constexpr char inactive[] = R"("inactive":{"route":[{"nexthop":"fe80::3"},{"nexthop":"fe80::4"}]})";
    for (const char *routes : {R"("route":[],)", R"("route":[{"nexthop":"::"}],)", ""}) {
        SCOPED_TRACE(routes);
        clear_record();

        EXPECT_EQ(0, read_v6(up(std::string(routes) + inactive)));

        EXPECT_STREQ("fe80::4", record.ipv6Gateway);
    }
}

TEST_F(ifstatus_test, an_unspecified_ipv6_next_hop_stays_when_no_inactive_route_has_one)
{
    EXPECT_EQ(0, read_v6(up(R"("route":[{"nexthop":"::"}],"inactive":{"route":[]})")));

    EXPECT_STREQ("::", record.ipv6Gateway);
}

TEST_F(ifstatus_test, the_ipv6_interface_gives_its_first_two_servers_of_any_family)
{
    EXPECT_EQ(0, read_v6(up(R"("dns-server":[null,"192.0.2.53","2001:db8::53","2001:db8::54"])")));

    EXPECT_STREQ("192.0.2.53", record.priDnsV6);
    EXPECT_STREQ("2001:db8::53", record.secDnsV6);
    EXPECT_STREQ("", record.priDns);
}

TEST_F(ifstatus_test, the_last_ipv4_next_hop_and_the_first_ipv6_one_win)
{
    EXPECT_EQ(0,
              read_v4(up(R"("route":[{"nexthop":"192.0.2.1"},{"nexthop":"fe80::1"},{"nexthop":"192.0.2.2"},)"
                         R"({"nexthop":"fe80::2"},{"nexthop":"none"},{"target":"0.0.0.0"}],)"
                         R"("inactive":{"route":[{"nexthop":"192.0.2.3"}]})")));

    EXPECT_STREQ("192.0.2.2", record.gateway);
    EXPECT_STREQ("fe80::1", record.ipv6Gateway);
}

TEST_F(ifstatus_test, without_an_ipv4_next_hop_the_inactive_routes_count)
{
    constexpr char inactive[] = R"("inactive":{"route":[{"nexthop":"192.0.2.3"},{"nexthop":"fe80::3"}]})";
    for (const char *routes : {R"("route":[],)", R"("route":[{"nexthop":"0.0.0.0"}],)", ""}) {
        SCOPED_TRACE(routes);
        clear_record();

        EXPECT_EQ(0, read_v4(up(std::string(routes) + inactive)));

        EXPECT_STREQ("192.0.2.3", record.gateway);
        EXPECT_STREQ("fe80::3", record.ipv6Gateway);
    }
}

TEST_F(ifstatus_test, an_unspecified_ipv4_next_hop_stays_when_no_inactive_route_has_one)
{
    EXPECT_EQ(0, read_v4(up(R"("route":[{"nexthop":"0.0.0.0"}],"inactive":{"route":[]})")));

    EXPECT_STREQ("0.0.0.0", record.gateway);
}

TEST_F(ifstatus_test, a_gateway_of_the_ipv6_interface_is_not_replaced)
{
    bus.set(dhcp_v6_interface, up(R"("route":[{"nexthop":"fe80::1"}])"));
    bus.set(main_interface, up(R"("route":[{"nexthop":"192.0.2.1"},{"nexthop":"fe80::2"}])"));

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_STREQ("192.0.2.1", record.gateway);
    EXPECT_STREQ("fe80::1", record.ipv6Gateway);
}

TEST_F(ifstatus_test, two_servers_of_each_family_are_kept)
{
    EXPECT_EQ(0,
              read_v4(up(R"("dns-server":["192.0.2.51","2001:db8::51","none",null,"192.0.2.52","192.0.2.53",)"
                         R"("2001:db8::52","2001:db8::53"])")));

    EXPECT_STREQ("192.0.2.51", record.priDns);
    EXPECT_STREQ("192.0.2.52", record.secDns);
    EXPECT_STREQ("2001:db8::51", record.priDnsV6);
    EXPECT_STREQ("2001:db8::52", record.secDnsV6);
}

TEST_F(ifstatus_test, ipv6_servers_of_the_main_interface_replace_those_of_the_ipv6_interface)
{
    bus.set(ppp_v6_interface, up(R"("dns-server":["2001:db8::1","2001:db8::2"])"));
    bus.set(main_interface, up(R"("dns-server":["2001:db8::3"])"));

    EXPECT_EQ(0, read(ip_mode_pppoe, both_protocols));

    EXPECT_STREQ("2001:db8::3", record.priDnsV6);
    EXPECT_STREQ("2001:db8::2", record.secDnsV6);
}

TEST_F(ifstatus_test, a_static_wan_has_both_protocols_on_its_main_interface)
{
    bus.set(main_interface,
            up(R"("ipv4-address":[{"address":"192.0.2.9","mask":24}],)"
               R"("ipv6-address":[{"address":"2001:db8::9"},{"address":"2001:db8::a","mask":64}],)"
               R"("ipv6-prefix":[{"address":"2001:db8:1::","mask":56}])"));

    EXPECT_EQ(0, read(ip_mode_static, both_protocols));

    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1, record.statusV6);
    EXPECT_STREQ("192.0.2.9", record.ip);
    EXPECT_STREQ("2001:db8::9/0", record.ipv6Addr);
    EXPECT_STREQ("2001:db8::a/64", record.ipv6SecAddr);
    EXPECT_STREQ("2001:db8:1::/56", record.ipv6Prefix);
}

TEST_F(ifstatus_test, only_a_static_wan_with_ipv6_takes_ipv6_from_its_main_interface)
{
    constexpr struct {
        uint8_t ip_mode;
        uint8_t ip_protocol;
        bool taken;
    } cases[] = {
        {ip_mode_static, ip_protocol_v4, false}, {ip_mode_static, ip_protocol_v6, true},
        {ip_mode_static, both_protocols, true},  {ip_mode_dhcp, ip_protocol_v4, false},
        {ip_mode_dhcp, both_protocols, false},   {ip_mode_pppoe, both_protocols, false},
    };
    bus.set_default(R"({"up":false})");
    bus.set(main_interface, up(R"("ipv6-address":[{"address":"2001:db8::9","mask":64}],)"
                               R"("ipv6-prefix":[{"address":"2001:db8:1::","mask":56}])"));
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.ip_mode) + "/" + std::to_string(row.ip_protocol));
        clear_record();

        EXPECT_EQ(0, read(row.ip_mode, row.ip_protocol));

        EXPECT_EQ(row.taken ? 1 : 0, record.statusV6);
        EXPECT_STREQ(row.taken ? "2001:db8::9/64" : "", record.ipv6Addr);
        EXPECT_STREQ(row.taken ? "2001:db8:1::/56" : "", record.ipv6Prefix);
    }
}

TEST_F(ifstatus_test, copied_texts_fill_their_field_without_a_terminator)
{
    const struct {
        const char *members; // % stands for the text
        size_t capacity;
        std::string_view (*field)(const wan_config &);
    } cases[] = {
        {R"("ipv4-address":[{"address":"%"}])", 16, [](const wan_config &r) { return text_view(r.ip); }},
        {R"("ipv4-address":[{},{"address":"%"}])", 16,
         [](const wan_config &r) { return text_view(r.ipSec); }},
        {R"("route":[{"nexthop":"%"}])", 16, [](const wan_config &r) { return text_view(r.gateway); }},
        {R"("dns-server":["%"])", 16, [](const wan_config &r) { return text_view(r.priDns); }},
        {R"("dns-server":["1.","%"])", 16, [](const wan_config &r) { return text_view(r.secDns); }},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.members);
        for (const size_t length : {row.capacity - 1, row.capacity, row.capacity + 1}) {
            SCOPED_TRACE(length);
            clear_record();
            const std::string value = "." + std::string(length - 1, '1');
            std::string members = row.members;
            members.replace(members.find('%'), 1, value);

            EXPECT_EQ(0, read_v4(up(members)));

            EXPECT_EQ(value.substr(0, row.capacity), row.field(record));
        }
    }
}

TEST_F(ifstatus_test, copied_ipv6_texts_fill_their_field_without_a_terminator)
{
    const struct {
        const char *members; // % stands for the text
        std::string_view (*field)(const wan_config &);
    } cases[] = {
        {R"("route":[{"nexthop":"%"}])", [](const wan_config &r) { return text_view(r.ipv6Gateway); }},
        {R"("dns-server":["%"])", [](const wan_config &r) { return text_view(r.priDnsV6); }},
        {R"("dns-server":[":","%"])", [](const wan_config &r) { return text_view(r.secDnsV6); }},
    };
    constexpr size_t capacity = 40;
    for (const auto &row : cases) {
        for (const size_t length : {capacity - 1, capacity, capacity + 1}) {
            SCOPED_TRACE(row.members + std::to_string(length));
            const std::string value = ":" + std::string(length - 1, '1');
            std::string members = row.members;
            members.replace(members.find('%'), 1, value);

            clear_record();
            EXPECT_EQ(0, read_v4(up(members)));
            EXPECT_EQ(value.substr(0, capacity), row.field(record));

            clear_record();
            EXPECT_EQ(0, read_v6(up(members)));
            EXPECT_EQ(value.substr(0, capacity), row.field(record));
        }
    }
}

TEST_F(ifstatus_test, an_address_and_its_length_are_cut_before_the_terminator)
{
    const struct {
        const char *members; // % stands for the address; "/64" follows
        size_t capacity;
        std::string_view (*field)(const wan_config &);
    } cases[] = {
        {R"("ipv6-address":[{"address":"%","mask":64}])", 45,
         [](const wan_config &r) { return text_view(r.ipv6Addr); }},
        {R"("ipv6-address":[{},{"address":"%","mask":64}])", 45,
         [](const wan_config &r) { return text_view(r.ipv6SecAddr); }},
        {R"("ipv6-prefix":[{"address":"%","mask":64}])", 44,
         [](const wan_config &r) { return text_view(r.ipv6Prefix); }},
    };
    for (const auto &row : cases) {
        for (const size_t length : {row.capacity - 1, row.capacity, row.capacity + 1}) {
            SCOPED_TRACE(row.members + std::to_string(length));
            clear_record();
            const std::string address(length - strlen("/64"), 'a');
            std::string members = row.members;
            members.replace(members.find('%'), 1, address);

            EXPECT_EQ(0, read_v6(up(members)));

            EXPECT_EQ((address + "/64").substr(0, row.capacity - 1), row.field(record));
        }
    }
}

TEST_F(ifstatus_test, the_first_2048_bytes_of_a_reply_count)
{
    for (const size_t length : {2047U, 2048U}) {
        SCOPED_TRACE(length);
        EXPECT_EQ(0, read_v4(up_with_length(length)));
        EXPECT_EQ(0, read_v6(up_with_length(length)));
        EXPECT_EQ(1, record.status);
        EXPECT_EQ(1, record.statusV6);
    }
    EXPECT_TRUE(gateway.log().empty());

    EXPECT_EQ(-1, read_v4(up_with_length(2049)));
    EXPECT_EQ(-1, read_v6(up_with_length(2049)));

    EXPECT_EQ((text_lines{
                  "Output of ubus -S call network.interface.wan_7 status is cut at 2048 of its 2049 bytes",
                  v4_unparsable,
                  "Output of ubus -S call network.interface.wan_7_v6 status is cut at 2048 of its 2049 bytes",
                  v6_unparsable}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(ifstatus_test, an_ipv4_reply_that_is_no_json_is_a_failure)
{
    for (const char *printed : {"", "Command failed: Not found\n", R"({"up":true)", "null"}) {
        SCOPED_TRACE(printed);
        gateway.clear_log();

        EXPECT_EQ(-1, read_v4(printed));

        EXPECT_EQ(text_lines{v4_unparsable}, gateway.log_texts(LOG_ERR));
        EXPECT_EQ(0, record.status);
    }
}

TEST_F(ifstatus_test, an_ipv6_only_wan_without_its_interface_is_a_failure)
{
    EXPECT_EQ(-1, read_v6("Command failed: Not found\n"));

    EXPECT_EQ(text_lines{command(dhcp_v6_interface)}, take_started_commands());
    EXPECT_EQ(text_lines{v6_unparsable}, gateway.log_texts(LOG_ERR));
}

TEST_F(ifstatus_test, a_dual_stack_wan_without_its_ipv6_interface_still_reports_ipv4)
{
    bus.set(dhcp_v6_interface, "Command failed: Not found\n");
    bus.set(main_interface, up(R"("ipv4-address":[{"address":"192.0.2.9","mask":24}])"));

    EXPECT_EQ(0, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ(text_lines{v6_unparsable}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(0, record.statusV6);
    EXPECT_EQ(1, record.status);
    EXPECT_STREQ("192.0.2.9", record.ip);
}

TEST_F(ifstatus_test, what_the_ipv6_interface_gave_stays_when_ipv4_fails)
{
    bus.set(dhcp_v6_interface, up(R"("uptime":60,"route":[{"nexthop":"fe80::1"}])"));

    EXPECT_EQ(-1, read(ip_mode_dhcp, both_protocols));

    EXPECT_EQ(1, record.statusV6);
    EXPECT_EQ(60U, record.uptime);
    EXPECT_STREQ("fe80::1", record.ipv6Gateway);
    EXPECT_EQ(text_lines{v4_unparsable}, gateway.log_texts(LOG_ERR));
}

TEST_F(ifstatus_test, a_command_that_cannot_be_started_is_a_failure)
{
    bus.set_default(R"({"up":true})");
    for (const char *interface : {main_interface, dhcp_v6_interface}) {
        SCOPED_TRACE(interface);
        gateway.clear_log();
        const broken_command broken(command(interface));

        EXPECT_EQ(-1, read(ip_mode_dhcp, both_protocols));

        EXPECT_EQ(text_lines{"Failed to open ubus call: " + command(interface)}, gateway.log_texts(LOG_ERR));
    }
    // The IPv4 side is not asked once the IPv6 command could not be started.
    EXPECT_EQ(text_lines{}, take_started_commands());
}

TEST_F(ifstatus_test, members_of_another_kind_count_as_missing)
{
    constexpr char odd[] = R"("uptime":"x","ipv4-address":{"address":"192.0.2.1"},"ipv6-address":7,)"
                           R"("ipv6-prefix":"2001:db8::","route":[7,"fe80::1",[],null],"inactive":[],)"
                           R"("dns-server":{"0":"192.0.2.53"})";

    EXPECT_EQ(0, read_v4(up(odd)));
    EXPECT_EQ(0, read_v6(up(odd)));
    EXPECT_EQ(0, read_v4("[1,2]"));

    EXPECT_STREQ("", record.ip);
    EXPECT_STREQ("", record.ipv6Addr);
    EXPECT_STREQ("", record.ipv6Prefix);
    EXPECT_STREQ("", record.gateway);
    EXPECT_STREQ("", record.ipv6Gateway);
    EXPECT_STREQ("", record.priDns);
}

// Who waits for commands lets them have their turns, however many there are.
TEST_F(ifstatus_test, short_turns_end_with_the_last_start)
{
    const auto length_of_turns = [] {
        turn_attributes found = {};
        EXPECT_EQ(0, syscall(SYS_sched_getattr, 0, &found, sizeof(found), 0));
        return found.length;
    };
    const uint64_t usual = length_of_turns();
    bus.set(main_interface, R"({"up":true})");
    bus.set(dhcp_v6_interface, R"({"up":true})");
    for (const uint8_t protocol : {uint8_t{ip_protocol_v4}, both_protocols}) {
        take_short_turns();
        EXPECT_EQ(0, read(ip_mode_dhcp, protocol));
        EXPECT_EQ(usual, length_of_turns());
    }
}

// Several WANs, routed but for those that a test makes bridged.
class ifstatus_of_many_test : public gateway_test {
protected:
    static constexpr size_t wan_count = 7;

    ifstatus_of_many_test()
    {
        for (size_t i = 0; i < wan_count; i++) {
            records[i].wanId = static_cast<uint8_t>(i + 1);
            records[i].wanMode = wan_mode_routed;
            records[i].ipProtocol = i % 2 == 0 ? both_protocols : uint8_t{ip_protocol_v4};
            readings[i] = {&records[i], nullptr, 0};
        }
        (void)take_started_commands();
    }

    // Reads all that have not failed, in order, and returns the results.
    std::vector<int> read()
    {
        ifstatus_reader states(steady_milliseconds());
        states.ask(readings);
        std::vector<int> results;
        for (const wan_reading &reading : readings)
            if (!reading.failure)
                results.push_back(states.read(reading.record));
        return results;
    }

    static text_lines commands_of(std::initializer_list<const char *> interfaces)
    {
        text_lines commands;
        for (const char *interface : interfaces)
            commands.push_back(command(std::string("network.interface.") + interface));
        return commands;
    }

    // Each interface is up and has its own address, later ones at once and earlier ones after a while.
    void answer_backwards()
    {
        gateway.fake_program("ubus", R"sh(n=${3##*.wan_}
n=${n%_v6}
sleep 0.0$((9 - n))
echo "{\"up\":true,\"uptime\":$n,\"ipv4-address\":[{\"address\":\"192.0.2.$n\"}],"
echo "\"ipv6-address\":[{\"address\":\"2001:db8::$n\",\"mask\":64}]}")sh");
    }

    std::array<wan_config, wan_count> records = {};
    std::array<wan_reading, wan_count> readings;
};

TEST_F(ifstatus_of_many_test, each_wan_gets_its_own_state_whoever_answers_first)
{
    answer_backwards();

    EXPECT_EQ(std::vector<int>(wan_count, 0), read());

    for (const wan_config &record : records) {
        SCOPED_TRACE(int{record.wanId});
        EXPECT_EQ(record.wanId, record.uptime);
        EXPECT_EQ("192.0.2." + std::to_string(record.wanId), record.ip);
        EXPECT_EQ(record.ipProtocol == both_protocols ? "2001:db8::" + std::to_string(record.wanId) + "/64"
                                                      : "",
                  record.ipv6Addr);
    }
}

TEST_F(ifstatus_of_many_test, commands_start_in_the_order_of_the_wans_ipv6_first)
{
    answer_backwards();

    (void)read();

    EXPECT_EQ(commands_of({"wan_1_v6", "wan_1", "wan_2", "wan_3_v6", "wan_3", "wan_4", "wan_5_v6", "wan_5",
                           "wan_6", "wan_7_v6", "wan_7"}),
              take_started_commands());
}

TEST_F(ifstatus_of_many_test, bridged_and_failed_wans_are_passed_over)
{
    answer_backwards();
    records[0].wanMode = wan_mode_bridged;
    readings[2].failure = "no such WAN";
    records[4].wanMode = wan_mode_bridged;

    EXPECT_EQ(std::vector<int>(wan_count - 1, 0), read());

    EXPECT_EQ(commands_of({"wan_2", "wan_4", "wan_6", "wan_7_v6", "wan_7"}), take_started_commands());
    EXPECT_EQ(1, records[0].status);
    EXPECT_STREQ("", records[0].ip);
    EXPECT_STREQ("192.0.2.2", records[1].ip);
    EXPECT_EQ(0, records[2].status);
    EXPECT_STREQ("192.0.2.7", records[6].ip);
}

TEST_F(ifstatus_of_many_test, one_that_cannot_be_asked_leaves_the_others_alone)
{
    answer_backwards();
    const broken_command broken(command("network.interface.wan_3_v6"));

    EXPECT_EQ((std::vector<int>{0, 0, -1, 0, 0, 0, 0}), read());

    EXPECT_EQ(commands_of(
                  {"wan_1_v6", "wan_1", "wan_2", "wan_4", "wan_5_v6", "wan_5", "wan_6", "wan_7_v6", "wan_7"}),
              take_started_commands());
    EXPECT_EQ(text_lines{"Failed to open ubus call: " + command("network.interface.wan_3_v6")},
              gateway.log_texts(LOG_ERR));
    EXPECT_EQ(0, records[2].status);
    EXPECT_STREQ("192.0.2.4", records[3].ip);
}

TEST_F(ifstatus_of_many_test, what_cannot_be_read_of_one_is_logged_in_its_place)
{
    printed_replies bus(gateway);
    bus.set_default(up(R"("uptime":60)"));
    bus.set("network.interface.wan_1_v6", "no JSON");
    bus.set("network.interface.wan_2", "");
    bus.set("network.interface.wan_5", up_with_length(3000));

    EXPECT_EQ((std::vector<int>{0, -1, 0, 0, -1, 0, 0}), read());

    EXPECT_EQ(
        (text_lines{v6_unparsable, v4_unparsable,
                    "Output of ubus -S call network.interface.wan_5 status is cut at 2048 of its 3000 bytes",
                    v4_unparsable}),
        gateway.log_texts(LOG_ERR));
    EXPECT_EQ(60U, records[0].uptime);
    EXPECT_EQ(0U, records[1].uptime);
    EXPECT_EQ(1, records[4].statusV6);
    EXPECT_EQ(0, records[4].status);
}

} // namespace
