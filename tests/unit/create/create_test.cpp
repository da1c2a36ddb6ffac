// What creation makes of a WAN's record: configuration, scripts, reloads.
#include "create/create.h"

#include "create/conflicts.h"
#include "service/settings.h"
#include "wan/wan_names.h"
#include "support/code_test.h"
#include "support/small_disk.h"

#include <cstring>

namespace {

template <size_t size> void put(char (&field)[size], const char *value)
{
    text_ref(field).set(value);
}

// Lines of a configuration file.
std::string option(const char *name, const char *value)
{
    return std::string("\toption ") + name + " '" + value + "'\n";
}

std::string list(const char *name, const char *value)
{
    return std::string("\tlist ") + name + " '" + value + "'\n";
}

class create_test : public code_test {
protected:
    create_test() { gateway.set_ports({.lan = 4}); }

    void start_over()
    {
        code_test::start_over();
        gateway.set_ports({.lan = 4});
    }

    // What stands behind the section that the gateway as shipped ends with.
    std::string new_sections() const
    {
        const std::string network = gateway.config("network");
        const size_t korvel = network.find("config korvel");
        const size_t at = network.find("\n\n", korvel);
        return at == std::string::npos ? "" : network.substr(at + 1);
    }

    // The device section as far as its options before the port binding go.
    std::string device_of(const wan_config &wan)
    {
        EXPECT_EQ(wan_create(&wan, 0), 0);
        return new_sections();
    }

    // The interface section of that name, from its head to the empty line behind it.
    std::string interface(const std::string &name) const
    {
        const std::string network = gateway.config("network");
        const size_t at = network.find("config interface '" + name + "'\n");
        return at == std::string::npos ? "" : network.substr(at, network.find("\n\n", at) + 1 - at);
    }

    std::string interface_after(const wan_config &wan, const std::string &name)
    {
        EXPECT_EQ(wan_create(&wan, 0), 0);
        return interface(name);
    }
};

const text_lines reloads = {"/etc/init.d/network reload", "/etc/init.d/dnsmasq reload",
                            "/etc/init.d/firewall reload", "/etc/init.d/miniupnpd reload",
                            "/etc/init.d/omcproxy reload"};

// Without a multicast VLAN anywhere, the mapping is cleared first.
const text_lines clear_and_reloads = [] {
    text_lines commands = reloads;
    commands.insert(commands.begin(), "/userfs/bin/xponigmpcmd clearAll");
    return commands;
}();

TEST_F(create_test, a_tagged_wan_has_a_vlan_device_on_the_uplink)
{
    EXPECT_EQ(device_of(routed_dhcp(0, {.vid = 100, .prio = 5, .service = 2, .bind = "1000"})),
              "\nconfig device\n" + option("type", "8021q") + option("ifname", "pon") + option("vid", "100") +
                  list("egress_qos_mapping", "0:5") + option("name", "pon.100") + option("mtu", "1500") +
                  option("wanMode", "1") + option("IpProtocolType", "1") + option("service_mode", "2") +
                  option("disableLanDhcp", "0") + option("macaddr", "00:11:22:33:44:56") +
                  option("ipv6", "0") + option("lkname", "1_TR069_R_VID_100") +
                  "\nconfig interface 'wan_1'\n" + option("proto", "dhcp") + option("device", "pon.100") +
                  option("napt", "1") + option("defaultroute", "0") + "\n");
}

TEST_F(create_test, a_multicast_vlan_is_written_behind_the_wans_own)
{
    const std::string device = device_of(bridged_wan(0, "1", {.vid = 100, .mvid = 200}));

    EXPECT_TRUE(device.starts_with("\nconfig device\n" + option("type", "8021q") + option("ifname", "pon") +
                                   option("vid", "100") + option("mvid", "200") + option("name", "pon.100")))
        << device;
}

TEST_F(create_test, an_untagged_wan_is_on_the_uplink_itself)
{
    for (const uint8_t mode : {uint8_t{0}, uint8_t{2}}) { // any mode but 1
        SCOPED_TRACE(mode);
        start_over();
        wan_config wan = routed_dhcp(0, {.mvid = 200, .prio = 5, .service = 2});
        wan.vlanMode = mode;
        wan.vid = 100; // of no account

        const std::string device = device_of(wan);

        EXPECT_TRUE(device.starts_with("\nconfig device\n" + option("name", "pon") + option("mtu", "1500")))
            << device;
        for (const char *absent : {"option type", "ifname", "vid", "egress_qos_mapping"})
            EXPECT_EQ(device.find(absent), std::string::npos) << absent;
        EXPECT_NE(device.find(option("lkname", "1_TR069_R_VID_")), std::string::npos) << device;
    }
}

TEST_F(create_test, device_names_are_cut_at_11_characters)
{
    struct {
        const char *uplink;
        uint16_t vid;
        const char *device;
    } const cases[] = {{"uplink90", 65, "uplink90.65"},
                       {"uplink90", 655, "uplink90.65"},
                       {"uplink900", 12, "uplink90012"},
                       {"uplink90012", 0, "uplink90012"},
                       {"uplink900123", 0, "uplink90012"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.uplink);
        start_over();
        set_uplink(row.uplink);

        EXPECT_NE(device_of(routed_dhcp(0, {.vid = row.vid})).find(option("name", row.device)),
                  std::string::npos);
    }
}

TEST_F(create_test, link_names_tell_identifier_service_mode_and_tag_in_33_characters)
{
    wan_config mode_2 = routed_dhcp(0, {.vid = 5});
    mode_2.wanMode = 2;
    struct {
        uint8_t id;
        wan_config wan;
        const char *name;
    } const cases[] = {
        {3, routed_dhcp(0, {.vid = 100, .service = 1}), "3_INTERNET_R_VID_100"},
        {2, routed_dhcp(0, {.service = 2}), "2_TR069_R_VID_"},
        {1, bridged_wan(0, "1", {.vid = 1, .service = 0}), "1_TR069_INTERNET_B_VID_1"},
        {1, bridged_wan(0, "1", {.vid = 1, .service = 3}), "1_OTHER_B_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 4}), "1_VOIP_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 5}), "1_TR069_VOIP_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 6}), "1_VOIP_INTERNET_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 8}), "1_OTHER_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 9}), "1_OTHER_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 1, .service = 255}), "1_OTHER_R_VID_1"},
        {1, routed_dhcp(0, {.vid = 65535, .service = 1}), "1_INTERNET_R_VID_65535"},
        {1, mode_2, "1_INTERNET_B_VID_5"},
        {9, routed_dhcp(0, {.vid = 4094, .service = 7}), "9_TR069_VOIP_INTERNET_R_VID_4094"},    // 32
        {25, routed_dhcp(0, {.vid = 4094, .service = 7}), "25_TR069_VOIP_INTERNET_R_VID_4094"},  // 33
        {255, routed_dhcp(0, {.vid = 4094, .service = 7}), "255_TR069_VOIP_INTERNET_R_VID_409"}, // 34
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        start_over();

        EXPECT_EQ(wan_create(&row.wan, row.id), 0);

        EXPECT_NE(new_sections().find(option("lkname", row.name)), std::string::npos) << new_sections();
    }
}

TEST_F(create_test, only_port_binding_services_list_their_ports)
{
    for (uint8_t service = 0; service < 10; service++) {
        SCOPED_TRACE(service);
        start_over();
        const bool binds = service == 0 || service == 1 || service == 3 || service == 6 || service == 7;

        const std::string device = device_of(routed_dhcp(0, {.service = service, .bind = "0100"}));

        const std::string binding = list("port_binding", "0") + list("port_binding", "1") +
                                    list("port_binding", "0") + list("port_binding", "0");
        EXPECT_EQ(device.find(option("macaddr", "00:11:22:33:44:56") + binding + option("ipv6", "0")) !=
                      std::string::npos,
                  binds)
            << device;
        EXPECT_EQ(device.find("port_binding") != std::string::npos, binds);
    }
}

TEST_F(create_test, the_port_binding_has_as_many_entries_as_there_are_ports)
{
    struct {
        port_counts ports;
        const char *bind;
        const char *stored;
    } const cases[] = {
        {{.lan = 4}, "1", "1 0 0 0"},
        {{.lan = 4}, "", "0 0 0 0"},
        {{.lan = 4}, "001011", "0 0 1 0"},
        {{.lan = 4}, "2x1", "0 0 1 0"},
        {{.lan = 1, .lan_phy = 1, .wlan_2g = 1, .wlan_5g = 1}, "0101", "0 1 0 1"},
        {{.lan = 20}, "1111111111111111", "1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 0 0 0 0"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.bind);
        start_over();
        gateway.set_ports(row.ports);
        const wan_config wan = routed_dhcp(0, {.vid = 100, .bind = row.bind});

        EXPECT_EQ(wan_create(&wan, 0), 0);

        EXPECT_EQ(gateway.uci_get("network.@device[1].port_binding"), row.stored);
    }
    start_over();
    gateway.set_ports({.lan = 18});
    wan_config full = routed_dhcp(0, {.vid = 100});
    memset(full.bind, '1', sizeof(full.bind));
    memset(full.device, '1', sizeof(full.device)); // what lies behind the binding in the record
    EXPECT_EQ(wan_create(&full, 0), 0);
    EXPECT_EQ(gateway.uci_get("network.@device[1].port_binding"), "1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 0");

    start_over();
    gateway.set_ports({});
    const wan_config wan = routed_dhcp(0, {.bind = "1111"});
    EXPECT_EQ(wan_create(&wan, 0), 0);
    EXPECT_EQ(gateway.uci_get("network.@device[1].port_binding"), std::nullopt) << "a board without ports";
}

TEST_F(create_test, a_dhcp_wan_has_an_interface_for_each_protocol)
{
    wan_config own = with_own_servers(routed_dhcp(0, {.vid = 100, .service = 2, .ip_protocol = 3}));
    own.ipv6PrefixProxy = 0;
    own.napt = 0;

    const std::string sections = device_of(own);

    EXPECT_TRUE(sections.ends_with(
        option("lkname", "1_TR069_R_VID_100") + "\nconfig interface 'wan_1'\n" + option("proto", "dhcp") +
        option("device", "pon.100") + option("napt", "0") + option("peerdns", "0") +
        list("dns", "192.0.2.1") + list("dns", "192.0.2.2") + option("defaultroute", "0") +
        "\nconfig interface 'wan_1_v6'\n" + option("proto", "dhcpv6") + option("device", "pon.100") +
        option("reqaddress", "try") + option("reqprefix", "auto") + option("peerdns", "0") +
        list("dns", "2001:db8::1") + list("dns", "2001:db8::2") + option("defaultroute", "0") +
        option("delegate", "0") + "\n"))
        << sections;
    EXPECT_EQ(sections.find("option ipv6"), std::string::npos) << "IPv6 is on";
    EXPECT_EQ(gateway.uci_list("firewall.@zone[1].network"), (text_lines{"wan_1", "wan_1_v6"}));
}

TEST_F(create_test, a_dhcp_wan_of_one_protocol_has_one_interface)
{
    EXPECT_EQ(interface_after(routed_dhcp(0, {.vid = 1, .ip_protocol = 1}), "wan_1"),
              "config interface 'wan_1'\n" + option("proto", "dhcp") + option("device", "pon.1") +
                  option("napt", "1"));
    EXPECT_EQ(interface("wan_1_v6"), "");
    EXPECT_EQ(interface_after(routed_dhcp(0, {.vid = 2, .ip_protocol = 2}), "wan_2_v6"),
              "config interface 'wan_2_v6'\n" + option("proto", "dhcpv6") + option("device", "pon.2") +
                  option("reqaddress", "try") + option("reqprefix", "auto"));
    EXPECT_EQ(interface("wan_2"), "");
    EXPECT_EQ(gateway.uci_list("firewall.@zone[1].network"), (text_lines{"wan_1", "wan_2_v6"}));
    EXPECT_EQ(gateway.uci_get("network.@device[1].ipv6"), "0");
    EXPECT_EQ(gateway.uci_get("network.@device[2].ipv6"), std::nullopt);
}

TEST_F(create_test, a_pppoe_wan_has_one_interface_and_room_for_its_framing)
{
    wan_config wan = with_own_servers(routed_pppoe(0, {.vid = 100, .service = 4, .ip_protocol = 3}));
    put(wan.pppUser, "it's me");
    put(wan.pppServName, "isp");
    wan.pppDialMode = 1;
    wan.ipv6PrefixProxy = 0;
    put(wan.secDns, "");
    put(wan.priDnsV6, "");

    const std::string interface = interface_after(wan, "wan_1");

    EXPECT_EQ(interface, "config interface 'wan_1'\n" + option("device", "pon.100") + option("napt", "1") +
                             option("defaultroute", "0") + option("proto", "pppoe") +
                             option("username", "it'\\''s me") + option("password", "secret0") +
                             option("service", "isp") + option("demand", "300") + option("ipv6", "auto") +
                             option("peerdns", "0") + list("dns", "192.0.2.1") + list("dns", "2001:db8::2") +
                             option("delegate", "0"));
    EXPECT_EQ(gateway.uci_get("network.@device[1].mtu"), "1500") << "asked for: " << wan.mtu;
    EXPECT_EQ(this->interface("wan_1_v6") + this->interface("wan_1_6"), "");
    EXPECT_EQ(gateway.uci_list("firewall.@zone[1].network"), text_lines{"wan_1"});
}

TEST_F(create_test, pppoe_options_follow_the_protocols)
{
    struct {
        uint8_t protocol;
        const char *ipv6;
    } const cases[] = {{1, "0"}, {2, "auto"}, {3, "auto"}, {0, "auto"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.protocol);
        start_over();

        EXPECT_EQ(interface_after(routed_pppoe(0, {.vid = 100, .ip_protocol = row.protocol}), "wan_1"),
                  "config interface 'wan_1'\n" + option("device", "pon.100") + option("napt", "1") +
                      option("proto", "pppoe") + option("username", "user0") + option("password", "secret0") +
                      option("ipv6", row.ipv6))
            << "learnt servers, prefixes passed on, always on, no service name";
    }
}

TEST_F(create_test, servers_of_a_protocol_that_is_off_are_not_written)
{
    for (const uint8_t protocol : {ip_protocol_v4, ip_protocol_v6}) {
        SCOPED_TRACE(protocol);
        start_over();
        wan_config wan = with_own_servers(routed_pppoe(0, {.vid = 100, .ip_protocol = protocol}));
        wan.ipv6PrefixProxy = 0;

        EXPECT_EQ(wan_create(&wan, 0), 0);

        EXPECT_EQ(gateway.uci_get("network.wan_1.dns"),
                  protocol == 1 ? "192.0.2.1 192.0.2.2" : "2001:db8::1 2001:db8::2");
        EXPECT_EQ(gateway.uci_get("network.wan_1.delegate").has_value(), protocol == 2);
    }
}

TEST_F(create_test, flags_beyond_1_dial_always_and_learn_servers_and_prefixes)
{
    wan_config wan = routed_pppoe(0, {.vid = 100, .ip_protocol = 3});
    wan.pppDialMode = 2; // provisioning files may say anything
    wan.autoDns = 2;
    wan.autoDnsV6 = 2;
    wan.ipv6PrefixProxy = 2;
    put(wan.priDns, "192.0.2.1");
    put(wan.priDnsV6, "2001:db8::1");

    EXPECT_EQ(wan_create(&wan, 0), 0);

    for (const char *const option : {"demand", "peerdns", "dns", "delegate"})
        EXPECT_EQ(gateway.uci_get(std::string("network.wan_1.") + option), std::nullopt) << option;
}

TEST_F(create_test, any_ip_mode_above_static_dials)
{
    wan_config wan = routed_pppoe(0);
    wan.ipMode = 5;

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.wan_1.proto"), "pppoe");
}

TEST_F(create_test, a_static_wan_has_one_interface_with_both_protocols)
{
    wan_config wan = routed_static(1, {.vid = 100, .ip_protocol = 3});
    put(wan.secDns, "192.0.2.54");
    put(wan.secDnsV6, "2001:db8:1::54");
    wan.ipv6PrefixProxy = 0;

    const std::string interface = interface_after(wan, "wan_1");

    EXPECT_EQ(interface, "config interface 'wan_1'\n" + option("device", "pon.100") + option("napt", "1") +
                             option("proto", "static") + option("ipaddr", "192.0.2.10") +
                             option("netmask", "255.255.255.0") + option("gateway", "192.0.2.1") +
                             list("dns", "192.0.2.53") + list("dns", "192.0.2.54") +
                             list("dns", "2001:db8:1::53") + list("dns", "2001:db8:1::54") +
                             list("ip6addr", "2001:db8:1::10/64") + option("ip6gw", "2001:db8:1::1") +
                             option("ip6prefix", "2001:db8:100::/56") + option("peerdns", "0") +
                             option("delegate", "0"));
    EXPECT_EQ(gateway.uci_get("network.@device[1].mtu"), "1500") << "no framing here";
    EXPECT_EQ(this->interface("wan_1_v6") + this->interface("wan_1_6"), "");
    EXPECT_EQ(gateway.uci_list("firewall.@zone[1].network"), text_lines{"wan_1"});
}

TEST_F(create_test, a_static_wan_of_one_protocol_has_that_ones_options)
{
    EXPECT_EQ(interface_after(routed_static(1, {.vid = 1, .ip_protocol = 1}), "wan_1"),
              "config interface 'wan_1'\n" + option("device", "pon.1") + option("napt", "1") +
                  option("proto", "static") + option("ipaddr", "192.0.2.10") +
                  option("netmask", "255.255.255.0") + option("gateway", "192.0.2.1") +
                  list("dns", "192.0.2.53"));
    EXPECT_EQ(interface_after(routed_static(2, {.vid = 2, .ip_protocol = 2}), "wan_2"),
              "config interface 'wan_2'\n" + option("device", "pon.2") + option("napt", "1") +
                  option("proto", "static") + list("ip6addr", "2001:db8:2::10/64") +
                  option("ip6gw", "2001:db8:2::1") + option("ip6prefix", "2001:db8:200::/56") +
                  option("peerdns", "0") + list("dns", "2001:db8:2::53"));
}

TEST_F(create_test, the_mtu_of_a_pppoe_device_has_8_bytes_more)
{
    struct {
        wan_config wan;
        const char *mtu;
    } cases[] = {{routed_pppoe(0), "1500"}, {routed_dhcp(0), "1492"}, {routed_static(0), "1492"}};
    for (auto &row : cases) {
        SCOPED_TRACE(row.wan.ipMode);
        start_over();
        row.wan.mtu = 1492;

        EXPECT_EQ(wan_create(&row.wan, 0), 0);

        EXPECT_EQ(gateway.uci_get("network.@device[1].mtu"), row.mtu);
        EXPECT_EQ(gateway.uci_get("network.wan_1.mtu"), std::nullopt);
    }
}

TEST_F(create_test, only_internet_services_carry_the_default_route)
{
    for (uint8_t service = 0; service < 10; service++) {
        SCOPED_TRACE(service);
        const bool internet = service == 0 || service == 1 || service == 6 || service == 7;
        const std::optional<std::string> expected = internet ? std::nullopt : std::optional<std::string>("0");
        start_over();
        const wan_config by_dhcp = routed_dhcp(0, {.service = service, .ip_protocol = 3});
        const wan_config by_hand = routed_static(0, {.service = service});

        EXPECT_EQ(wan_create(&by_dhcp, 0), 0);
        EXPECT_EQ(wan_create(&by_hand, 0), 0);

        for (const char *interface : {"wan_1", "wan_1_v6", "wan_2"})
            EXPECT_EQ(gateway.uci_get(std::string("network.") + interface + ".defaultroute"), expected)
                << interface;
    }
}

TEST_F(create_test, a_ds_lite_tunnel_is_made_for_ipv6_only)
{
    struct {
        wan_config wan;
        const char *below; // null: no tunnel
        text_lines zone;
        uint8_t flag = 1;
    } cases[] = {
        {routed_dhcp(0, {.ip_protocol = 2}), "wan_1_v6", {"wan_1_v6", "dslite_1"}},
        {routed_pppoe(0, {.ip_protocol = 2}), "wan_1", {"wan_1", "dslite_1"}},
        {routed_static(0, {.ip_protocol = 2}), "wan_1", {"wan_1", "dslite_1"}},
        {routed_dhcp(0, {.ip_protocol = 3}), nullptr, {"wan_1", "wan_1_v6"}},
        {routed_dhcp(0, {.ip_protocol = 1}), nullptr, {"wan_1"}},
        {routed_dhcp(0, {.ip_protocol = 2}), nullptr, {"wan_1_v6"}, 2},
    };
    for (auto &row : cases) {
        SCOPED_TRACE(row.wan.ipMode * 10 + row.wan.ipProtocol);
        start_over();
        row.wan.ipv6DsLite = row.flag;
        put(row.wan.ipv6AddrDsLite, "2001:db8::aaaa");

        const std::string section = interface_after(row.wan, "dslite_1");

        const std::string expected = row.below
                                         ? "config interface 'dslite_1'\n" + option("proto", "dslite") +
                                               option("peeraddr", "2001:db8::aaaa") +
                                               option("tunlink", row.below) + option("encaplimit", "ignore")
                                         : "";
        EXPECT_EQ(section, expected);
        EXPECT_EQ(gateway.uci_list("firewall.@zone[1].network"), row.zone);
    }
}

TEST_F(create_test, the_ip_host_is_noted_on_the_main_interface)
{
    for (wan_config wan : {routed_dhcp(0, {.vid = 1}), routed_static(0, {.vid = 1, .ip_protocol = 2}),
                           routed_pppoe(0, {.vid = 1, .ip_protocol = 2})}) {
        SCOPED_TRACE(wan.ipMode);
        start_over();
        wan.iphostId = 2;
        EXPECT_TRUE(interface_after(wan, "wan_1").ends_with(option("iphostId", "2")));
    }

    EXPECT_EQ(interface_after(routed_dhcp(0, {.vid = 2}), "wan_2").find("iphostId"), std::string::npos);
}

// Deliberate: nobody but the writer notices that a WAN of IPv6 alone has no main interface.
TEST_F(create_test, the_ip_host_of_an_ipv6_wan_has_no_section_to_be_noted_on)
{
    wan_config wan = routed_dhcp(0, {.vid = 1, .ip_protocol = 2});
    wan.iphostId = 2;

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.config("network").find("iphostId"), std::string::npos);
    EXPECT_EQ(gateway.commands(), clear_and_reloads);
}

TEST_F(create_test, a_bridged_wan_joins_the_lan_bridge_and_has_no_interface)
{
    const std::string firewall = gateway.config("firewall");
    const wan_config wan = bridged_wan(0, "1010", {.vid = 100});
    gateway.write_file(isolate_rule_path, "#!/bin/sh\necho isolation >>/tmp/ran\n", 0755);

    const std::string sections = device_of(wan);

    EXPECT_EQ(sections, "\nconfig device\n" + option("type", "8021q") + option("ifname", "pon") +
                            option("vid", "100") + option("name", "pon.100") + option("mtu", "1500") +
                            option("wanMode", "0") + option("IpProtocolType", "1") +
                            option("service_mode", "1") + option("disableLanDhcp", "0") +
                            option("macaddr", "00:11:22:33:44:56") + list("port_binding", "1") +
                            list("port_binding", "0") + list("port_binding", "1") +
                            list("port_binding", "0") + option("ipv6", "0") +
                            option("lkname", "1_INTERNET_B_VID_100") + "\n");
    EXPECT_EQ(gateway.uci_get("network.@device[0].ports"),
              "eth0.1 eth0.2 eth0.3 eth0.4 ra0 ra1 rai0 rai1 pon.100");
    EXPECT_EQ(gateway.config("firewall"), firewall);
    EXPECT_NE(gateway.file("/etc/korvel/rule_wan_1.sh").find("\nINTERFACE_WAN=\"pon.100\"\n"),
              std::string::npos);
    EXPECT_FALSE(gateway.exists(isolate_rule_path)) << "rebuilt for one WAN";
    EXPECT_EQ(gateway.file("/tmp/ran"), "isolation\n");
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
    EXPECT_EQ(gateway.uci_get("omcproxy.@proxy[0].uplink"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), std::nullopt);
    EXPECT_EQ(gateway.commands(), clear_and_reloads);
}

TEST_F(create_test, the_second_bridged_wan_is_isolated_from_the_first)
{
    const wan_config first = bridged_wan(0, "", {.vid = 10});
    const wan_config second = bridged_wan(0, "", {.vid = 20, .mvid = 200});
    EXPECT_EQ(wan_create(&first, 0), 0);
    EXPECT_FALSE(gateway.exists(isolate_rule_path));
    gateway.clear_commands();

    EXPECT_EQ(wan_create(&second, 0), 0);

    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), (text_lines{"rule_mvlan.sh", "rule_wan_isolate.sh"}))
        << "no bridge script without a bound port";
    EXPECT_EQ(gateway.commands(), reloads) << "the multicast script is not run";
}

TEST_F(create_test, a_bridged_wan_of_a_service_without_ports_has_no_bridge_script)
{
    const wan_config wan = bridged_wan(0, "1111", {.vid = 10, .service = 4});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
}

TEST_F(create_test, a_routed_wan_leaves_the_isolation_alone)
{
    gateway.write_file(isolate_rule_path, "#!/bin/sh\n>/tmp/ran\n", 0755);
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_TRUE(gateway.exists(isolate_rule_path));
    EXPECT_FALSE(gateway.exists("/tmp/ran"));
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_isolate.sh"});
}

TEST_F(create_test, routing_follows_the_bound_ports_and_the_service)
{
    struct {
        uint8_t service;
        const char *bind;
        bool route, proxy;
    } const cases[] = {
        {0, "", true, true},        {1, "0100", true, true},   {2, "0100", true, false},
        {3, "", false, false},      {3, "0000", false, false}, {3, "0100", true, false},
        {3, "00001", false, false}, {4, "", true, false},      {5, "", true, false},
        {6, "", true, true},        {7, "", true, true},       {9, "0100", true, false},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::to_string(row.service) + " " + row.bind);
        start_over();
        const wan_config wan = routed_dhcp(0, {.vid = 100, .service = row.service, .bind = row.bind});

        EXPECT_EQ(wan_create(&wan, 0), 0);

        EXPECT_EQ(gateway.exists("/etc/hotplug.d/iface/99-wan_1"), row.route);
        EXPECT_EQ(gateway.uci_get("omcproxy.@proxy[0].uplink").has_value(), row.proxy);
        EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface").has_value(), row.proxy);
    }
}

TEST_F(create_test, the_route_script_is_made_from_the_wan_and_its_identifier)
{
    gateway.uci_set("network.korvel.maxWanId", "2");
    load_settings();
    const wan_config wan = routed_dhcp(0, {.vid = 100, .bind = "1010"}); // no identifier of its own

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.file("/etc/hotplug.d/iface/99-wan_3"), golden("route_rule/two_ports.sh"));
}

TEST_F(create_test, the_first_internet_wan_gets_multicast_proxy_and_upnp)
{
    struct {
        wan_config wan;
        const char *uplink;
    } const cases[] = {
        {routed_dhcp(0, {.ip_protocol = 1}), "wan_1"},   {routed_dhcp(0, {.ip_protocol = 2}), "wan_1_v6"},
        {routed_dhcp(0, {.ip_protocol = 3}), "wan_1"},   {routed_pppoe(0, {.ip_protocol = 2}), "wan_1"},
        {routed_static(0, {.ip_protocol = 2}), "wan_1"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.wan.ipMode * 10 + row.wan.ipProtocol);
        start_over();

        EXPECT_EQ(wan_create(&row.wan, 0), 0);

        EXPECT_EQ(gateway.config("omcproxy"),
                  "\nconfig proxy\n" + option("uplink", row.uplink) + option("downlink", "lan") + "\n");
        EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), "wan_1");
    }
}

TEST_F(create_test, a_second_internet_wan_takes_nothing_from_the_first)
{
    const wan_config first = routed_dhcp(0, {.vid = 1});
    const wan_config second = routed_dhcp(0, {.vid = 2});
    EXPECT_EQ(wan_create(&first, 0), 0);
    const std::string omcproxy = gateway.config("omcproxy");
    const std::string upnpd = gateway.config("upnpd");

    EXPECT_EQ(wan_create(&second, 0), 0);

    EXPECT_EQ(gateway.config("omcproxy"), omcproxy);
    EXPECT_EQ(gateway.config("upnpd"), upnpd);
    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), "wan_1");
}

TEST_F(create_test, proxy_and_upnp_are_taken_one_by_one)
{
    gateway.uci_set("upnpd.config.external_iface", "other");
    gateway.set_config("omcproxy", "");
    const wan_config wan = routed_dhcp(0, {.vid = 1});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), "other");
    EXPECT_EQ(gateway.uci_get("omcproxy.@proxy[0].uplink"), "wan_1") << "there was no proxy section";
}

TEST_F(create_test, a_wan_on_a_configured_device_keeps_that_devices_address)
{
    const std::string network = gateway.config("network");
    gateway.set_config("network", network + "\nconfig device 'a_name_of_many_characters'\n" +
                                      option("name", "pon.100") + option("macaddr", "02:00:00:00:00:01") +
                                      "\nconfig device\n" + option("name", "pon.100") +
                                      option("macaddr", "02:00:00:00:00:02"));
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.@device[3].macaddr"), "02:00:00:00:00:01");
    EXPECT_EQ(gateway.uci_get("network.@device[3].lkname"), "1_INTERNET_R_VID_100") << "a section of its own";
}

TEST_F(create_test, a_configured_device_without_an_address_lends_what_the_system_says)
{
    ASSERT_EQ(run_program({"ip", "link", "set", "pon", "address", "02:aa:bb:cc:dd:ee"}).status, 0);
    gateway.set_config("network", gateway.config("network") + "\nconfig device\n" + option("name", "pon"));
    const wan_config wan = routed_dhcp(0);

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.@device[2].macaddr"), "02:aa:bb:33:44:56");
}

TEST_F(create_test, a_section_of_another_type_lends_no_address)
{
    gateway.set_config("network", gateway.config("network") + "\nconfig bridge-vlan\n" +
                                      option("name", "pon.100") + option("macaddr", "02:00:00:00:00:01"));
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.@device[1].macaddr"), "00:11:22:33:44:56");
}

TEST_F(create_test, a_configured_device_that_does_not_exist_leaves_the_derived_address)
{
    gateway.set_config("network", gateway.config("network") + "\nconfig device\n" +
                                      option("name", "pon.100") + "\nconfig device\n" +
                                      list("name", "pon.101") + option("macaddr", "02:00:00:00:00:02"));
    const wan_config wan = routed_dhcp(0, {.vid = 100});
    const wan_config beside_a_list = routed_dhcp(0, {.vid = 101});

    EXPECT_EQ(wan_create(&wan, 0), 0);
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to read file: /sys/class/net/pon.100/address"});
    EXPECT_EQ(wan_create(&beside_a_list, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.@device[3].macaddr"), "00:11:22:33:44:56");
    EXPECT_EQ(gateway.uci_get("network.@device[4].macaddr"), "00:11:22:33:44:57");
}

TEST_F(create_test, without_an_address_none_is_written)
{
    ASSERT_EQ(run_program({"ip", "link", "set", "br-lan", "down"}).status, 0);
    ASSERT_EQ(run_program({"ip", "link", "set", "br-lan", "name", "elsewhere"}).status, 0);
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.@device[1].macaddr"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.@device[1].name"), "pon.100");
    ASSERT_EQ(run_program({"ip", "link", "set", "elsewhere", "name", "br-lan"}).status, 0);
    ASSERT_EQ(run_program({"ip", "link", "set", "br-lan", "up"}).status, 0);
}

TEST_F(create_test, services_are_reloaded_last_and_in_order)
{
    const wan_config wan = routed_dhcp(0, {.vid = 100, .mvid = 200, .bind = "1"});
    gateway.write_file("/etc/init.d/network",
                       "#!/bin/sh\ngateway-tool journal \"$0\" \"$@\"\ncp -r /etc/config /tmp/seen\n"
                       "ls /etc/korvel /etc/hotplug.d/iface >/tmp/scripts\n",
                       0755);

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.commands(), reloads);
    for (const char *name : {"network", "firewall", "omcproxy", "upnpd"})
        EXPECT_EQ(gateway.file(std::string("/tmp/seen/") + name), gateway.config(name)) << "on disk by then";
    EXPECT_NE(gateway.file("/tmp/scripts").find("99-wan_1"), std::string::npos);
    EXPECT_NE(gateway.file("/tmp/scripts").find("rule_mvlan.sh"), std::string::npos);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(create_test, a_conflict_is_refused_before_anything_is_written)
{
    gateway.store_wan(bridged_wan(1, "0100", {.vid = 100}));
    load_settings();
    const std::string network = gateway.config("network");
    const std::string firewall = gateway.config("firewall");
    struct {
        wan_config wan;
        int result;
        const char *message;
    } const cases[] = {
        {routed_dhcp(0, {.vid = 100}), -2, "Failed to add wan: vlan 100 exist"},
        {routed_dhcp(0, {.vid = 200, .bind = "1100"}), -3, "Failed to add wan: port binding 1100 exist"},
        {bridged_wan(0, "0000", {.vid = 200, .service = service_other}), -4,
         "Failed to add wan: port binding required"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.message);
        gateway.clear_log();

        EXPECT_EQ(wan_create(&row.wan, 0), row.result);

        EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{row.message});
        EXPECT_EQ(gateway.config("network"), network);
        EXPECT_EQ(gateway.config("firewall"), firewall);
        EXPECT_EQ(gateway.commands(), text_lines{});
        EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
        EXPECT_EQ(maxWanId.load(), 1U);
    }
}

TEST_F(create_test, under_a_fixed_identifier_no_conflict_is_looked_for)
{
    gateway.store_wan(bridged_wan(1, "0100", {.vid = 100}));
    load_settings();
    const wan_config wan = bridged_wan(0, "0100", {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 7), 0);

    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "1 7");
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "1");
    EXPECT_EQ(gateway.device_option(7, "name"), "pon.100");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(create_test, a_new_wan_gets_the_next_identifier)
{
    const wan_config first = routed_dhcp(9, {.vid = 100}); // the record's identifier does not count
    const wan_config second = routed_dhcp(9, {.vid = 200});

    EXPECT_EQ(wan_create(&first, 0), 0);
    EXPECT_EQ(wan_create(&second, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "1 2");
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "2");
    EXPECT_EQ(gateway.device_option(2, "macaddr"), "00:11:22:33:44:57");
    EXPECT_NE(interface("wan_2"), "");
}

TEST_F(create_test, behind_255_identifiers_a_new_wan_gets_the_lowest_free_one_and_can_be_read)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 1}));
    gateway.uci_set("network.korvel.maxWanId", "255");
    load_settings();
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "1 2");
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "255");
    EXPECT_EQ(gateway.device_option(2, "lkname"), "2_INTERNET_R_VID_100");
    EXPECT_NE(interface("wan_2"), "");
    EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_2"));
    EXPECT_EQ(gateway.log_texts(LOG_WARNING),
              text_lines{"WAN identifier 256 cannot be used, 2 is taken instead"});
}

TEST_F(create_test, with_every_identifier_in_use_a_new_wan_is_refused_before_anything_is_written)
{
    for (unsigned id = 1; id <= 255; id++)
        gateway.uci_add_list("network.korvel.wanList", std::to_string(id));
    const std::string network = gateway.config("network");
    const std::string firewall = gateway.config("firewall");
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), no_identifier_left);

    EXPECT_EQ(gateway.config("network"), network);
    EXPECT_EQ(gateway.config("firewall"), firewall);
    EXPECT_EQ(gateway.commands(), text_lines{});
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"No WAN identifier is left"});
}

TEST_F(create_test, a_wan_under_a_reserved_identifier_can_be_written_again)
{
    for (const uint8_t id : std::initializer_list<uint8_t>{153, 154, 155, 255}) {
        const wan_config wan = routed_dhcp(id, {.vid = id});

        EXPECT_EQ(wan_create(&wan, id), 0);

        EXPECT_EQ(gateway.device_option(id, "name"), "pon." + std::to_string(id));
    }
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "153 154 155 255");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(create_test, text_fields_that_are_full_are_written_whole)
{
    wan_config wan = routed_pppoe(0, {.vid = 100});
    memset(wan.pppUser, 'u', sizeof(wan.pppUser));
    memset(wan.pppPwd, 'p', sizeof(wan.pppPwd));

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.uci_get("network.wan_1.username"), std::string(65, 'u'));
    EXPECT_EQ(gateway.uci_get("network.wan_1.password"), std::string(65, 'p'));
}

TEST_F(create_test, a_configuration_that_cannot_be_written_is_logged_and_creation_goes_on)
{
    const std::string network = gateway.config("network");
    const std::string firewall = gateway.config("firewall");
    const wan_config wan = routed_dhcp(0, {.vid = 100});
    small_disk disk("/etc/config");
    disk.make_read_only();

    EXPECT_EQ(wan_create(&wan, 0), 0);

    ASSERT_EQ(gateway.log_texts(LOG_ERR).size(), 1U);
    EXPECT_TRUE(gateway.log_texts(LOG_ERR)[0].starts_with("Error happened when writing wan_1 data: "));
    EXPECT_EQ(gateway.config("network"), network);
    EXPECT_EQ(gateway.config("firewall"), firewall);
    EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_1"));
    EXPECT_EQ(gateway.commands(), clear_and_reloads);
}

TEST_F(create_test, one_configuration_that_is_missing_does_not_keep_the_others_from_being_written)
{
    gateway.remove("/etc/config/firewall");
    gateway.remove("/etc/config/omcproxy");
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_NE(interface("wan_1"), "");
    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), "wan_1");
}

TEST_F(create_test, without_a_network_configuration_creation_still_ends)
{
    gateway.remove("/etc/config/network");
    const wan_config wan = routed_dhcp(0, {.vid = 100});

    EXPECT_EQ(wan_create(&wan, 0), 0) << "what cannot be read conflicts with nothing";

    EXPECT_EQ(gateway.commands(), reloads);
}

TEST_F(create_test, failing_services_do_not_fail_the_creation)
{
    gateway.write_file("/etc/init.d/network", "#!/bin/sh\nexit 1\n", 0755);
    gateway.remove("/etc/init.d/firewall");
    const wan_config wan = routed_dhcp(0, {.vid = 100, .mvid = 200});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.commands(), (text_lines{"/etc/init.d/dnsmasq reload", "/etc/init.d/miniupnpd reload",
                                              "/etc/init.d/omcproxy reload"}));
}

// From the 256th section on, generated names have ten characters.
TEST_F(create_test, all_options_reach_a_section_behind_a_thousand_others)
{
    std::string network = gateway.config("network");
    for (int i = 0; i < 1000; i++)
        network += "\nconfig route\n" + option("table", "9");
    gateway.set_config("network", network);
    const wan_config wan = routed_dhcp(0, {.vid = 100, .bind = "1010"});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    const std::optional<std::string> section = gateway.device_section(1);
    ASSERT_TRUE(section);
    EXPECT_EQ(section->size(), 10U);
    EXPECT_EQ(gateway.device_option(1, "name"), "pon.100");
    EXPECT_EQ(gateway.device_option(1, "port_binding"), "1 0 1 0");
    EXPECT_NE(interface("wan_1"), "");
    EXPECT_TRUE(gateway.log().empty());
}

// What another program has left pending is committed by the first write, which may rename unnamed sections.
TEST_F(create_test, pending_changes_of_others_do_not_lead_the_writes_astray)
{
    gateway.set_config("network", "config route\n\toption table '9'\n" + gateway.config("network"));
    ASSERT_EQ(run_program({"uci", "delete", "network.@route[0]"}).status, 0);
    const wan_config wan = routed_dhcp(0, {.vid = 100, .bind = "1010"});

    EXPECT_EQ(wan_create(&wan, 0), 0);

    EXPECT_EQ(gateway.device_option(1, "name"), "pon.100");
    EXPECT_EQ(gateway.device_option(1, "port_binding"), "1 0 1 0");
    EXPECT_EQ(gateway.uci_get("network.@route[0]"), std::nullopt);
    EXPECT_TRUE(gateway.log().empty());
}

} // namespace
