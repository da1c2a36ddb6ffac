// The script that keeps bridged WANs of one LAN bridge apart.
#include "rules/isolation.h"

#include "wan/wan_names.h"
#include "support/code_test.h"
#include "support/small_disk.h"

namespace {

class isolation_test : public code_test {
protected:
    // A LAN bridge with these ports.
    void store_bridge(const text_lines &ports)
    {
        std::string text = "config device\n\toption name 'br-lan'\n\toption type 'bridge'\n";
        for (const std::string &port : ports)
            text += "\tlist ports '" + port + "'\n";
        gateway.set_config("network", text + korvel_section);
    }

    // An older script, which notes how it is run.
    void leave_old_script()
    {
        gateway.write_file(isolate_rule_path, "#!/bin/sh\necho \"$# $*\" >>/tmp/ran\n", 0755);
    }

    static constexpr char korvel_section[] =
        "\nconfig korvel 'korvel'\n\toption maxWanId '0'\n\toption pon_adapt 'pon'\n";
};

TEST_F(isolation_test, every_ordered_pair_of_wan_devices_has_a_rule)
{
    struct {
        text_lines ports;
        const char *expected;
    } const cases[] = {
        {{"eth0.1", "pon.10", "pon.20"}, "isolate/two_devices.sh"},
        {{"pon.10", "eth0.1", "pon.20", "ra0", "pon.30"}, "isolate/three_devices.sh"},
        {{"pon.12345", "pon.123456", "pon.1234567"}, "isolate/long_names.sh"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.expected);
        store_bridge(row.ports);

        wan_write_isolate_rule();

        EXPECT_EQ(gateway.file(isolate_rule_path), golden(row.expected));
        EXPECT_EQ(gateway.mode(isolate_rule_path), 0755U);
    }
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"rule_wan_isolate.sh"});
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(isolation_test, a_ninth_device_is_only_the_other_side_of_a_pair)
{
    text_lines ports = {"eth0.1"};
    for (int i = 1; i <= 9; i++)
        ports.push_back("pon." + std::to_string(i));
    store_bridge(ports);

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/nine_devices.sh"));
}

TEST_F(isolation_test, the_prefix_may_stand_anywhere_in_a_ports_name)
{
    store_bridge({"xpon.10", "pon", "ponx20", "pon.20"});

    wan_write_isolate_rule();

    const std::string script = gateway.file(isolate_rule_path);
    EXPECT_NE(script.find(R"(-I FORWARD -i "xpon.10" -o "pon.20")"), std::string::npos);
    EXPECT_EQ(script.find(R"("pon")"), std::string::npos);
    EXPECT_EQ(script.find("ponx20"), std::string::npos);
}

TEST_F(isolation_test, names_that_a_shell_could_take_for_more_are_left_out)
{
    const text_lines odd = {"pon.1$(reboot)", "pon.2`x`", "pon.3\"", "pon.4;x", "pon.5 x",
                            "pon.6\\",        "pon.7&",   "pon.8|x", "pon.9+",  "pon.\xc3\xa9"};
    text_lines ports = odd;
    ports.insert(ports.begin(), {"eth0.1", "$(eth0)", "pon.10"});
    ports.push_back("pon.20");
    store_bridge(ports);

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
    text_lines complaints;
    for (const std::string &name : odd)
        complaints.push_back("Left out of /etc/korvel/rule_wan_isolate.sh, not a device's name: " +
                             (name == odd.back() ? "pon.??" : name));
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaints);
}

TEST_F(isolation_test, names_of_letters_digits_and_five_signs_stay)
{
    store_bridge({"aA_zZ:09@pon.-", "pon.20"});

    wan_write_isolate_rule();

    EXPECT_NE(gateway.file(isolate_rule_path).find(R"(-i "pon.20" -o "aA_zZ:09@pon.-")"), std::string::npos);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(isolation_test, writing_takes_back_the_old_scripts_rules_but_does_not_run_the_new_one)
{
    store_bridge({"pon.10", "pon.20"});
    leave_old_script();

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(isolation_test, with_fewer_than_two_wan_devices_the_old_script_goes_and_none_comes)
{
    for (const text_lines &ports : {text_lines{"eth0.1", "pon.10"}, text_lines{"eth0.1", "ra0"}}) {
        SCOPED_TRACE(ports.back());
        gateway.remove("/tmp/ran");
        store_bridge(ports);
        leave_old_script();

        wan_write_isolate_rule();

        EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
        EXPECT_FALSE(gateway.exists(isolate_rule_path));
    }
    EXPECT_TRUE(gateway.log().empty());
}

// A list that lost its last value is there, empty, until somebody commits the change.
TEST_F(isolation_test, an_emptied_list_of_ports_takes_the_script_away)
{
    store_bridge({"pon.10"});
    ASSERT_EQ(run_program({"uci", "del_list", "network.@device[0].ports=pon.10"}).status, 0);
    leave_old_script();

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_FALSE(gateway.exists(isolate_rule_path));
}

TEST_F(isolation_test, without_a_list_of_ports_the_script_is_left_alone)
{
    const std::string no_list = std::string("config device\n\toption name 'br-lan'\n") + korvel_section;
    const std::string plain =
        std::string("config device\n\toption name 'br-lan'\n\toption ports 'pon.1 pon.2'\n") + korvel_section;
    for (const std::string &config : {no_list, plain, std::string(), std::string("config\n")}) {
        SCOPED_TRACE(config);
        gateway.set_config("network", config);
        leave_old_script();
        const std::string before = gateway.file(isolate_rule_path);

        wan_write_isolate_rule();

        EXPECT_EQ(gateway.file(isolate_rule_path), before);
        EXPECT_FALSE(gateway.exists("/tmp/ran"));
    }
    gateway.remove("/etc/config/network");
    wan_write_isolate_rule();
    EXPECT_TRUE(gateway.exists(isolate_rule_path)) << "no configuration at all";
    EXPECT_FALSE(gateway.exists("/tmp/ran"));
}

TEST_F(isolation_test, only_the_first_device_is_the_bridge)
{
    gateway.set_config("network", "config globals 'g'\n\tlist ports 'pon.7'\n\tlist ports 'pon.8'\n"
                                  "\nconfig device\n\toption name 'pon.10'\n"
                                  "\nconfig device\n\tlist ports 'pon.10'\n\tlist ports 'pon.20'\n");

    wan_write_isolate_rule();

    EXPECT_FALSE(gateway.exists(isolate_rule_path));
}

TEST_F(isolation_test, without_any_device_the_last_section_stands_for_the_bridge)
{
    gateway.set_config("network", "config bridge 'a'\n\tlist ports 'pon.1'\n\tlist ports 'pon.2'\n"
                                  "\nconfig bridge 'b'\n\tlist ports 'pon.10'\n\tlist ports 'pon.20'\n");

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
}

TEST_F(isolation_test, the_uplinks_name_decides_what_a_wan_device_is)
{
    store_bridge({"pon.10", "pon.20", "nas0.10"});
    set_uplink("nas0");

    wan_write_isolate_rule();

    EXPECT_FALSE(gateway.exists(isolate_rule_path));
}

TEST_F(isolation_test, a_script_that_cannot_be_written_is_logged)
{
    store_bridge({"pon.10", "pon.20"});
    small_disk disk("/etc/korvel");
    const text_lines complaint = {"Failed to generate bridge isolate rule: /etc/korvel/rule_wan_isolate.sh"};

    disk.fill();
    wan_write_isolate_rule();
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "full";
    disk.empty_again();
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});

    gateway.clear_log();
    disk.make_read_only();
    wan_write_isolate_rule();
    EXPECT_EQ(gateway.log_texts(LOG_ERR), complaint) << "read-only";
}

TEST_F(isolation_test, a_script_that_cannot_be_deleted_is_run_all_the_same_and_logged)
{
    store_bridge({"pon.10"});
    leave_old_script();
    small_disk disk("/etc/korvel");
    disk.make_read_only();

    wan_write_isolate_rule();

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to delete bridge isolate rule: /etc/korvel/rule_wan_isolate.sh"});
}

TEST_F(isolation_test, removal_runs_the_script_with_r_and_deletes_it)
{
    leave_old_script();

    wan_remove_isolate_rule();
    wan_remove_isolate_rule(); // nothing left

    EXPECT_EQ(gateway.file("/tmp/ran"), "1 -r\n");
    EXPECT_FALSE(gateway.exists(isolate_rule_path));
    EXPECT_TRUE(gateway.log().empty());
}

} // namespace
