// The script of a bridged WAN: written, replaced, taken back.
#include "rules/bridge_rule.h"

#include "support/code_test.h"
#include "support/small_disk.h"

namespace {

constexpr char wan_3_path[] = "/etc/korvel/rule_wan_3.sh";

class bridge_rule_test : public code_test {
protected:
    bridge_rule_test() { gateway.set_ports({.lan = 4}); }

    static void write(const wan_config &wan)
    {
        const wan_rule_ctx ctx = rule_ctx(wan);
        wan_write_bridge_rule(&ctx);
    }

    // A line of the script that begins with `start`; the last one.
    std::string line(const std::string &path, const std::string &start) const
    {
        const std::string text = gateway.file(path);
        const size_t at = text.rfind("\n" + start) + 1;
        return text.substr(at, text.find('\n', at) - at);
    }
};

TEST_F(bridge_rule_test, unbound_ports_are_cut_off_from_a_tagged_wan)
{
    write(bridged_wan(3, "1010", {.vid = 100}));

    EXPECT_EQ(gateway.file(wan_3_path), golden("bridge_rule/tagged_two_of_four.sh"));
    EXPECT_EQ(gateway.mode(wan_3_path), 0755U);
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_3.sh"});
    EXPECT_EQ(gateway.commands(), text_lines{}) << "writing a script never runs it";
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(bridge_rule_test, an_untagged_wan_of_every_port_has_nobody_to_cut_off)
{
    gateway.set_ports({.lan = 2});

    write(bridged_wan(1, "11"));

    EXPECT_EQ(gateway.file("/etc/korvel/rule_wan_1.sh"), golden("bridge_rule/untagged_every_port.sh"));
}

TEST_F(bridge_rule_test, dhcp_is_kept_from_the_bound_ports_where_asked)
{
    gateway.set_ports({.lan = 4, .wlan_2g = 2, .wlan_5g = 2});

    write(bridged_wan(20, "10000100", {.vid = 4094, .disable_lan_dhcp = 1}));

    EXPECT_EQ(gateway.file("/etc/korvel/rule_wan_20.sh"), golden("bridge_rule/dhcp_blocked.sh"));
}

TEST_F(bridge_rule_test, an_uplink_that_a_shell_could_take_for_more_gets_no_script)
{
    constexpr struct {
        const char *uplink;
        uint16_t vid;
        const char *device;
    } cases[] = {{"$(reboot)", 100, "$(reboot)10"},
                 {"a\";x;\"", 0, "a\";x;\""},
                 {"p+n", 7, "p+n.7"},
                 {"a b", 0, "a b"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.device);
        set_uplink(row.uplink);
        gateway.clear_log();

        write(bridged_wan(3, "1010", {.vid = row.vid}));

        EXPECT_FALSE(gateway.exists(wan_3_path));
        EXPECT_EQ(gateway.log_texts(LOG_ERR),
                  text_lines{std::string("Left out of /etc/korvel/rule_wan_3.sh, not a device's name: ") +
                             row.device});
    }
}

TEST_F(bridge_rule_test, the_device_follows_the_uplink_and_the_tag)
{
    struct {
        const char *uplink;
        uint16_t vid;
        const char *line;
    } const cases[] = {
        {"pon", 100, R"(INTERFACE_WAN="pon.100")"},
        {"pon", 0, R"(INTERFACE_WAN="pon")"},
        {"eth0.3", 1, R"(INTERFACE_WAN="eth0.3.1")"},
        {"uplink90", 65, R"(INTERFACE_WAN="uplink90.65")"},    // 11 characters
        {"uplink90", 655, R"(INTERFACE_WAN="uplink90.65")"},   // 12, cut at 11
        {"uplink90", 4094, R"(INTERFACE_WAN="uplink90.40")"},  // 13
        {"uplink900", 12, R"(INTERFACE_WAN="uplink90012")"},   // no room for the point
        {"uplink90012", 0, R"(INTERFACE_WAN="uplink90012")"},  // 11
        {"uplink900123", 0, R"(INTERFACE_WAN="uplink90012")"}, // 12
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.uplink) + " " + std::to_string(row.vid));
        set_uplink(row.uplink);

        write(bridged_wan(3, "1010", {.vid = row.vid}));

        EXPECT_EQ(line(wan_3_path, "INTERFACE_WAN="), row.line);
    }
}

TEST_F(bridge_rule_test, the_mark_is_the_wans_own)
{
    set_ids({1, 2, 25});
    struct {
        uint8_t wan;
        const char *line;
    } const cases[] = {
        {1, "FWMARK=4096"}, {20, "FWMARK=2147483648"}, {21, "FWMARK=16384"}, {25, "FWMARK=16384"}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.line);
        write(bridged_wan(row.wan, "1000"));

        EXPECT_EQ(line("/etc/korvel/rule_wan_" + std::to_string(row.wan) + ".sh", "FWMARK="), row.line);
    }
}

TEST_F(bridge_rule_test, a_new_script_replaces_the_old_one_whole)
{
    gateway.write_file(wan_3_path, std::string(100000, '#'), 0600);

    write(bridged_wan(3, "1010", {.vid = 100}));

    EXPECT_EQ(gateway.file(wan_3_path), golden("bridge_rule/tagged_two_of_four.sh"));
    EXPECT_EQ(gateway.mode(wan_3_path), 0755U);
}

TEST_F(bridge_rule_test, a_script_that_cannot_be_written_is_logged)
{
    const text_lines complaint = {"Failed to generate wan_3 bridge rule: /etc/korvel/rule_wan_3.sh"};
    gateway.write_file(wan_3_path, "old", 0755);
    small_disk disk("/etc/korvel");

    disk.fill();
    write(bridged_wan(3, "1010", {.vid = 100}));
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "full";
    disk.empty_again();
    EXPECT_EQ(gateway.file(wan_3_path), "old");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_3.sh"}) << "no half of a script";

    gateway.clear_log();
    disk.make_read_only();
    write(bridged_wan(3, "1010", {.vid = 100}));
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "read-only";
    EXPECT_EQ(gateway.file(wan_3_path), "old");
}

TEST_F(bridge_rule_test, removal_runs_the_script_with_r_and_deletes_it)
{
    gateway.write_file(wan_3_path, "#!/bin/sh\necho \"$# $*\" >>/tmp/ran\n", 0755);

    wan_remove_bridge_rule(3);

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_FALSE(gateway.exists(wan_3_path));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(bridge_rule_test, removal_does_not_look_at_the_scripts_exit_status)
{
    gateway.write_file(wan_3_path, "#!/bin/sh\nexit 7\n", 0755);

    wan_remove_bridge_rule(3);

    EXPECT_FALSE(gateway.exists(wan_3_path));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(bridge_rule_test, removing_a_script_that_is_not_there_runs_and_logs_nothing)
{
    gateway.write_file("/etc/korvel/rule_wan_33.sh", "#!/bin/sh\n>/tmp/ran\n", 0755);

    wan_remove_bridge_rule(3);

    EXPECT_FALSE(gateway.exists("/tmp/ran"));
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_33.sh"));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(bridge_rule_test, a_script_that_cannot_be_deleted_is_run_all_the_same_and_logged)
{
    gateway.write_file(wan_3_path, "#!/bin/sh\n>/tmp/ran\n", 0755);
    small_disk disk("/etc/korvel");
    disk.make_read_only();

    wan_remove_bridge_rule(3);

    EXPECT_TRUE(gateway.exists("/tmp/ran"));
    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to delete wan_3 bridge rule: /etc/korvel/rule_wan_3.sh"});
}

} // namespace
