// What the start does about scripts that are missing.
#include "rules/regenerate.h"

#include "wan/wan_names.h"
#include "support/code_test.h"

namespace {

constexpr char bridge_3_path[] = "/etc/korvel/rule_wan_3.sh";
constexpr char route_3_path[] = "/etc/hotplug.d/iface/99-wan_3";

using message_list = std::vector<std::pair<int, std::string>>;

class regenerate_test : public code_test {
protected:
    regenerate_test() { gateway.set_ports({.lan = 4}); }

    // Priority and text of each message, less the line's end, which the log may keep or not.
    message_list messages() const
    {
        message_list result;
        for (const log_entry &entry : gateway.log()) {
            std::string text = entry.text;
            while (text.ends_with('\n'))
                text.pop_back();
            result.emplace_back(entry.priority, text);
        }
        return result;
    }
};

TEST_F(regenerate_test, a_missing_route_script_is_written_from_the_configuration)
{
    gateway.store_wan(routed_dhcp(3, {.vid = 100, .bind = "1010"}));

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.file(route_3_path), golden("route_rule/two_ports.sh"));
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(messages(),
              (message_list{{LOG_INFO, "Generate missing wan_3 route rule: /etc/hotplug.d/iface/99-wan_3"}}));
}

TEST_F(regenerate_test, a_missing_bridge_script_is_written_with_the_isolation)
{
    gateway.store_wan(bridged_wan(3, "1010", {.vid = 100}));
    gateway.store_wan(bridged_wan(4, "0101", {.vid = 20, .disable_lan_dhcp = 1}));
    gateway.write_file("/etc/korvel/rule_wan_4.sh", "kept", 0755);

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.file(bridge_3_path), golden("bridge_rule/tagged_two_of_four.sh"));
    EXPECT_EQ(gateway.file("/etc/korvel/rule_wan_4.sh"), "kept");
    EXPECT_TRUE(gateway.file(isolate_rule_path)
                    .starts_with("#!/bin/sh\nebtables -D FORWARD -i \"pon.100\" -o \"pon.20\" -j DROP\n"));
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
    EXPECT_EQ(messages(),
              (message_list{{LOG_INFO, "Generate missing wan_3 bridge rule: /etc/korvel/rule_wan_3.sh"}}));
}

TEST_F(regenerate_test, all_fields_of_a_script_are_read)
{
    gateway.set_ports({.lan = 4, .lan_phy = 1, .wlan_2g = 2, .wlan_5g = 2});
    gateway.store_wan(routed_dhcp(20, {.service = 2, .disable_lan_dhcp = 1, .bind = "000110001"}));
    gateway.store_wan(bridged_wan(1, "11"));

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.file("/etc/hotplug.d/iface/99-wan_20"), golden("route_rule/dhcp_blocked.sh"));
    EXPECT_NE(gateway.file("/etc/korvel/rule_wan_1.sh").find("\nINTERFACE_WAN=\"pon\"\n"), std::string::npos)
        << "untagged";
}

TEST_F(regenerate_test, scripts_that_are_there_are_left_alone)
{
    gateway.store_wan(routed_dhcp(3, {.vid = 100, .bind = "1010"}));
    gateway.store_wan(bridged_wan(4, "0101", {.vid = 20}));
    gateway.write_file(route_3_path, "kept", 0600);
    gateway.write_file("/etc/korvel/rule_wan_4.sh", "kept", 0600);
    gateway.write_file(isolate_rule_path, "kept", 0600);

    wan_regen_missing_rules();

    for (const char *path : {route_3_path, "/etc/korvel/rule_wan_4.sh", isolate_rule_path}) {
        EXPECT_EQ(gateway.file(path), "kept");
        EXPECT_EQ(gateway.mode(path), 0600U);
    }
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(regenerate_test, a_routed_other_wan_without_a_port_needs_no_script)
{
    gateway.store_wan(routed_dhcp(3, {.service = service_other, .bind = "0000"}));
    gateway.store_wan(routed_dhcp(4, {.service = service_other, .bind = "0100"}));
    gateway.store_wan(routed_dhcp(5, {.service = 4}));

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), (text_lines{"99-wan_4", "99-wan_5"}));
    EXPECT_EQ(gateway.log().size(), 2U);
}

TEST_F(regenerate_test, any_mode_but_routed_counts_as_bridged)
{
    wan_config wan = bridged_wan(3, "1010", {.vid = 100});
    wan.wanMode = 2;
    gateway.store_wan(wan);

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.file(bridge_3_path), golden("bridge_rule/tagged_two_of_four.sh"));
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
}

TEST_F(regenerate_test, a_bridged_wan_without_a_port_has_the_isolation_rebuilt_at_every_start)
{
    gateway.store_wan(bridged_wan(3, "0000", {.vid = 10}));
    gateway.store_wan(bridged_wan(4, "0000", {.vid = 20}));

    for (int start = 0; start < 2; start++) {
        SCOPED_TRACE(start);
        gateway.clear_log();
        gateway.write_file(isolate_rule_path, "#!/bin/sh\n", 0755);

        wan_regen_missing_rules();

        EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_isolate.sh"});
        EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
        for (const std::string &line : gateway.commands()) // what was just written is not taken back again
            EXPECT_FALSE(line.starts_with("ebtables")) << line;
        EXPECT_EQ(
            messages(),
            (message_list{{LOG_INFO, "Generate missing wan_3 bridge rule: /etc/korvel/rule_wan_3.sh"},
                          {LOG_INFO, "Generate missing wan_4 bridge rule: /etc/korvel/rule_wan_4.sh"}}));
    }
}

TEST_F(regenerate_test, wans_are_taken_in_the_order_of_the_list_and_one_without_a_device_is_skipped)
{
    gateway.store_wan(routed_dhcp(2, {.bind = "1"}));
    gateway.store_wan(routed_dhcp(3, {.bind = "1"}));
    set_ids({3, 7, 2});

    wan_regen_missing_rules();

    EXPECT_EQ(messages(),
              (message_list{{LOG_INFO, "Generate missing wan_3 route rule: /etc/hotplug.d/iface/99-wan_3"},
                            {LOG_ERR, "Failed to get wan device and pon name"},
                            {LOG_INFO, "Generate missing wan_2 route rule: /etc/hotplug.d/iface/99-wan_2"}}));
}

TEST_F(regenerate_test, identifiers_are_cut_to_8_bits)
{
    gateway.store_wan(routed_dhcp(3, {.bind = "1"}));
    gateway.store_wan(routed_dhcp(255, {.bind = "1"}));
    set_ids({256 + 3, 256 + 255});

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), (text_lines{"99-wan_255", "99-wan_3"}));
}

TEST_F(regenerate_test, the_multicast_script_is_rebuilt_last)
{
    gateway.store_wan(routed_dhcp(3, {.vid = 100, .mvid = 200, .bind = "1010"}));

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/one_pair.sh"));
    EXPECT_EQ(gateway.commands(), text_lines{}) << "no script is run that was not there";
}

TEST_F(regenerate_test, without_a_multicast_vlan_the_mapping_is_cleared)
{
    gateway.store_wan(routed_dhcp(3, {.vid = 100, .bind = "1010"}));
    gateway.write_file(mvlan_rule_path, "old", 0755);

    wan_regen_missing_rules();

    EXPECT_FALSE(gateway.exists(mvlan_rule_path));
    EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
}

// A list that lost its last value is there, empty, until somebody commits the change.
TEST_F(regenerate_test, an_empty_list_still_rebuilds_the_multicast_script)
{
    set_ids({3});
    ASSERT_EQ(run_program({"uci", "del_list", "network.korvel.wanList=3"}).status, 0);
    gateway.write_file(mvlan_rule_path, "old", 0755);

    wan_regen_missing_rules();

    EXPECT_FALSE(gateway.exists(mvlan_rule_path));
    EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
}

TEST_F(regenerate_test, directories_that_were_wiped_are_made_again)
{
    gateway.store_wan(bridged_wan(3, "1010", {.vid = 100}));
    gateway.store_wan(routed_dhcp(4, {.vid = 200}));
    gateway.remove("/etc/korvel");
    gateway.remove("/etc/hotplug.d");

    wan_regen_missing_rules();

    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_3.sh"});
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{"99-wan_4"});
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{});
}

TEST_F(regenerate_test, without_a_list_nothing_is_touched)
{
    const std::string device = "config device\n\toption name 'pon.1'\n\toption lkname '1_INTERNET_R_VID_1'\n";
    for (const std::string &config : {device, device + "\nconfig korvel 'korvel'\n",
                                      device + "\nconfig korvel 'korvel'\n\toption wanList '1'\n"}) {
        SCOPED_TRACE(config);
        gateway.set_config("network", config);
        gateway.write_file(mvlan_rule_path, "kept", 0755);

        wan_regen_missing_rules();

        EXPECT_EQ(gateway.file(mvlan_rule_path), "kept");
    }
    gateway.remove("/etc/config/network");
    wan_regen_missing_rules();
    EXPECT_EQ(gateway.file(mvlan_rule_path), "kept") << "no configuration at all";
    EXPECT_EQ(gateway.commands(), text_lines{});
    EXPECT_TRUE(gateway.log().empty());
}

} // namespace
