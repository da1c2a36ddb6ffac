// The script that maps multicast VLANs to the WANs' own.
#include "rules/multicast_vlan.h"

#include "wan/wan_names.h"
#include "support/code_test.h"
#include "support/small_disk.h"

namespace {

class multicast_vlan_test : public code_test {
protected:
    // Devices with these options, behind the LAN bridge.
    void store_devices(const text_lines &option_lines)
    {
        std::string text = "config device\n\toption name 'br-lan'\n\toption type 'bridge'\n";
        for (const std::string &options : option_lines)
            text += "\nconfig device\n" + options;
        gateway.set_config("network", text);
    }

    static std::string vlans(unsigned vid, unsigned mvid)
    {
        return "\toption vid '" + std::to_string(vid) + "'\n\toption mvid '" + std::to_string(mvid) + "'\n";
    }
};

TEST_F(multicast_vlan_test, each_pair_of_vlans_is_mapped)
{
    store_devices({"\toption vid '9'\n", vlans(100, 200), "\toption mvid '8'\n"});

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/one_pair.sh"));
    EXPECT_EQ(gateway.mode(mvlan_rule_path), 0755U);
    EXPECT_EQ(gateway.commands(), text_lines{}) << "the script is written but not run";
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(multicast_vlan_test, only_devices_count)
{
    gateway.set_config("network", "config interface 'a'\n" + vlans(1, 2) + "\nconfig device\n" +
                                      vlans(100, 200) + "\nconfig bridge-vlan\n" + vlans(3, 4));

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/one_pair.sh"));
}

TEST_F(multicast_vlan_test, at_most_eight_pairs_are_mapped)
{
    text_lines devices;
    for (unsigned i = 1; i <= 8; i++)
        devices.push_back(vlans(100 + i, 200 + i));
    store_devices(devices);
    wan_write_mvlan_rule();
    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/eight_pairs.sh"));

    devices.push_back(vlans(109, 209));
    store_devices(devices);
    wan_write_mvlan_rule();
    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/eight_pairs.sh")) << "the ninth is left out";
}

TEST_F(multicast_vlan_test, numbers_are_read_as_far_as_they_go)
{
    store_devices({"\toption vid '100abc'\n\toption mvid ' 200'\n"});

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/one_pair.sh"));
}

TEST_F(multicast_vlan_test, without_a_pair_the_script_goes_and_the_mapping_is_cleared_at_once)
{
    const text_lines no_pairs[] = {{}, {"\toption vid '100'\n"}, {"\toption mvid '200'\n"}};
    for (const text_lines &devices : no_pairs) {
        SCOPED_TRACE(devices.empty() ? "no device" : devices[0]);
        store_devices(devices);
        gateway.write_file(mvlan_rule_path, "#!/bin/sh\n>/tmp/ran\n", 0755);
        gateway.clear_commands();

        wan_write_mvlan_rule();

        EXPECT_FALSE(gateway.exists(mvlan_rule_path));
        EXPECT_FALSE(gateway.exists("/tmp/ran"));
        EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
    }
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(multicast_vlan_test, a_configuration_without_sections_clears_the_mapping)
{
    gateway.set_config("network", "");

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
    EXPECT_TRUE(gateway.log().empty()) << "there was no script to delete";
}

TEST_F(multicast_vlan_test, without_a_configuration_nothing_changes)
{
    gateway.remove("/etc/config/network");
    gateway.write_file(mvlan_rule_path, "old", 0755);

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.file(mvlan_rule_path), "old");
    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(multicast_vlan_test, the_script_tells_the_control_program)
{
    store_devices({vlans(100, 200), vlans(101, 201)});
    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.run_script(mvlan_rule_path).status, 0);

    EXPECT_EQ(
        gateway.commands(),
        (text_lines{"/userfs/bin/xponigmpcmd clearAll", "/userfs/bin/xponigmpcmd port index 1",
                    "/userfs/bin/xponigmpcmd port downtagctl 4", "/userfs/bin/xponigmpcmd port uptci 200",
                    "/userfs/bin/xponigmpcmd port downtci 100", "/userfs/bin/xponigmpcmd port index 2",
                    "/userfs/bin/xponigmpcmd port downtagctl 4", "/userfs/bin/xponigmpcmd port uptci 201",
                    "/userfs/bin/xponigmpcmd port downtci 101"}));
}

TEST_F(multicast_vlan_test, a_script_that_cannot_be_written_is_logged)
{
    store_devices({vlans(100, 200)});
    small_disk disk("/etc/korvel");
    const text_lines complaint = {"Failed to generate mvlan rule: /etc/korvel/rule_mvlan.sh"};

    disk.fill();
    wan_write_mvlan_rule();
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "full";
    disk.empty_again();
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});

    gateway.clear_log();
    disk.make_read_only();
    wan_write_mvlan_rule();
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "read-only";
}

TEST_F(multicast_vlan_test, a_script_that_cannot_be_deleted_is_logged_and_the_mapping_cleared)
{
    gateway.write_file(mvlan_rule_path, "old", 0755);
    small_disk disk("/etc/korvel");
    disk.make_read_only();

    wan_write_mvlan_rule();

    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to delete mvlan rule: /etc/korvel/rule_mvlan.sh"});
    EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
}

} // namespace
