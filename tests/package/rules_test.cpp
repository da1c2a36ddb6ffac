// How the bridge, isolation and multicast-VLAN scripts get into the kernel: with what the package installs,
// the daemon and the network daemon as on a gateway.
#include "support/daemon_test.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

constexpr char apply_rules[] = "/usr/libexec/korvel/apply-rules";

size_t count_of(const text_lines &lines, const std::string &line)
{
    return static_cast<size_t>(std::count(lines.begin(), lines.end(), line));
}

class rules_test : public daemon_test {
protected:
    rules_test()
    {
        gateway.set_ports({.lan = 4});
        gateway.install_package();
    }

    // Without the network daemon's events, during which the scripts may run once more.
    void serve()
    {
        gateway.start_netd({.links = true});
        gateway.start_korvel();
    }

    // Adds WAN 1: bridged, VLAN 100, ports 1 and 3.
    void add_bridged(const char *bind = "1010", int vid = 100)
    {
        ASSERT_EQ(result_reply(0, 0, "korvel modify OK."),
                  gateway.call("add", R"({"wanMode":0,"ipProtocol":1,"vlanMode":true,"vid":)" +
                                          std::to_string(vid) + R"(,"mtu":1500,"service":3,"bind":")" + bind +
                                          "\"}"));
    }

    // Whether the rules of WAN 1 as added above are in the kernel, once each, and no others of a bridge.
    void expect_rules_of_ports_1_and_3() const
    {
        EXPECT_EQ(
            gateway.ebtables_rules(),
            (text_lines{"FORWARD -i eth0.4 -o pon.100 -j DROP", "FORWARD -i pon.100 -o eth0.4 -j DROP",
                        "FORWARD -i eth0.2 -o pon.100 -j DROP", "FORWARD -i pon.100 -o eth0.2 -j DROP"}));
        EXPECT_EQ(gateway.broute_rules(),
                  (text_lines{"BROUTING -i eth0.3 -j mark --mark-or 4096 --mark-target CONTINUE",
                              "BROUTING -i eth0.1 -j mark --mark-or 4096 --mark-target CONTINUE"}));
        EXPECT_EQ(1U, prohibited());
    }

    size_t prohibited() const
    {
        return count_of(gateway.ip_rules(), "32765: from all fwmark 0x1000/0x1000 prohibit");
    }

    void expect_no_rules() const
    {
        EXPECT_EQ(gateway.ebtables_rules(), text_lines{});
        EXPECT_EQ(gateway.broute_rules(), text_lines{});
        EXPECT_EQ(0U, prohibited());
    }

    void forget_policy_rules() const
    {
        while (run_program({"ip", "rule", "del", "from", "all", "fwmark", "0x1000/0x1000"}).status == 0)
            ;
    }

    // A script that notes its runs in /tmp/runs, "run" or "-r".
    void write_script(const std::string &name, const std::string &text)
    {
        gateway.write_file("/etc/korvel/" + name,
                           "#!/bin/sh\necho \"" + name + "${1:+ $1}\" >> /tmp/runs\n" + text + "\n", 0755);
    }
    std::string runs() const { return gateway.exists("/tmp/runs") ? gateway.file("/tmp/runs") : ""; }

    static program_result apply(const char *seconds = "20")
    {
        return run_program({apply_rules, "-t", seconds});
    }
};

TEST_F(rules_test, the_rules_are_in_force_when_the_reply_comes)
{
    serve();

    add_bridged();

    expect_rules_of_ports_1_and_3();
}

TEST_F(rules_test, the_firewall_of_the_generation_before_runs_them_too)
{
    gateway.write_file("/gateway/firewall", "3\n");
    serve();

    add_bridged();

    expect_rules_of_ports_1_and_3();
    gateway.remove("/gateway/firewall");
}

TEST_F(rules_test, a_modification_replaces_the_rules)
{
    serve();
    add_bridged("0101", 200);

    EXPECT_EQ(0, gateway
                     .call("modify", R"({"wanId":1,"wanMode":0,"ipProtocol":1,"vlanMode":true,"vid":100,)"
                                     R"("mtu":1500,"service":3,"bind":"1010"})")
                     .status);

    expect_rules_of_ports_1_and_3();
}

TEST_F(rules_test, a_deleted_wan_leaves_none)
{
    serve();
    add_bridged();

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));

    expect_no_rules();
}

TEST_F(rules_test, bridged_wans_are_isolated_from_each_other_and_after_a_deletion_no_more)
{
    serve();
    add_bridged("1010", 100);
    add_bridged("0101", 200);

    const text_lines rules = gateway.ebtables_rules();
    EXPECT_EQ(1U, count_of(rules, "FORWARD -i pon.100 -o pon.200 -j DROP"));
    EXPECT_EQ(1U, count_of(rules, "FORWARD -i pon.200 -o pon.100 -j DROP"));

    EXPECT_EQ(0, gateway.call("del", R"({"wanId":2})").status);
    expect_rules_of_ports_1_and_3();
}

TEST_F(rules_test, multicast_vlans_are_set_after_a_change)
{
    serve();

    EXPECT_EQ(0, gateway
                     .call("add", R"({"wanMode":0,"ipProtocol":1,"vlanMode":true,"vid":100,"mvid":101,)"
                                  R"("mtu":1500,"service":3,"bind":"1010"})")
                     .status);

    EXPECT_EQ(1U, count_of(gateway.commands(), "/userfs/bin/xponigmpcmd port uptci 101"));
}

// The network daemon forgets the policy rules when it starts.
TEST_F(rules_test, a_restarted_network_daemon_does_not_open_what_was_prohibited)
{
    serve();
    add_bridged();
    gateway.stop_netd();
    forget_policy_rules();
    ASSERT_EQ(0U, prohibited());

    gateway.start_netd({.links = true, .hotplug = true});
    gateway.settle_netd();

    expect_rules_of_ports_1_and_3();
}

TEST_F(rules_test, the_firewall_s_start_brings_the_rules_of_a_booting_gateway)
{
    write_script("rule_wan_1.sh", "");

    ASSERT_EQ(0, run_program({"/etc/init.d/firewall", "start"}).status);

    EXPECT_EQ("rule_wan_1.sh\n", runs());
}

TEST_F(rules_test, other_files_and_half_written_scripts_are_let_be)
{
    write_script(".rule_wan_1.sh.new", "");
    write_script("note", "");
    write_script("rule_wan_2.sh", "");

    EXPECT_EQ(0, apply().status);

    EXPECT_EQ("rule_wan_2.sh\n", runs());
}

TEST_F(rules_test, without_scripts_nothing_is_done)
{
    gateway.remove("/etc/korvel");

    EXPECT_EQ(0, apply().status);

    EXPECT_EQ(std::vector<log_entry>{}, gateway.log());
}

TEST_F(rules_test, a_script_that_hangs_is_left_behind_with_all_it_started)
{
    write_script("rule_wan_1.sh", "sh -c 'sleep 1000; :'; echo never >> /tmp/runs");
    write_script("rule_wan_2.sh", "");

    EXPECT_EQ(0, apply("1").status);

    EXPECT_EQ("rule_wan_1.sh\nrule_wan_2.sh\n", runs());
    EXPECT_NE(0, run_program({"pgrep", "-f", "sleep 1000"}).status);
    EXPECT_EQ((text_lines{"rule_wan_1.sh did not end within 1 seconds and is left behind"}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(rules_test, nothing_of_a_run_is_left_running)
{
    write_script("rule_wan_1.sh", "");

    EXPECT_EQ(0, apply("977").status);

    EXPECT_NE(0, run_program({"pgrep", "-f", "sleep 977"}).status);
}

TEST_F(rules_test, of_a_run_that_was_killed_nothing_kills_others_later)
{
    write_script("rule_wan_1.sh", "sleep 978");
    child_process run({apply_rules, "-t", "1"});
    ASSERT_TRUE(wait_until([] { return run_program({"pgrep", "-f", "sleep 978"}).status == 0; }));

    (void)run.stop(SIGKILL);

    EXPECT_TRUE(wait_until([] { return run_program({"pgrep", "-f", "apply-rules"}).output.empty(); }));
    EXPECT_EQ(0, run_program({"pgrep", "-f", "sleep 978"}).status);
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(rules_test, a_script_s_complaints_are_logged_but_for_rules_that_were_not_there)
{
    write_script("rule_wan_1.sh", "ip rule del from all fwmark 0x1000/0x1000 prohibit\n"
                                  "ebtables -t broute -D BROUTING -i eth0.1 -j DROP\n"
                                  "no-such-program -x");

    EXPECT_EQ(0, apply().status);

    const text_lines errors = gateway.log_texts(LOG_ERR);
    ASSERT_EQ(1U, errors.size());
    EXPECT_EQ(0U, errors[0].find("rule_wan_1.sh: "));
    EXPECT_NE(std::string::npos, errors[0].find("no-such-program: not found"));
}

TEST_F(rules_test, runs_wait_for_each_other)
{
    write_script("rule_wan_1.sh", "echo begin >> /tmp/runs; sleep 0.2; echo end >> /tmp/runs");
    std::vector<child_process> together;
    for (int i = 0; i < 4; i++)
        together.emplace_back(program_arguments{apply_rules});

    for (child_process &run : together)
        EXPECT_EQ(0, run.wait());

    std::string expected;
    for (int i = 0; i < 4; i++)
        expected += "rule_wan_1.sh\nbegin\nend\n";
    EXPECT_EQ(expected, runs());
}

TEST_F(rules_test, what_a_script_has_left_running_does_not_hold_up_the_next_run)
{
    write_script("rule_wan_1.sh", "(sleep 1000 &)");
    EXPECT_EQ(0, apply().status);
    ASSERT_EQ(0, run_program({"pgrep", "-f", "sleep 1000"}).status);

    child_process run({apply_rules});

    EXPECT_EQ(0, run.wait());
}

// What waits until /tmp/go is there, unless it is asked to take its rules back.
constexpr char held[] = "[ \"$1\" = -r ] || while [ ! -e /tmp/go ]; do sleep 0.02; done";

TEST_F(rules_test, a_script_deleted_while_it_runs_is_taken_back)
{
    write_script("rule_wan_1.sh", held);
    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([this] { return !runs().empty(); }));

    gateway.remove("/etc/korvel/rule_wan_1.sh");
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(0, run.wait());
    EXPECT_EQ("rule_wan_1.sh\nrule_wan_1.sh -r\n", runs());
}

TEST_F(rules_test, a_script_replaced_while_it_runs_is_taken_back_and_the_new_one_runs)
{
    write_script("rule_wan_1.sh", held);
    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([this] { return !runs().empty(); }));

    write_script("rule_wan_1.sh", "echo new >> /tmp/runs");
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(0, run.wait());
    EXPECT_EQ("rule_wan_1.sh\nrule_wan_1.sh -r\nrule_wan_1.sh\nnew\n", runs());
}

// It knows no -r and would set what it sets once more.
TEST_F(rules_test, multicast_vlans_deleted_meanwhile_are_cleared)
{
    write_script("rule_mvlan.sh", held);
    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([this] { return !runs().empty(); }));

    gateway.remove("/etc/korvel/rule_mvlan.sh");
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(0, run.wait());
    EXPECT_EQ("rule_mvlan.sh\n", runs());
    EXPECT_EQ((text_lines{"/userfs/bin/xponigmpcmd clearAll"}), gateway.commands());
}

TEST_F(rules_test, scripts_that_never_stay_as_they_are_do_not_hold_it_forever)
{
    write_script("rule_wan_1.sh", "[ \"$1\" = -r ] || echo : >> /etc/korvel/rule_wan_1.sh");

    EXPECT_EQ(1, apply().status);

    EXPECT_EQ((text_lines{"the scripts in /etc/korvel kept changing and are not all in force"}),
              gateway.log_texts(LOG_ERR));
}

// Two programs that change the bridge's tables at the same moment: the kernel refuses one of them.
TEST_F(rules_test, a_script_that_met_another_ebtables_is_taken_back_twice_and_run_again)
{
    write_script("rule_wan_1.sh", "ebtables -D FORWARD -i a -o b -j DROP");
    gateway.fake_program("ebtables",
                         "[ ! -e /tmp/met ] || exit 0\ntouch /tmp/met\n"
                         "echo '1. Multiple ebtables programs were executing simultaneously.' >&2; exit 255");

    EXPECT_EQ(0, apply().status);

    EXPECT_EQ("rule_wan_1.sh\nrule_wan_1.sh -r\nrule_wan_1.sh -r\nrule_wan_1.sh\n", runs());
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

// Starts the scripts of an event of wan_1, as the network daemon does.
child_process wan_event()
{
    return child_process({"hotplug-call", "iface"}, {{"ACTION", "ifup"}, {"INTERFACE", "wan_1"}});
}

TEST_F(rules_test, while_a_routed_wan_s_script_runs_the_others_wait)
{
    write_script("rule_wan_2.sh", "");
    gateway.write_file("/etc/hotplug.d/iface/99-wan_1",
                       "echo begin >> /tmp/runs; sleep 0.5; echo end >> /tmp/runs\n");
    child_process event = wan_event();
    ASSERT_TRUE(wait_until([this] { return runs() == "begin\n"; }));

    EXPECT_EQ(0, apply().status);

    EXPECT_EQ(0, event.wait());
    EXPECT_EQ("begin\nend\nrule_wan_2.sh\n", runs());
}

TEST_F(rules_test, a_routed_wan_s_script_waits_for_the_others)
{
    write_script("rule_wan_2.sh", std::string(held) + "; echo end >> /tmp/runs");
    gateway.write_file("/etc/hotplug.d/iface/99-wan_1", "echo event >> /tmp/runs\n");
    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([this] { return !runs().empty(); }));

    child_process event = wan_event();
    ASSERT_TRUE(wait_until([] { return run_program({"pgrep", "-f", "hold-rules"}).status == 0; }));
    gateway.write_file("/tmp/go", "");

    EXPECT_EQ(0, run.wait());
    EXPECT_EQ(0, event.wait());
    EXPECT_EQ("rule_wan_2.sh\nend\nevent\n", runs());
}

TEST_F(rules_test, a_routed_wan_s_script_that_hangs_does_not_hold_the_others_forever)
{
    const child_process hanging({"sleep", "1000"});

    EXPECT_EQ(
        0, run_program({"/usr/libexec/korvel/hold-rules", "-t", "1", std::to_string(hanging.pid())}).status);

    child_process run({apply_rules});
    EXPECT_EQ(0, run.wait());
}

// A script that the daemon takes back, as the daemon runs it. It notes its begin behind its first command for
// the bridge, and its end.
class taking_back_test : public rules_test {
protected:
    static constexpr char own_path[] = "/usr/libexec/korvel/bin";

    void write_taken_back(const std::string &path)
    {
        gateway.write_file(path,
                           "#!/bin/sh\nebtables -D FORWARD -i a -o b -j DROP\necho begin >> /tmp/runs\n"
                           "while [ ! -e /tmp/go ]; do sleep 0.02; done\n"
                           "ebtables -D FORWARD -i b -o a -j DROP\necho end >> /tmp/runs\n",
                           0755);
    }
    static child_process take_back(const std::string &path)
    {
        return child_process({path, "-r"}, {{"PATH", std::string(own_path) + ":" + getenv("PATH")}}, {},
                             "/dev/null");
    }
    bool begins()
    {
        return wait_until([this] { return runs().find("begin\n") != std::string::npos; });
    }
    void let_go() { gateway.write_file("/tmp/go", ""); }
};

TEST_F(taking_back_test, the_others_wait_until_the_script_has_ended)
{
    write_taken_back("/etc/korvel/rule_wan_1.sh");
    write_script("rule_wan_2.sh", "");
    child_process taking = take_back("/etc/korvel/rule_wan_1.sh");
    ASSERT_TRUE(begins());
    gateway.remove("/etc/korvel/rule_wan_1.sh");

    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([] { return run_program({"pgrep", "-x", "flock"}).status == 0; }));
    let_go();

    EXPECT_EQ(0, taking.wait());
    EXPECT_EQ(0, run.wait());
    EXPECT_EQ("begin\nend\nrule_wan_2.sh\n", runs());
}

TEST_F(taking_back_test, the_script_waits_for_the_others)
{
    write_taken_back("/etc/hotplug.d/iface/99-wan_1");
    write_script("rule_wan_2.sh", std::string(held) + "; echo applied >> /tmp/runs");
    child_process run({apply_rules});
    ASSERT_TRUE(wait_until([this] { return !runs().empty(); }));

    child_process taking = take_back("/etc/hotplug.d/iface/99-wan_1");
    ASSERT_TRUE(wait_until([] { return run_program({"pgrep", "-f", "hold-rules"}).status == 0; }));
    let_go();

    EXPECT_EQ(0, run.wait());
    EXPECT_EQ(0, taking.wait());
    EXPECT_EQ("rule_wan_2.sh\napplied\nbegin\nend\n", runs());
}

TEST_F(taking_back_test, other_programs_of_the_daemon_s_do_not_wait)
{
    write_taken_back("/tmp/service");
    child_process hanging({"sleep", "1000"});
    ASSERT_EQ(0, run_program({"/usr/libexec/korvel/hold-rules", std::to_string(hanging.pid())}).status);

    // Who asked for it was not kept waiting by its output.
    ASSERT_TRUE(gateway.exists("/var/run/korvel/holder"));

    child_process service = take_back("/tmp/service");

    EXPECT_TRUE(begins());
    let_go();
    EXPECT_EQ(0, service.wait());
}

TEST_F(rules_test, the_holder_s_command_line_is_checked)
{
    for (const program_arguments &words :
         std::vector<program_arguments>{{}, {"-t", "1"}, {"1", "2"}, {"all"}, {"-x", "1"}}) {
        program_arguments arguments{"/usr/libexec/korvel/hold-rules"};
        arguments.insert(arguments.end(), words.begin(), words.end());
        const program_result result = run_program(arguments);
        EXPECT_EQ(2, result.status);
        EXPECT_NE(std::string::npos, result.errors.find("Usage: hold-rules [-t SECONDS] PROCESS\n"));
    }
}

TEST_F(rules_test, its_command_line_is_checked)
{
    for (const program_arguments &arguments :
         {program_arguments{apply_rules, "-t", "soon"}, {apply_rules, "-t", ""}, {apply_rules, "-x"}}) {
        SCOPED_TRACE(arguments.back());
        const program_result result = run_program(arguments);
        EXPECT_EQ(2, result.status);
        EXPECT_NE(std::string::npos, result.errors.find("Usage: apply-rules [-t SECONDS]\n"));
    }
}

} // namespace
