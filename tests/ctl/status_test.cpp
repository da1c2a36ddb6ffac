#include "ctl/ctl_test.h"

namespace {

class ctl_status_test : public ctl_test {
protected:
    // Three WANs, the first of them up with both protocols.
    void start_three()
    {
        gateway.store_wan(routed_pppoe(1, {.vid = 100, .ip_protocol = 3, .bind = "11000000"}));
        gateway.store_wan(routed_dhcp(2, {.vid = 200, .service = 2}));
        gateway.store_wan(bridged_wan(3, "00100000", {.vid = 300, .service = 3}));
        gateway.script_interface("wan_2", "absent");
        start();
        ASSERT_TRUE(wait_until([&] { return gateway.call("get", R"({"wanId":1})").at("statusV6") == true; }));
    }
    // How often the daemon has asked for an interface since the last time.
    size_t asked()
    {
        const size_t count = lines_of(gateway.file("/tmp/asked")).size();
        gateway.write_file("/tmp/asked", "");
        return count;
    }
};

TEST_F(ctl_status_test, shows_all_wans_in_eighty_columns)
{
    start_three();

    const program_result result = ctl({"status"});

    EXPECT_EQ(0, result.status) << result.errors;
    const text_lines lines = lines_of(result.output);
    ASSERT_LE(6U, lines.size()) << result.output;
    EXPECT_EQ(lines[0], "ID  NAME                  MODE   DEVICE      VLAN IPV4            IPV6 SINCE");
    EXPECT_TRUE(lines[1].starts_with("1   INTERNET_R            pppoe  pon.100     100  100.64."))
        << lines[1];
    EXPECT_NE(std::string::npos, lines[1].find(" up   ")) << lines[1];
    EXPECT_TRUE(lines[2].starts_with("    2001:db8:")) << lines[2];
    EXPECT_EQ(lines[3], "2   TR069_R               dhcp   pon.200     200  down            -    -");
    EXPECT_EQ(lines[4], "3   OTHER_B               bridge pon.300     300  -               -    -");
    EXPECT_EQ(lines.back(), "Down: WAN 2");
    for (const std::string &line : lines)
        EXPECT_GE(80U, line.size()) << line;
    EXPECT_TRUE(is_harmless(result.output)) << "colour is for terminals";
}

TEST_F(ctl_status_test, costs_one_call_of_all)
{
    start_three();
    const std::string real = lines_of(run_program({"sh", "-c", "command -v ubus"}).output).at(0);
    gateway.fake_program("ubus", "echo asked >> /tmp/asked\nexec " + real + " \"$@\"");
    (void)run_program({real, "call", "korvel", "all"});
    const size_t by_one_call = asked();

    (void)ctl({"status"});

    EXPECT_LT(0U, by_one_call);
    EXPECT_EQ(by_one_call, asked());
}

TEST_F(ctl_status_test, is_json_for_programs_without_the_password)
{
    start_three();

    const program_result result = ctl({"status", "--json"});

    const json_value reply = json_value::parse(result.output);
    EXPECT_EQ(reply.at("wans").size(), 3U);
    EXPECT_EQ(reply.at("wans").at(0).at("pppUser"), "user1");
    EXPECT_EQ(std::string::npos, result.output.find("secret1"));
    EXPECT_EQ(reply.at("wans").at(2).at("wanId"), 3);
    EXPECT_EQ(reply.at("down").at(0), 2);
}

TEST_F(ctl_status_test, shows_one_wan_in_words)
{
    start_three();

    const program_result result = ctl({"show", "1"});

    EXPECT_EQ(0, result.status) << result.errors;
    for (const char *const line :
         {"WAN 1\n", "Mode:              PPPoE, IPv4 and IPv6\n", "Service:           internet\n",
          "VLAN:              100, priority 0\n", "Ports bound:       lan1,lan2\n",
          "User:              user1\n", "Password:          ........\n", "Dialled:           always on\n"})
        EXPECT_NE(std::string::npos, result.output.find(line)) << line << "\nis not in\n" << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("secret1"));
    EXPECT_NE(std::string::npos, ctl({"show", "1", "--secrets"}).output.find("Password:          secret1\n"));
    EXPECT_EQ(std::string::npos, ctl({"show", "1", "--json"}).output.find("secret1"));
    EXPECT_EQ(ctl_json({"show", "1", "--secrets"}).at("pppPwd"), "secret1");
}

TEST_F(ctl_status_test, hostile_values_cannot_move_the_terminal)
{
    wan_config hostile = routed_pppoe(1, {.vid = 100});
    text_ref(hostile.pppUser)
        .set("\033]0;x\a\033[2J\xc2\x9b"
             "5n\nWAN 9");
    gateway.store_wan(hostile);
    std::string network = gateway.config("network");
    const std::string name = "1_INTERNET_R_VID_100";
    network.replace(network.find(name), name.size(), "1_\033[31m\nDown: WAN 7");
    gateway.set_config("network", network);
    start();

    for (const program_arguments &words : {program_arguments{"status"},
                                           {"show", "1"},
                                           {"show", "1", "--secrets"},
                                           {"status", "--json"},
                                           {"show", "1", "--json"},
                                           {"show", "\033[2J"}}) {
        const program_result result = ctl(words);
        EXPECT_TRUE(is_harmless(result.output)) << result.output;
        EXPECT_TRUE(is_harmless(result.errors)) << result.errors;
    }
    const std::string table = ctl({"status"}).output;
    EXPECT_NE(std::string::npos, table.find("\n1   \\x1b[31m\\nDown: WAN 7 pppoe  ")) << table;
    EXPECT_NE(std::string::npos,
              ctl({"show", "1"}).output.find("\\x1b]0;x\\x07\\x1b[2J\\xc2\\x9b5n\\nWAN 9"));
    EXPECT_EQ(ctl_json({"show", "1"}).at("pppUser"), "\033]0;x\a\033[2J\xc2\x9b"
                                                     "5n\nWAN 9");
}

TEST_F(ctl_status_test, each_failure_has_its_status)
{
    EXPECT_EQ(code(exit_status::no_daemon), ctl({"status"}).status) << "no bus";
    gateway.start_netd();
    EXPECT_EQ(code(exit_status::no_daemon), ctl({"status"}).status) << "no daemon";
    gateway.start_korvel();
    EXPECT_EQ(code(exit_status::done), ctl({"status"}).status);
    EXPECT_EQ(code(exit_status::no_such), ctl({"show", "7"}).status);
    for (const program_arguments &wrong : {program_arguments{},
                                           {"shew"},
                                           {"status", "1"},
                                           {"status", "--all"},
                                           {"show"},
                                           {"show", "0"},
                                           {"show", "256"},
                                           {"show", "1", "2"},
                                           {"status", "--timeout"},
                                           {"status", "--timeout", "0"},
                                           {"status", "--watch=1"}})
        EXPECT_EQ(code(exit_status::usage), ctl(wrong).status) << (wrong.empty() ? "" : wrong.back());
    const json_value failure = ctl_json({"show", "7"});
    EXPECT_EQ(failure.at("ok"), false);
    EXPECT_EQ(failure.at("exit"), code(exit_status::no_such));
}

TEST_F(ctl_status_test, a_daemon_that_does_not_answer_is_given_up)
{
    start();
    ASSERT_EQ(0, kill(gateway.korvel_pid(), SIGSTOP));

    const program_result result = ctl({"status", "--timeout", "1"});

    ASSERT_EQ(0, kill(gateway.korvel_pid(), SIGCONT));
    EXPECT_EQ(code(exit_status::no_answer), result.status) << result.errors;
}

TEST_F(ctl_status_test, help_and_version_ask_nobody)
{
    const program_result help = ctl({"--help"});
    EXPECT_EQ(0, help.status);
    EXPECT_NE(std::string::npos, help.output.find("  show ID [--secrets]"));
    EXPECT_NE(std::string::npos, help.output.find("   4  no such WAN"));
    EXPECT_EQ(0, ctl({"--version"}).output.find("korvelctl "));
}

TEST_F(ctl_status_test, watching_goes_on_through_a_bus_daemon_s_restart)
{
    start();
    const child_process watcher({"korvelctl", "status", "--watch"}, {}, "/tmp/watched",
                                "/tmp/watched-errors");
    const auto tables = [&] {
        const std::string text = gateway.file("/tmp/watched");
        size_t count = 0;
        for (size_t at = text.find("There are no WANs."); at != std::string::npos;
             at = text.find("There are no WANs.", at + 1))
            count++;
        return count;
    };
    ASSERT_TRUE(wait_until([&] { return tables() >= 1; }));
    gateway.stop_bus();
    ASSERT_TRUE(wait_until([&] { return gateway.file("/tmp/watched-errors") != ""; }));
    gateway.start_bus();
    (void)gateway.stop_korvel();
    gateway.start_korvel();
    const size_t before = tables();
    EXPECT_TRUE(wait_until([&] { return tables() > before; }));
}

} // namespace
