// The hotplug script of a routed WAN: written, replaced, taken back. What it does is tested where it runs.
#include "rules/route_rule.h"

#include "support/code_test.h"
#include "support/small_disk.h"

namespace {

constexpr char wan_3_path[] = "/etc/hotplug.d/iface/99-wan_3";

class route_rule_test : public code_test {
protected:
    route_rule_test() { gateway.set_ports({.lan = 4}); }

    static void write(const wan_config &wan)
    {
        const wan_rule_ctx ctx = rule_ctx(wan);
        wan_write_route_rule(&ctx);
    }
};

TEST_F(route_rule_test, the_script_names_the_wans_ports_mark_and_table)
{
    write(routed_dhcp(3, {.vid = 100, .bind = "1010"}));

    EXPECT_EQ(gateway.file(wan_3_path), golden("route_rule/two_ports.sh"));
    EXPECT_EQ(gateway.mode(wan_3_path), 0755U);
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{"99-wan_3"});
    EXPECT_EQ(gateway.commands(), text_lines{}) << "writing a script never runs it";
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(route_rule_test, a_wan_without_ports_has_an_empty_list)
{
    gateway.set_ports({.lan = 4, .wlan_2g = 2, .wlan_5g = 2});

    write(routed_dhcp(4, {.service = 4}));

    EXPECT_EQ(gateway.file("/etc/hotplug.d/iface/99-wan_4"), golden("route_rule/no_port.sh"));
}

TEST_F(route_rule_test, dhcp_blocking_and_service_are_passed_on)
{
    gateway.set_ports({.lan = 4, .lan_phy = 1, .wlan_2g = 2, .wlan_5g = 2});

    write(routed_dhcp(20, {.service = 2, .disable_lan_dhcp = 1, .bind = "000110001"}));

    EXPECT_EQ(gateway.file("/etc/hotplug.d/iface/99-wan_20"), golden("route_rule/dhcp_blocked.sh"));
}

TEST_F(route_rule_test, mark_and_table_follow_the_identifier)
{
    set_ids({1, 2, 25});
    struct {
        uint8_t wan;
        const char *mark, *table;
    } const cases[] = {
        {1, "\nFWMARK=4096\n", "\nLOOKUP=101\n"},        {3, "\nFWMARK=16384\n", "\nLOOKUP=103\n"},
        {20, "\nFWMARK=2147483648\n", "\nLOOKUP=120\n"}, {25, "\nFWMARK=16384\n", "\nLOOKUP=125\n"},
        {255, "\nFWMARK=16384\n", "\nLOOKUP=355\n"},
    };
    for (const auto &row : cases) {
        const std::string id = std::to_string(row.wan);
        SCOPED_TRACE(id);
        write(routed_dhcp(row.wan));

        const std::string script = gateway.file("/etc/hotplug.d/iface/99-wan_" + id);
        EXPECT_NE(script.find(row.mark), std::string::npos);
        EXPECT_NE(script.find(row.table), std::string::npos);
        EXPECT_NE(script.find("\nINTERFACE_WAN=\"wan_" + id + "\"\n"), std::string::npos);
    }
}

TEST_F(route_rule_test, a_script_that_cannot_be_written_is_logged)
{
    const text_lines complaint = {"Failed to generate wan_3 route rule: /etc/hotplug.d/iface/99-wan_3"};
    gateway.write_file(wan_3_path, "old", 0755);
    small_disk disk("/etc/hotplug.d/iface");

    disk.fill();
    write(routed_dhcp(3));
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "full";
    disk.empty_again();
    EXPECT_EQ(gateway.file(wan_3_path), "old");
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{"99-wan_3"})
        << "hotplug would run the half of a script";

    gateway.clear_log();
    disk.make_read_only();
    write(routed_dhcp(3));
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "read-only";
    EXPECT_EQ(gateway.file(wan_3_path), "old");
}

TEST_F(route_rule_test, removal_runs_the_script_with_r_and_deletes_it)
{
    gateway.write_file(wan_3_path, "#!/bin/sh\necho \"$# $*\" >>/tmp/ran\nexit 7\n", 0755);

    wan_remove_route_rule(3);

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_FALSE(gateway.exists(wan_3_path));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(route_rule_test, removing_a_script_that_is_not_there_runs_and_logs_nothing)
{
    gateway.write_file("/etc/hotplug.d/iface/99-wan_33", "#!/bin/sh\n>/tmp/ran\n", 0755);

    wan_remove_route_rule(3);

    EXPECT_FALSE(gateway.exists("/tmp/ran"));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(route_rule_test, a_script_that_cannot_be_deleted_is_run_all_the_same_and_logged)
{
    gateway.write_file(wan_3_path, "#!/bin/sh\n>/tmp/ran\n", 0755);
    small_disk disk("/etc/hotplug.d/iface");
    disk.make_read_only();

    wan_remove_route_rule(3);

    EXPECT_TRUE(gateway.exists("/tmp/ran"));
    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to delete wan_3 route rule: /etc/hotplug.d/iface/99-wan_3"});
}

} // namespace
