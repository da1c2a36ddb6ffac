// Which WANs may not stand next to each other.
#include "create/conflicts.h"

#include "service/settings.h"
#include "wan/wan_names.h"
#include "support/code_test.h"

#include <climits>

#include <cstring>

namespace {

class conflicts_test : public code_test {
protected:
    conflicts_test() { gateway.set_ports({.lan = 4}); }

    // A `network` of these device sections, each given by its option lines.
    void store_devices(const text_lines &option_lines)
    {
        std::string text;
        for (const std::string &options : option_lines)
            text += "\nconfig device\n" + options;
        gateway.set_config("network", text);
    }

    int check(const wan_config &wan, const char *exclude = nullptr)
    {
        const std::string before = gateway.exists("/etc/config/network") ? gateway.config("network") : "";
        const int result = wan_check_conflicts(&wan, exclude);
        EXPECT_EQ(gateway.exists("/etc/config/network") ? gateway.config("network") : "", before);
        EXPECT_TRUE(gateway.log().empty()) << "the caller logs";
        return result;
    }
};

// A bridged WAN of service "OTHER".
wan_config other_wan(const char *bind)
{
    return bridged_wan(1, bind, {.vid = 100, .service = service_other});
}

TEST_F(conflicts_test, a_bridged_other_wan_must_bind_a_port)
{
    struct {
        port_counts ports;
        const char *bind;
        int expected;
    } const cases[] = {
        {{.lan = 4}, "0000", conflict_port_required},
        {{.lan = 4}, "0100", conflict_none},
        {{.lan = 4}, "0001", conflict_none},
        {{.lan = 4}, "00001", conflict_port_required}, // there is no such port
        {{.lan = 4}, "", conflict_port_required},
        {{.lan = 1, .lan_phy = 1, .wlan_2g = 1, .wlan_5g = 1}, "0001", conflict_none},
        {{}, "1111", conflict_port_required},
        {{.lan = -5, .lan_phy = 1}, "1111", conflict_port_required},
        {{.lan = 20}, "00000000000000001", conflict_none}, // the 17th
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.bind) + " on " + std::to_string(row.ports.lan));
        gateway.set_ports(row.ports);

        EXPECT_EQ(check(other_wan(row.bind)), row.expected);
    }
}

TEST_F(conflicts_test, only_bridged_other_wans_must_bind_a_port)
{
    for (uint8_t service = 0; service < 10; service++) {
        SCOPED_TRACE(service);
        const wan_config bridged = bridged_wan(1, "0000", {.vid = 100, .service = service});
        EXPECT_EQ(check(bridged), service == service_other ? conflict_port_required : conflict_none);
        EXPECT_EQ(check(routed_dhcp(1, {.service = service, .bind = "0000"})), conflict_none);
    }
}

TEST_F(conflicts_test, ports_beyond_the_17th_are_never_looked_at)
{
    gateway.set_ports({.lan = 20});
    wan_config wan = other_wan("");
    memset(wan.bind, '0', sizeof(wan.bind));
    memset(wan.device, '1', sizeof(wan.device)); // what lies behind the binding in the record
    EXPECT_EQ(check(wan), conflict_port_required);

    std::string binding;
    for (int i = 0; i < 20; i++)
        binding += std::string("\tlist port_binding '") + (i >= 17 ? "1" : "0") + "'\n";
    store_devices({"\toption vid '7'\n" + binding});
    wan.bind[0] = '1';
    EXPECT_EQ(check(wan), conflict_none) << "a bound 18th port never conflicts";
}

TEST_F(conflicts_test, the_17th_port_is_compared)
{
    gateway.set_ports({.lan = 20});
    std::string binding;
    for (int i = 0; i < 17; i++)
        binding += std::string("\tlist port_binding '") + (i == 16 ? "1" : "0") + "'\n";
    store_devices({"\toption vid '7'\n" + binding});
    wan_config wan = other_wan("0000000000000000");
    wan.bind[16] = '1';

    EXPECT_EQ(check(wan), conflict_port_bound);
}

TEST_F(conflicts_test, a_port_on_the_uplinks_own_vlan_cannot_be_bound)
{
    struct {
        const char *uplink;
        port_counts ports;
        const char *bind;
        int expected;
    } const cases[] = {
        {"eth0.3", {.lan = 4}, "0010", conflict_vlan},
        {"eth0.3", {.lan = 4}, "1101", conflict_none},
        {"eth0.3", {.lan = 2, .lan_phy = 2}, "0010", conflict_vlan},
        {"eth0.3", {.lan = 2, .lan_phy = 1}, "0010", conflict_vlan},
        {"eth0.3", {.lan = INT_MIN, .lan_phy = -1}, "0010", conflict_none},
        {"eth0.3", {.lan = INT_MIN, .lan_phy = INT_MIN}, "0010", conflict_none},
        {"eth0.3", {.lan = INT_MAX, .lan_phy = INT_MAX}, "0010", conflict_vlan},
        {"eth0.3", {.lan = 2, .wlan_2g = 2}, "0010", conflict_none}, // no longer a LAN port
        {"eth0.3", {.wlan_2g = 4}, "0010", conflict_none},
        {"eth0.5", {.lan = 4}, "1111", conflict_none},
        {"eth0.1", {.lan = 1}, "1", conflict_vlan},
        {"eth0.3x", {.lan = 4}, "0010", conflict_vlan}, // the number counts as far as it goes
        {"eth1.3", {.lan = 4}, "0010", conflict_none},
        {"eth0-3", {.lan = 4}, "1111", conflict_none},
        {"eth0.", {.lan = 4}, "1111", conflict_none},
        {"pon", {.lan = 4}, "1111", conflict_none},
        {"eth0.17", {.lan = 20}, "00000000000000001", conflict_vlan},
        {"eth0.18", {.lan = 20}, "11111111111111111", conflict_none},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.uplink) + " " + row.bind);
        gateway.set_ports(row.ports);
        set_uplink(row.uplink);
        wan_config wan = routed_dhcp(1, {.vid = 100});
        memcpy(wan.bind, row.bind, strlen(row.bind)); // a record's binding may have no terminator

        EXPECT_EQ(check(wan), row.expected);
    }
}

// One device section next to a new WAN.
struct neighbour_case {
    const char *what;
    std::string device;
    wan_config wan;
    int expected;
};

class neighbour_test : public conflicts_test {
protected:
    void expect(const std::vector<neighbour_case> &cases)
    {
        for (const neighbour_case &row : cases) {
            SCOPED_TRACE(row.what);
            store_devices({row.device});
            EXPECT_EQ(check(row.wan), row.expected);
        }
    }
};

std::string bound(const char *positions)
{
    std::string text;
    for (const char *at = positions; *at; at++)
        text += std::string("\tlist port_binding '") + *at + "'\n";
    return text;
}

const std::string routed_100 = "\toption vid '100'\n\toption wanMode '1'\n";
const std::string bridged_100 = "\toption vid '100'\n\toption wanMode '0'\n";
const std::string routed_untagged = "\toption wanMode '1'\n";
const std::string bridged_untagged = "\toption wanMode '0'\n";

TEST_F(neighbour_test, a_port_belongs_to_one_wan)
{
    expect({
        {"the same port", routed_100 + bound("0100"), routed_dhcp(2, {.vid = 200, .bind = "0100"}),
         conflict_port_bound},
        {"one of several", routed_100 + bound("0110"), routed_dhcp(2, {.vid = 200, .bind = "1011"}),
         conflict_port_bound},
        {"other ports", routed_100 + bound("0100"), routed_dhcp(2, {.vid = 200, .bind = "1011"}),
         conflict_none},
        {"a shorter list", routed_100 + bound("01"), routed_dhcp(2, {.vid = 200, .bind = "1011"}),
         conflict_none},
        {"a shorter request", routed_100 + bound("0001"), routed_dhcp(2, {.vid = 200, .bind = "111"}),
         conflict_none},
        {"an entry counts by its first character", routed_100 + "\tlist port_binding '1x'\n",
         routed_dhcp(2, {.vid = 200, .bind = "1"}), conflict_port_bound},
        {"but by that only", routed_100 + "\tlist port_binding '01'\n",
         routed_dhcp(2, {.vid = 200, .bind = "1"}), conflict_none},
        {"a plain option is no list", routed_100 + "\toption port_binding '1'\n",
         routed_dhcp(2, {.vid = 200, .bind = "1"}), conflict_none},
        {"no list at all", routed_100, routed_dhcp(2, {.vid = 200, .bind = "1111"}), conflict_none},
    });
}

TEST_F(neighbour_test, two_routed_wans_may_share_a_vlan_but_a_bridged_one_shares_with_nobody)
{
    const wan_config routed = routed_dhcp(2, {.vid = 100});
    const wan_config bridged = bridged_wan(2, "", {.vid = 100});
    expect({
        {"routed next to routed", routed_100, routed, conflict_none},
        {"routed next to bridged", bridged_100, routed, conflict_vlan},
        {"bridged next to routed", routed_100, bridged, conflict_vlan},
        {"bridged next to bridged", bridged_100, bridged, conflict_vlan},
        {"bridged, another VLAN", bridged_100, bridged_wan(2, "", {.vid = 101}), conflict_none},
        {"routed, another VLAN", bridged_100, routed_dhcp(2, {.vid = 10}), conflict_none},
        {"bridged next to a device of no WAN", "\toption vid '100'\n", bridged, conflict_vlan},
        {"routed next to a device of no WAN", "\toption vid '100'\n", routed, conflict_none},
        {"numbers are read as far as they go", "\toption vid '100x'\n\toption wanMode ' 0'\n", routed,
         conflict_vlan},
        {"a text that is no number reads as 0", "\toption vid '100'\n\toption wanMode 'x'\n", routed,
         conflict_vlan},
    });
}

TEST_F(neighbour_test, an_untagged_wan_shares_the_uplink_with_nobody_untagged)
{
    const wan_config routed = routed_dhcp(2);
    const wan_config bridged = bridged_wan(2, "");
    expect({
        {"bridged next to routed", routed_untagged, bridged, conflict_vlan},
        {"bridged next to bridged", bridged_untagged, bridged, conflict_vlan},
        {"routed next to bridged", bridged_untagged, routed, conflict_vlan},
        {"routed next to routed", routed_untagged, routed, conflict_none},
        {"bridged next to tagged", bridged_100, bridged, conflict_none},
        {"tagged next to untagged", bridged_untagged, bridged_wan(2, "", {.vid = 100}), conflict_none},
        {"VLAN 0 is a VLAN", "\toption vid '0'\n", bridged, conflict_none},
        {"a list of VLANs counts as none", "\tlist vid '100'\n", bridged, conflict_vlan},
        {"and tagged with none of them", "\tlist vid '100'\n", bridged_wan(2, "", {.vid = 100}),
         conflict_none},
        {"a list of modes counts as none", "\tlist wanMode '0'\n", routed, conflict_none},
    });
}

TEST_F(neighbour_test, any_tag_mode_but_1_is_untagged)
{
    wan_config wan = bridged_wan(2, "", {.vid = 100});
    wan.vlanMode = 2;

    expect({{"tagged neighbour", bridged_100, wan, conflict_none},
            {"untagged neighbour", bridged_untagged, wan, conflict_vlan}});
}

TEST_F(neighbour_test, wan_modes_beyond_1_share_every_vlan)
{
    wan_config wan = routed_dhcp(2, {.vid = 100});
    wan.wanMode = 2;

    expect({{"bridged neighbour", bridged_100, wan, conflict_none}});
}

TEST_F(neighbour_test, a_multicast_vlan_belongs_to_one_wan_and_is_not_a_wans_own)
{
    const std::string with_mvid = routed_100 + "\toption mvid '300'\n";
    expect({
        {"the same", with_mvid, routed_dhcp(2, {.vid = 200, .mvid = 300}), conflict_vlan},
        {"another", with_mvid, routed_dhcp(2, {.vid = 200, .mvid = 301}), conflict_none},
        {"the new WAN's own VLAN", with_mvid, routed_dhcp(2, {.vid = 200, .mvid = 200}), conflict_vlan},
        {"without one", with_mvid, routed_dhcp(2, {.vid = 200}), conflict_none},
        {"a list counts as none", routed_100 + "\tlist mvid '300'\n",
         routed_dhcp(2, {.vid = 200, .mvid = 300}), conflict_none},
        {"read as a number", routed_100 + "\toption mvid '0300 x'\n",
         routed_dhcp(2, {.vid = 200, .mvid = 300}), conflict_vlan},
        {"the other's own VLAN may be used", routed_100, routed_dhcp(2, {.vid = 200, .mvid = 100}),
         conflict_none},
    });
}

TEST_F(conflicts_test, a_multicast_vlan_that_is_the_wans_own_is_only_noticed_next_to_another_device)
{
    const wan_config wan = routed_dhcp(1, {.vid = 100, .mvid = 100});

    EXPECT_EQ(check(wan), conflict_none) << "only the LAN bridge is there";
    store_devices({"\toption name 'eth0.9'\n"});
    EXPECT_EQ(check(wan), conflict_vlan);
    gateway.set_config("network", "config device 'own'\n\toption name 'pon.7'\n");
    EXPECT_EQ(check(wan, "own"), conflict_none) << "the only device is left out";
}

TEST_F(conflicts_test, the_lan_bridge_and_the_excluded_section_do_not_count)
{
    const wan_config wan = bridged_wan(2, "1", {.vid = 100});
    store_devices({"\toption type 'bridge'\n\toption vid '100'\n\tlist port_binding '1'\n"});
    EXPECT_EQ(check(wan), conflict_none);
    store_devices({"\tlist type 'bridge'\n\toption vid '100'\n"});
    EXPECT_EQ(check(wan), conflict_vlan) << "a list of types counts as none";
    for (const std::string type : {"8021q", "macvlan", "bridge2"}) {
        store_devices({"\toption type '" + type + "'\n\toption vid '100'\n"});
        EXPECT_EQ(check(wan), conflict_vlan) << type;
    }

    store_devices({"\toption vid '7'\n", "\toption vid '100'\n\tlist port_binding '1'\n"});
    const std::string own = "cfg020f15";
    ASSERT_EQ(gateway.uci_get("network." + own + ".vid"), "100");
    EXPECT_EQ(check(wan, own.c_str()), conflict_none);
    EXPECT_EQ(check(wan, "cfg020f1"), conflict_port_bound) << "the whole name counts";
    EXPECT_EQ(check(wan, "cfg020f155"), conflict_port_bound);
    EXPECT_EQ(check(wan, ""), conflict_port_bound);
}

TEST_F(conflicts_test, sections_of_other_types_do_not_count)
{
    gateway.set_config("network", "config bridge-vlan\n\toption vid '100'\n\tlist port_binding '1'\n"
                                  "\nconfig interface 'device'\n\toption vid '100'\n");

    EXPECT_EQ(check(bridged_wan(2, "1", {.vid = 100})), conflict_none);
}

TEST_F(conflicts_test, the_first_conflict_decides)
{
    const std::string same_port = "\toption vid '7'\n\tlist port_binding '1'\n";
    const std::string same_vlan = "\toption vid '100'\n";
    const wan_config wan = bridged_wan(2, "1", {.vid = 100});

    store_devices({same_vlan + "\tlist port_binding '1'\n"});
    EXPECT_EQ(check(wan), conflict_port_bound) << "of one device, the port comes first";
    store_devices({same_vlan, same_port});
    EXPECT_EQ(check(wan), conflict_vlan) << "of two, the first in the file";
    store_devices({same_port, same_vlan});
    EXPECT_EQ(check(wan), conflict_port_bound);

    store_devices({same_port});
    EXPECT_EQ(check(other_wan("0000")), conflict_port_required) << "before any device is looked at";
    text_ref(uplink_name).set("eth0.1");
    EXPECT_EQ(check(wan), conflict_vlan) << "the uplink's VLAN comes before the devices";
    EXPECT_EQ(check(other_wan("0000")), conflict_port_required);
}

TEST_F(conflicts_test, the_wan_that_the_conflict_is_with_is_named)
{
    const std::string of_7 = "\toption lkname '7_INTERNET_B_VID_100'\n\toption name 'pon.100'\n";
    const std::string port = "\toption vid '9'\n\tlist port_binding '1'\n", vlan = "\toption vid '100'\n";
    const std::string mvid = "\toption vid '9'\n\toption mvid '500'\n", other = "\toption vid '8'\n";
    struct {
        const char *what;
        std::vector<std::string> devices;
        wan_config wan;
        int conflict;
        uint8_t other;
    } const cases[] = {
        {"port", {other, of_7 + port}, bridged_wan(2, "1", {.vid = 100}), conflict_port_bound, 7},
        {"VLAN", {other, of_7 + vlan}, bridged_wan(2, "0", {.vid = 100}), conflict_vlan, 7},
        {"multicast", {of_7 + mvid}, routed_dhcp(2, {.vid = 100, .mvid = 500}), conflict_vlan, 7},
        {"the own one", {of_7 + other}, routed_dhcp(2, {.vid = 100, .mvid = 100}), conflict_vlan, 0},
        {"no WAN", {vlan}, bridged_wan(2, "0", {.vid = 100}), conflict_vlan, 0},
        {"no port", {of_7 + vlan}, other_wan("0000"), conflict_port_required, 0},
        {"none", {of_7 + other}, bridged_wan(2, "0", {.vid = 100}), conflict_none, 0},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        store_devices(row.devices);
        uint8_t named = 99;

        EXPECT_EQ(row.conflict, wan_check_conflicts(&row.wan, nullptr, &named));

        EXPECT_EQ(row.other, named);
    }
}

TEST_F(conflicts_test, a_configuration_that_cannot_be_read_is_told_apart)
{
    gateway.remove("/etc/config/network");
    EXPECT_EQ(check(bridged_wan(1, "1")), conflict_unreadable);
    EXPECT_EQ(check(other_wan("0000")), conflict_port_required) << "that needs no configuration";
    gateway.set_config("network", "config device\n\toption 'unfinished\n");
    EXPECT_EQ(check(bridged_wan(1, "1")), conflict_unreadable);
}

TEST_F(conflicts_test, each_refusal_is_logged_in_its_words)
{
    struct {
        int result;
        bool refuses;
        text_lines log;
    } const cases[] = {
        {conflict_none, false, {}},
        {conflict_unreadable, false, {}},
        {conflict_vlan, true, {"Failed to add wan: vlan 100 exist"}},
        {conflict_port_bound, true, {"Failed to add wan: port binding 10101010101010101 exist"}},
        {conflict_port_required, true, {"Failed to add wan: port binding required"}},
    };
    wan_config wan = bridged_wan(1, "", {.vid = 100});
    memcpy(wan.bind, "10101010101010101", sizeof(wan.bind)); // full, without a terminator
    for (const auto &row : cases) {
        SCOPED_TRACE(row.result);
        gateway.clear_log();

        EXPECT_EQ(wan_conflict_refuses(row.result, "add", &wan), row.refuses);

        EXPECT_EQ(gateway.log_texts(LOG_ERR), row.log);
        EXPECT_EQ(gateway.log().size(), row.log.size());
    }
}

} // namespace
