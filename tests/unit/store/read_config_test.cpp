// A WAN's record as it is read from the configuration; the bus tool prints what the test lays down.
#include "store/read_config.h"

#include "base/clock.h"
#include "service/settings.h"
#include "support/open_count.h"
#include "support/printed_replies.h"

#include <mxuci.h>

namespace {

constexpr char link_down[] = R"({"up":false})";

class read_config_test : public gateway_test {
protected:
    read_config_test()
    {
        maxWanId = 255;
        bus.set_default(link_down);
    }

    // Stores the WAN and forgets what that logged.
    void store(const wan_config &config)
    {
        gateway.store_wan(config);
        device_ = "network." + gateway.device_section(config.wanId).value() + ".";
        interface_ = "network.wan_" + std::to_string(config.wanId) + ".";
    }
    std::string device(const char *option) const { return device_ + option; }
    std::string interface(const char *option) const { return interface_ + option; }

    wan_config read(uint8_t id)
    {
        wan_config record = {};
        record.wanId = id;
        result = wan_read_config(&record, steady_milliseconds());
        return record;
    }

    void expect_no_errors() { EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR)); }

    printed_replies bus{gateway};
    int result = 99;

private:
    std::string device_;
    std::string interface_;
};

constexpr uint8_t both_protocols = ip_protocol_v4 | ip_protocol_v6;

std::string error_text(int error)
{
    return "Error happened when getting wan_1 data: " + std::to_string(error);
}

// What the configuration library answers for an option that is not there.
int missing_option()
{
    char text[12];
    return mxuci_get("network", "korvel", "no_such_option", text, sizeof(text));
}

TEST_F(read_config_test, an_identifier_beyond_the_highest_is_refused)
{
    store(bridged_wan(3, "1000"));
    constexpr struct {
        uint8_t id;
        uint32_t highest;
        int result;
    } cases[] = {{0, 255, -1}, {3, 2, -1}, {3, 3, 0}, {3, 4, 0}, {3, 0, -1}, {3, UINT32_MAX, 0}};
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.id) + " of " + std::to_string(row.highest));
        maxWanId = row.highest;
        gateway.clear_log();

        read(row.id);

        EXPECT_EQ(row.result, result);
        EXPECT_EQ(row.result == 0 ? text_lines{} : text_lines{"Failed to get wan data"},
                  gateway.log_texts(LOG_ERR));
    }
}

TEST_F(read_config_test, a_wan_without_a_device_section_is_refused)
{
    store(bridged_wan(3, "1000"));

    const wan_config record = read(4);

    EXPECT_EQ(-1, result);
    EXPECT_EQ(text_lines{"Failed to get wan device and pon name"}, gateway.log_texts(LOG_ERR));
    wan_config untouched = {};
    untouched.wanId = 4;
    EXPECT_EQ(0, memcmp(&untouched, &record, sizeof(record)));
}

TEST_F(read_config_test, a_configuration_that_cannot_be_loaded_is_refused)
{
    for (const char *content : {"", "config 'device"}) {
        SCOPED_TRACE(content);
        gateway.clear_log();
        if (*content)
            gateway.set_config("network", content);
        else
            gateway.remove("/etc/config/network");

        read(3);

        EXPECT_EQ(-1, result);
        EXPECT_EQ(text_lines{"Failed to get wan device and pon name"}, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(read_config_test, a_bridged_wan_is_read_from_its_device_section)
{
    store(
        bridged_wan(3, "10100000",
                    {.vid = 100, .mvid = 200, .prio = 5, .service = 3, .mtu = 1400, .disable_lan_dhcp = 1}));

    const wan_config record = read(3);

    EXPECT_EQ(0, result);
    EXPECT_STREQ("3_OTHER_B_VID_100", record.wanName);
    EXPECT_STREQ("pon.100", record.device);
    EXPECT_STREQ("10100000", record.bind);
    EXPECT_STREQ("00:11:22:33:45:03", record.mac);
    EXPECT_EQ(1400, record.mtu);
    EXPECT_EQ(0, record.wanMode);
    EXPECT_EQ(1, record.ipProtocol);
    EXPECT_EQ(3, record.service);
    EXPECT_EQ(1, record.disableLanDhcp);
    EXPECT_EQ(1, record.vlanMode);
    EXPECT_EQ(100, record.vid);
    EXPECT_EQ(200, record.mvid);
    EXPECT_EQ(5, record.prio);
    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1, record.statusV6);
    expect_no_errors();
}

TEST_F(read_config_test, a_bridged_wan_has_no_interface)
{
    store(routed_pppoe(1, {.vid = 100, .ip_protocol = both_protocols}));
    gateway.uci_set(device("wanMode"), "0");

    const wan_config record = read(1);

    EXPECT_EQ(0, result);
    EXPECT_TRUE(bus.asked().empty());
    EXPECT_EQ(1, record.status);
    EXPECT_EQ(1500, record.mtu);
    EXPECT_EQ(0, record.ipMode);
    EXPECT_EQ(0, record.napt);
    EXPECT_EQ(0, record.autoDns);
    EXPECT_EQ(0, record.autoDnsV6);
    EXPECT_EQ(0, record.ipv6PrefixProxy);
    EXPECT_STREQ("", record.pppUser);
    expect_no_errors();
}

TEST_F(read_config_test, any_mode_but_routed_has_no_interface)
{
    store(routed_pppoe(1, {.vid = 100, .ip_protocol = both_protocols}));
    gateway.uci_set(device("wanMode"), "2");

    const wan_config record = read(1);

    EXPECT_EQ(2, record.wanMode);
    EXPECT_EQ(1500, record.mtu);
    EXPECT_EQ(0, record.ipMode);
    EXPECT_STREQ("", record.pppUser);
}

TEST_F(read_config_test, a_vlan_of_0_is_a_vlan)
{
    store(bridged_wan(1, "1000", {.vid = 100, .mvid = 200}));
    gateway.uci_set(device("vid"), "0");

    const wan_config record = read(1);

    EXPECT_EQ(1, record.vlanMode);
    EXPECT_EQ(0, record.vid);
    EXPECT_EQ(200, record.mvid);
}

TEST_F(read_config_test, an_untagged_wan_has_no_vlan)
{
    store(bridged_wan(1, "1000"));
    gateway.uci_set(device("mvid"), "200");

    const wan_config record = read(1);

    EXPECT_EQ(0, record.vlanMode);
    EXPECT_EQ(0, record.vid);
    EXPECT_EQ(0, record.mvid);
    expect_no_errors();
}

TEST_F(read_config_test, the_priority_is_the_third_character_of_a_mapping_of_0)
{
    constexpr struct {
        const char *mapping;
        uint8_t prio;
    } cases[] = {{"0:5", 5}, {"0:7", 7},  {"0:0", 0},     {"3:5", 0},
                 {"05", 0},  {"0:12", 1}, {"0:5 1:3", 5}, {"0:", 208}};
    store(bridged_wan(1, "1000", {.vid = 100}));
    for (const auto &row : cases) {
        SCOPED_TRACE(row.mapping);
        gateway.uci_set(device("egress_qos_mapping"), row.mapping);

        EXPECT_EQ(row.prio, read(1).prio);
    }
}

TEST_F(read_config_test, numbers_are_cut_to_their_fields)
{
    store(bridged_wan(1, "1000", {.vid = 100}));
    gateway.uci_set(device("mtu"), "66036");
    gateway.uci_set(device("IpProtocolType"), "257");
    gateway.uci_set(device("service_mode"), "263");
    gateway.uci_set(device("disableLanDhcp"), "-1");
    gateway.uci_set(device("vid"), "65636");
    gateway.uci_set(device("mvid"), "-1");
    gateway.uci_set(device("wanMode"), "256");

    const wan_config record = read(1);

    EXPECT_EQ(500, record.mtu);
    EXPECT_EQ(1, record.ipProtocol);
    EXPECT_EQ(7, record.service);
    EXPECT_EQ(255, record.disableLanDhcp);
    EXPECT_EQ(100, record.vid);
    EXPECT_EQ(65535, record.mvid);
    EXPECT_EQ(0, record.wanMode);
}

TEST_F(read_config_test, eleven_characters_of_a_number_count)
{
    constexpr struct {
        const char *text;
        uint16_t mtu;
    } cases[] = {{"00000000012", 12}, {"000000000123", 12}, {"0000000001234", 12}, {"none", 0}, {"14x", 14}};
    store(bridged_wan(1, "1000"));
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        gateway.uci_set(device("mtu"), row.text);

        EXPECT_EQ(row.mtu, read(1).mtu);
    }
    expect_no_errors();
}

TEST_F(read_config_test, a_display_name_has_at_most_33_characters)
{
    store(bridged_wan(1, "1000"));
    for (const size_t length : {32U, 33U, 34U, 35U, 60U}) {
        SCOPED_TRACE(length);
        const std::string name = "1_" + std::string(length - 2, 'N');
        gateway.uci_set(device("lkname"), name);

        EXPECT_EQ(name.substr(0, 33), read(1).wanName);
    }
    expect_no_errors();
}

TEST_F(read_config_test, a_device_name_fills_its_field_without_a_terminator)
{
    store(bridged_wan(1, "1000"));
    for (const size_t length : {11U, 12U, 13U}) {
        SCOPED_TRACE(length);
        const std::string name(length, 'd');
        gateway.uci_set(device("name"), name);

        const wan_config record = read(1);

        EXPECT_EQ(name.substr(0, 12), text_view(record.device));
        EXPECT_EQ('\0', record.gateway[0]);
    }
}

TEST_F(read_config_test, each_option_that_every_wan_has_is_missed)
{
    store(bridged_wan(1, "1000"));
    for (const char *option : {"mtu", "IpProtocolType", "service_mode", "disableLanDhcp", "wanMode"}) {
        SCOPED_TRACE(option);
        const std::string value = gateway.uci_get(device(option)).value();
        gateway.uci_delete(device(option));
        gateway.clear_log();

        read(1);

        EXPECT_EQ(0, result);
        EXPECT_EQ(text_lines{error_text(missing_option())}, gateway.log_texts(LOG_ERR));
        gateway.uci_set(device(option), value);
    }
}

TEST_F(read_config_test, an_option_that_only_some_wans_have_is_not_missed)
{
    store(routed_dhcp(1, {.ip_protocol = both_protocols}));

    const wan_config record = read(1);

    EXPECT_EQ(0, result);
    EXPECT_EQ(0, record.iphostId);
    EXPECT_EQ(0, record.vid);
    EXPECT_EQ(0, record.prio);
    EXPECT_EQ(0, record.ipv6DsLite);
    expect_no_errors();
}

TEST_F(read_config_test, a_mac_address_is_read_from_the_device_section)
{
    store(bridged_wan(1, "1000"));
    const struct {
        const char *option;
        const char *mac;
    } cases[] = {{"00:11:22:33:44:5", "00:11:22:33:44:5"},
                 {"00:11:22:33:44:56", "00:11:22:33:44:56"},
                 {"00:11:22:33:44:567", "00:11:22:33:44:56"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.option);
        gateway.uci_set(device("macaddr"), row.option);

        EXPECT_STREQ(row.mac, read(1).mac);
    }
}

TEST_F(read_config_test, without_a_stored_mac_address_the_devices_own_is_taken)
{
    store(bridged_wan(1, "1000"));
    gateway.uci_delete(device("macaddr"));
    gateway.uci_set(device("name"), "br-lan");

    const wan_config record = read(1);

    EXPECT_STREQ("00:11:22", record.mac); // as much as the reader takes
    expect_no_errors();
}

TEST_F(read_config_test, a_mac_address_that_cannot_be_had_is_missed)
{
    store(bridged_wan(1, "1000"));
    gateway.uci_delete(device("macaddr"));
    gateway.uci_set(device("name"), "no_such");

    const wan_config record = read(1);

    EXPECT_EQ(0, result);
    EXPECT_STREQ("", record.mac);
    EXPECT_EQ((text_lines{"Failed to read file: /sys/class/net/no_such/address", error_text(-1)}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(read_config_test, the_protocol_gives_the_address_mode)
{
    constexpr struct {
        const char *protocol;
        uint8_t ip_mode;
    } cases[] = {{"dhcp", 0},   {"static", 1},   {"pppoe", 2}, {"none", 0},
                 {"pppoe2", 0}, {"staticky", 0}, {"dslite", 0}};
    store(routed_pppoe(1));
    for (const auto &row : cases) {
        SCOPED_TRACE(row.protocol);
        gateway.uci_set(interface("proto"), row.protocol);

        EXPECT_EQ(row.ip_mode, read(1).ipMode);
    }
}

TEST_F(read_config_test, without_an_ipv4_interface_the_ipv6_one_gives_the_address_mode)
{
    store(routed_dhcp(1, {.ip_protocol = ip_protocol_v6}));
    gateway.uci_set("network.wan_1_v6.proto", "static");

    EXPECT_EQ(1, read(1).ipMode);
    expect_no_errors();
}

TEST_F(read_config_test, a_routed_wan_without_any_interface_is_missed)
{
    store(routed_dhcp(1, {.ip_protocol = ip_protocol_v6}));
    gateway.uci_delete("network.wan_1_v6");

    read(1);

    EXPECT_EQ(0, result);
    EXPECT_EQ(text_lines{error_text(missing_option())}, gateway.log_texts(LOG_ERR));
}

TEST_F(read_config_test, a_pppoe_wan_has_its_link_mtu_less_8)
{
    store(routed_pppoe(1));
    EXPECT_EQ(1492, read(1).mtu);

    gateway.uci_delete(device("mtu"));
    EXPECT_EQ(65528, read(1).mtu); // 0 less 8 in 16 bits
}

TEST_F(read_config_test, on_demand_dialling_reads_back_in_8_bits)
{
    store(routed_pppoe(1));
    EXPECT_EQ(0, read(1).pppDialMode);

    constexpr struct {
        const char *demand;
        uint8_t mode;
    } cases[] = {{"300", 44}, {"1", 1}, {"255", 255}, {"256", 0}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.demand);
        gateway.uci_set(interface("demand"), row.demand);

        EXPECT_EQ(row.mode, read(1).pppDialMode);
    }
    expect_no_errors();
}

TEST_F(read_config_test, a_list_is_read_as_its_values_with_blanks_between)
{
    store(routed_pppoe(1));
    gateway.uci_delete(interface("username"));
    gateway.uci_add_list(interface("username"), "alice");
    gateway.uci_add_list(interface("username"), "bob");
    gateway.uci_add_list(interface("username"), std::string(60, 'c'));

    EXPECT_EQ("alice bob " + std::string(54, 'c'), text_view(read(1).pppUser));
}

TEST_F(read_config_test, pppoe_texts_have_at_most_64_characters)
{
    store(routed_pppoe(1));
    for (const size_t length : {63U, 64U, 65U, 66U}) {
        SCOPED_TRACE(length);
        const std::string value(length, 'p');
        for (const char *option : {"username", "password", "service"})
            gateway.uci_set(interface(option), value);

        const wan_config record = read(1);

        EXPECT_EQ(value.substr(0, 64), text_view(record.pppUser));
        EXPECT_EQ(value.substr(0, 64), text_view(record.pppPwd));
        EXPECT_EQ(value.substr(0, 64), text_view(record.pppServName));
    }
}

TEST_F(read_config_test, missing_pppoe_credentials_are_missed_but_no_service_name)
{
    store(routed_pppoe(1));
    read(1);
    expect_no_errors();
    for (const char *option : {"username", "password"}) {
        SCOPED_TRACE(option);
        gateway.clear_log();
        gateway.uci_delete(interface(option));

        read(1);

        EXPECT_EQ(0, result);
        EXPECT_EQ(text_lines{error_text(missing_option())}, gateway.log_texts(LOG_ERR));
        gateway.uci_set(interface(option), "text");
    }
}

TEST_F(read_config_test, a_hidden_service_name_stays_empty)
{
    store(routed_pppoe(1));
    gateway.uci_set(interface("service"), "isp");
    constexpr struct {
        const char *hidden;
        const char *name;
    } cases[] = {{"", "isp"}, {"0", "isp"}, {"1", ""}, {"2", "isp"}, {"01", ""}, {"yes", "isp"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.hidden);
        gateway.set_config("custom", "config gpon 'gpon'\n");
        if (*row.hidden)
            gateway.uci_set("custom.gpon.ppp_service_name_hidden", row.hidden);

        EXPECT_STREQ(row.name, read(1).pppServName);
    }
    gateway.remove("/etc/config/custom");
    EXPECT_STREQ("isp", read(1).pppServName);
    expect_no_errors();
}

TEST_F(read_config_test, ipv4_options_are_read_for_ipv4_only)
{
    store(routed_dhcp(1, {.ip_protocol = both_protocols}));
    gateway.uci_set(interface("iphostId"), "2");
    gateway.uci_set(interface("napt"), "1");

    const wan_config both = read(1);
    EXPECT_EQ(2, both.iphostId);
    EXPECT_EQ(1, both.napt);
    EXPECT_EQ(1, both.autoDns);

    gateway.uci_set(device("IpProtocolType"), "2");
    const wan_config v6 = read(1);
    EXPECT_EQ(0, v6.iphostId);
    EXPECT_EQ(0, v6.napt);
    EXPECT_EQ(0, v6.autoDns);
    EXPECT_EQ(1, v6.autoDnsV6);
}

TEST_F(read_config_test, a_missing_translation_option_is_missed)
{
    store(routed_dhcp(1));
    gateway.uci_delete(interface("napt"));

    const wan_config record = read(1);

    EXPECT_EQ(0, record.napt);
    EXPECT_EQ(text_lines{error_text(missing_option())}, gateway.log_texts(LOG_ERR));
}

TEST_F(read_config_test, servers_are_read_wherever_their_origin_is_configured)
{
    constexpr struct {
        const char *peerdns; // empty: missing
        uint8_t learnt;
        const char *server;
    } cases[] = {{"", 1, ""}, {"0", 0, "192.0.2.53"}, {"1", 1, "192.0.2.53"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.peerdns);
        gateway.set_config("network", "config korvel 'korvel'\n");
        store(routed_dhcp(1));
        gateway.uci_add_list(interface("dns"), "192.0.2.53");
        if (*row.peerdns)
            gateway.uci_set(interface("peerdns"), row.peerdns);

        const wan_config record = read(1);

        EXPECT_EQ(row.learnt, record.autoDns);
        EXPECT_STREQ(row.server, record.priDns);
    }
}

TEST_F(read_config_test, a_static_ipv4_wan_always_has_configured_servers)
{
    store(routed_static(1));
    gateway.uci_set(interface("peerdns"), "1");

    const wan_config record = read(1);

    EXPECT_EQ(0, record.autoDns);
    EXPECT_STREQ("192.0.2.53", record.priDns);
    EXPECT_EQ(0, record.autoDnsV6);
    expect_no_errors();
}

TEST_F(read_config_test, static_addresses_are_not_read_from_the_configuration)
{
    store(routed_static(1, {.ip_protocol = both_protocols}));

    const wan_config record = read(1);

    EXPECT_STREQ("", record.ip);
    EXPECT_STREQ("", record.mask);
    EXPECT_STREQ("", record.gateway);
    EXPECT_STREQ("", record.ipv6Addr);
    EXPECT_STREQ("", record.ipv6Gateway);
    EXPECT_STREQ("", record.ipv6Prefix);
}

TEST_F(read_config_test, ipv6_options_come_from_the_section_that_the_address_mode_names)
{
    // Both sections exist and differ, so what is read shows which one was asked.
    constexpr char other_section[] = "\nconfig interface '%'\n\toption peerdns '0'\n\toption delegate '0'\n"
                                     "\tlist dns '2001:db8::53'\n";
    const struct {
        wan_config config;
        const char *section;
    } cases[] = {
        {routed_dhcp(1, {.ip_protocol = both_protocols}), "wan_1_v6"},
        {routed_static(1, {.ip_protocol = both_protocols}), "wan_1"},
        {routed_pppoe(1, {.ip_protocol = both_protocols}), "wan_1"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(static_cast<int>(row.config.ipMode));
        gateway.set_config("network", "config korvel 'korvel'\n");
        store(row.config);
        std::string more = other_section;
        more.replace(more.find('%'), 1, row.section);
        gateway.set_config("network", gateway.config("network") + more);

        const wan_config record = read(1);

        EXPECT_EQ(0, record.autoDnsV6);
        EXPECT_EQ(0, record.ipv6PrefixProxy);
        EXPECT_STREQ("2001:db8::53", row.config.ipMode == ip_mode_static ? record.secDnsV6 : record.priDnsV6);
    }
}

TEST_F(read_config_test, ipv6_servers_and_prefixes_come_from_the_link_unless_configured)
{
    store(routed_dhcp(1, {.ip_protocol = ip_protocol_v6}));
    gateway.uci_add_list("network.wan_1_v6.dns", "2001:db8::53");

    const wan_config learnt = read(1);
    EXPECT_EQ(1, learnt.autoDnsV6);
    EXPECT_EQ(1, learnt.ipv6PrefixProxy);
    EXPECT_STREQ("", learnt.priDnsV6);

    gateway.uci_set("network.wan_1_v6.peerdns", "0");
    gateway.uci_set("network.wan_1_v6.delegate", "0");
    const wan_config configured = read(1);
    EXPECT_EQ(0, configured.autoDnsV6);
    EXPECT_EQ(0, configured.ipv6PrefixProxy);
    EXPECT_STREQ("2001:db8::53", configured.priDnsV6);
    expect_no_errors();
}

TEST_F(read_config_test, a_tunnel_end_point_makes_it_ds_lite)
{
    store(routed_dhcp(1, {.ip_protocol = ip_protocol_v6}));
    EXPECT_EQ(0, read(1).ipv6DsLite);

    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig interface 'dslite_1'\n\toption peeraddr '2001:db8::1'\n");
    const wan_config record = read(1);
    EXPECT_EQ(1, record.ipv6DsLite);
    EXPECT_STREQ("2001:db8::1", record.ipv6AddrDsLite);

    for (const size_t length : {63U, 64U, 65U, 66U}) {
        SCOPED_TRACE(length);
        gateway.uci_set("network.dslite_1.peeraddr", std::string(length, 'a'));
        EXPECT_EQ(std::string(length, 'a').substr(0, 64), text_view(read(1).ipv6AddrDsLite));
    }

    for (const char *protocol : {"static", "pppoe"}) {
        SCOPED_TRACE(protocol);
        gateway.set_config("network", gateway.config("network") + "\nconfig interface 'wan_1'\n");
        gateway.uci_set("network.wan_1.proto", protocol);
        EXPECT_EQ(1, read(1).ipv6DsLite);
    }

    gateway.uci_set(device("IpProtocolType"), "1");
    EXPECT_EQ(0, read(1).ipv6DsLite);
}

TEST_F(read_config_test, a_status_that_cannot_be_had_is_missed)
{
    store(routed_dhcp(1));
    bus.set_default("");

    const wan_config record = read(1);

    EXPECT_EQ(0, result);
    EXPECT_EQ((text_lines{"Failed to parse netifd data json", error_text(-1)}), gateway.log_texts(LOG_ERR));
    EXPECT_STREQ("1_INTERNET_R_VID_", record.wanName);
    EXPECT_EQ(1, record.napt);
}

TEST_F(read_config_test, the_results_of_missed_options_are_combined_by_or)
{
    store(routed_dhcp(1));
    gateway.uci_delete(device("mtu"));
    gateway.uci_delete(interface("napt"));

    read(1);

    EXPECT_EQ(text_lines{error_text(missing_option())}, gateway.log_texts(LOG_ERR));
}

TEST_F(read_config_test, configured_servers_give_way_to_those_in_use)
{
    store(routed_static(1));
    bus.set("network.interface.wan_1", R"({"up":true,"dns-server":["203.0.113.1"]})");

    EXPECT_STREQ("203.0.113.1", read(1).priDns);
}

TEST_F(read_config_test, a_reading_opens_the_configuration_once)
{
    store(routed_dhcp(1, {.vid = 100, .ip_protocol = both_protocols}));
    const open_count opens("/etc/config/network");

    read(1);

    EXPECT_EQ(1U, opens.take());
}

class find_device_test : public gateway_test {
protected:
    int find(uint32_t id)
    {
        memset(section, 'x', sizeof(section));
        memset(device, 'x', sizeof(device));
        return wan_find_device(id, section, device);
    }

    void network(const std::string &sections) { gateway.set_config("network", sections); }

    char section[section_name_size];
    char device[12];
};

std::string device_section(const std::string &name, const std::string &link_name, const std::string &device)
{
    return "config device '" + name + "'\n\toption lkname '" + link_name + "'\n\toption name '" + device +
           "'\n\n";
}

TEST_F(find_device_test, the_first_section_with_the_identifier_is_found)
{
    network(device_section("a", "11_INTERNET_R_VID_", "pon.11") +
            device_section("b", "1_INTERNET_R_VID_", "pon.1") +
            device_section("c", "1_TR069_R_VID_", "pon.2"));

    EXPECT_EQ(0, find(1));

    EXPECT_STREQ("b", section);
    EXPECT_STREQ("pon.1", device);
}

TEST_F(find_device_test, what_has_no_plain_names_or_another_type_is_passed_over)
{
    network("config device 'a'\n\toption lkname '1_A'\n\n"
            "config device 'b'\n\toption name 'pon.2'\n\n"
            "config device 'c'\n\tlist lkname '1_C'\n\toption name 'pon.3'\n\n"
            "config device 'd'\n\toption lkname '1_D'\n\tlist name 'pon.4'\n\n"
            "config interface 'e'\n\toption lkname '1_E'\n\toption name 'pon.5'\n\n" +
            device_section("f", "X1_", "pon.6") + device_section("g", "1", "pon.7") +
            device_section("h", "1_", "pon.8"));

    EXPECT_EQ(0, find(1));

    EXPECT_STREQ("h", section);
}

TEST_F(find_device_test, identifiers_are_told_apart_up_to_two_digits)
{
    network(device_section("hundred", "100_A", "p1") + device_section("ten", "10_B", "p2") +
            device_section("one", "1_C", "p3"));

    EXPECT_EQ(0, find(1));
    EXPECT_STREQ("one", section);
    EXPECT_EQ(0, find(10));
    EXPECT_STREQ("ten", section);
    EXPECT_EQ(0, find(100));
    EXPECT_STREQ("hundred", section);
}

TEST_F(find_device_test, a_three_digit_identifier_also_finds_longer_ones)
{
    network(device_section("thousand", "1000_A", "p1") + device_section("hundred", "100_B", "p2"));

    EXPECT_EQ(0, find(100));

    EXPECT_STREQ("thousand", section);
}

TEST_F(find_device_test, eight_bits_of_the_identifier_count)
{
    network(device_section("one", "1_A", "p1"));

    EXPECT_EQ(0, find(257));
    EXPECT_STREQ("one", section);
}

TEST_F(find_device_test, what_is_not_found_leaves_the_outputs_alone)
{
    network(device_section("one", "1_A", "p1"));
    EXPECT_EQ(-1, find(2));
    EXPECT_EQ('x', section[0]);
    EXPECT_EQ('x', device[0]);

    gateway.remove("/etc/config/network");
    EXPECT_EQ(-1, find(1));
    EXPECT_EQ('x', section[0]);
}

TEST_F(find_device_test, a_device_name_fills_its_buffer_without_a_terminator)
{
    for (const size_t length : {11U, 12U, 13U}) {
        SCOPED_TRACE(length);
        network(device_section("one", "1_A", std::string(length, 'p')));

        EXPECT_EQ(0, find(1));

        EXPECT_EQ(std::string(length, 'p').substr(0, 12), text_view(device));
    }
}

TEST_F(find_device_test, a_section_name_is_found_whole)
{
    for (const size_t length : {9U, 10U, 11U, 63U}) {
        SCOPED_TRACE(length);
        const std::string name(length, 's');
        network(device_section(name, "1_A", "p1"));

        EXPECT_EQ(0, find(1));

        EXPECT_EQ(name, section);
    }
}

class section_reader_test : public gateway_test {
protected:
    void network(const std::string &options)
    {
        gateway.set_config("network", "config device 'one'\n" + options);
        loaded_.emplace("network");
    }
    const uci_loaded &loaded() const { return *loaded_; }
    uci_section *one() const { return loaded_->section("one"); }

private:
    std::optional<uci_loaded> loaded_;
};

class port_binding_test : public section_reader_test {};

std::string binding(size_t entries, const char *value)
{
    std::string text;
    for (size_t i = 0; i < entries; i++)
        text += std::string("\tlist port_binding '") + value + "'\n";
    return text;
}

TEST_F(port_binding_test, an_entry_is_bound_when_it_begins_with_1)
{
    std::string list;
    for (const char *entry : {"1", "0", "10", "01", "x", "1x", "2"})
        list += std::string("\tlist port_binding '") + entry + "'\n";
    network(list);
    char bind[17] = {};

    EXPECT_EQ(3U, wan_read_port_binding(loaded(), one(), bind));

    EXPECT_STREQ("1010010", bind);
}

TEST_F(port_binding_test, seventeen_entries_fill_the_field_without_a_terminator)
{
    for (const size_t entries : {1U, 15U, 16U, 17U, 18U, 20U}) {
        SCOPED_TRACE(entries);
        network(binding(entries, "1"));
        char around[19] = {};
        auto &bind = reinterpret_cast<char(&)[17]>(around[1]);
        const size_t kept = std::min<size_t>(entries, 17);

        EXPECT_EQ(kept, wan_read_port_binding(loaded(), one(), bind));

        EXPECT_EQ(std::string(kept, '1'), text_view(bind));
        EXPECT_EQ('\0', around[18]);
    }
}

TEST_F(port_binding_test, without_a_list_nothing_is_bound_and_nothing_written)
{
    for (const char *options : {"", "\toption port_binding '1'\n"}) {
        SCOPED_TRACE(options);
        network(options);
        char bind[17] = "unchanged";

        EXPECT_EQ(0U, wan_read_port_binding(loaded(), one(), bind));
        EXPECT_EQ(0U, wan_read_port_binding(loaded(), loaded().section("none"), bind));

        EXPECT_STREQ("unchanged", bind);
    }
}

class dns_test : public section_reader_test {
protected:
    wan_config read(const text_lines &servers)
    {
        std::string list;
        for (const std::string &server : servers)
            list += "\tlist dns '" + server + "'\n";
        network(list);
        wan_config record = {};
        wan_read_dns(loaded(), one(), &record);
        return record;
    }
};

TEST_F(dns_test, two_servers_of_each_family_are_kept_in_order)
{
    const wan_config record =
        read({"1.1.1.1", "2001:db8::1", "8.8.8.8", "9.9.9.9", "2001:db8::2", "2001:db8::3"});

    EXPECT_STREQ("1.1.1.1", record.priDns);
    EXPECT_STREQ("8.8.8.8", record.secDns);
    EXPECT_STREQ("2001:db8::1", record.priDnsV6);
    EXPECT_STREQ("2001:db8::2", record.secDnsV6);
}

TEST_F(dns_test, a_point_makes_it_ipv4_and_neither_makes_it_nothing)
{
    const wan_config record = read({"localhost", "::ffff:192.0.2.1", "::1"});

    EXPECT_STREQ("::ffff:192.0.2.1", c_text(record.priDns)); // 16 characters, the whole field
    EXPECT_STREQ("", record.secDns);
    EXPECT_STREQ("::1", record.priDnsV6);
}

TEST_F(dns_test, servers_fill_their_fields_without_a_terminator)
{
    for (const int beyond : {-1, 0, 1}) {
        SCOPED_TRACE(beyond);
        const std::string v4 = "." + std::string(static_cast<size_t>(15 + beyond), '4');
        const std::string v6 = ":" + std::string(static_cast<size_t>(39 + beyond), '6');

        const wan_config record = read({v4, v4, v6, v6});

        EXPECT_EQ(v4.substr(0, 16), text_view(record.priDns));
        EXPECT_EQ(v4.substr(0, 16), text_view(record.secDns));
        EXPECT_EQ(v6.substr(0, 40), text_view(record.priDnsV6));
        EXPECT_EQ(v6.substr(0, 40), text_view(record.secDnsV6));
    }
}

TEST_F(dns_test, without_a_list_the_servers_stay)
{
    wan_config record = {};
    text_ref(record.priDns).set("192.0.2.1");
    network("\toption dns '192.0.2.2'\n");

    wan_read_dns(loaded(), one(), &record);
    wan_read_dns(loaded(), loaded().section("none"), &record);

    EXPECT_STREQ("192.0.2.1", record.priDns);
}

} // namespace
