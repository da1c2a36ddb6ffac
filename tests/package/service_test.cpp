// The init script: what the service manager starts, when, and what becomes of it.
#include "support/daemon_test.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sys/resource.h>

namespace {

constexpr std::chrono::seconds respawn_deadline{30};
constexpr char script[] = "/etc/init.d/korvel";
constexpr char pid_file[] = "/gateway/procd/korvel/instance1/pid";

class service_test : public daemon_test {
protected:
    service_test()
    {
        gateway.set_ports({.lan = 4});
        gateway.install_package();
    }
    ~service_test() override { (void)run_program({script, "stop"}); }

    void start() { ASSERT_EQ(0, run_program({script, "start"}).status); }

    // The process that the service manager has started; 0 when there is none.
    pid_t process() const { return gateway.exists(pid_file) ? std::stoi("0" + gateway.file(pid_file)) : 0; }

    // Whether that process is the daemon by now, and not what waits for the bus.
    bool is_daemon() const
    {
        const std::string path = "/proc/" + std::to_string(process()) + "/cmdline";
        return gateway.exists(path) && gateway.file(path) == std::string("korvel\0-d\0", 10);
    }

    bool serves(std::chrono::milliseconds deadline = default_deadline) const
    {
        return wait_until([this] { return is_daemon() && gateway.object_exists("korvel"); }, deadline);
    }

    bool is_logged(const std::string &text) const
    {
        const std::vector<log_entry> log = gateway.log();
        return std::any_of(log.begin(), log.end(),
                           [&](const log_entry &entry) { return entry.text == text; });
    }

    // Neither the daemon nor what waits for the bus or for the daemon's object.
    void expect_nothing_runs() const
    {
        EXPECT_EQ("", run_program({"pgrep", "-x", "korvel"}).output);
        EXPECT_TRUE(wait_until([] { return run_program({"pgrep", "-f", "run-daemon"}).output.empty(); }));
    }

    void store_bridged_wan() { gateway.store_wan(bridged_wan(1, "1010", {.vid = 100})); }
    bool rules_come(std::chrono::milliseconds deadline = default_deadline) const
    {
        return wait_until(
            [this] {
                const text_lines rules = gateway.ip_rules();
                return std::count(rules.begin(), rules.end(),
                                  "32765: from all fwmark 0x1000/0x1000 prohibit") == 1;
            },
            deadline);
    }
};

TEST_F(service_test, the_daemon_serves_after_a_start)
{
    gateway.start_netd();

    start();

    EXPECT_TRUE(serves());
}

TEST_F(service_test, what_the_daemon_starts_finds_the_package_s_ebtables)
{
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());

    const std::string variables = gateway.file("/proc/" + std::to_string(process()) + "/environ");

    EXPECT_NE(std::string::npos, variables.find("PATH=/usr/libexec/korvel/bin:"));
}

TEST_F(service_test, it_starts_behind_the_network_daemon)
{
    const std::string text = gateway.file(script);
    const size_t place = text.find("\nSTART=");

    ASSERT_NE(std::string::npos, place);
    EXPECT_LT(20, std::stoi(text.substr(place + strlen("\nSTART="))));
}

TEST_F(service_test, the_bus_is_waited_for_before_the_daemon_starts)
{
    start();
    ASSERT_TRUE(wait_until([this] { return is_logged("Waiting for the bus"); }));
    EXPECT_FALSE(is_daemon());

    gateway.start_netd();

    EXPECT_TRUE(serves());
}

TEST_F(service_test, the_network_daemon_and_the_board_s_description_are_waited_for)
{
    store_bridged_wan();
    gateway.start_bus();
    start();
    ASSERT_TRUE(wait_until([this] { return process() != 0; }));
    ASSERT_EQ(7, run_program({"ubus", "-t", "1", "wait_for", "korvel"}).status);
    EXPECT_FALSE(is_daemon());

    gateway.start_netd();

    EXPECT_TRUE(serves());
    // Asked before, the board would have told of no ports, and the script would bind none.
    EXPECT_NE(std::string::npos,
              gateway.file("/etc/korvel/rule_wan_1.sh").find("for i in eth0.1 eth0.3; do"));
}

TEST_F(service_test, what_does_not_come_to_the_bus_is_done_without_in_the_end)
{
    gateway.start_bus();

    const child_process daemon({"/usr/libexec/korvel/run-daemon", "-t", "1"});

    EXPECT_TRUE(wait_until([this] { return gateway.object_exists("korvel"); }));
    EXPECT_EQ((text_lines{"network is not on the bus after 1 seconds, starting without it",
                          "boardinfo is not on the bus after 1 seconds, starting without it"}),
              gateway.log_texts(LOG_WARNING));
}

TEST_F(service_test, what_the_start_up_has_written_is_brought_into_the_kernel)
{
    store_bridged_wan();
    gateway.start_netd();

    start();

    EXPECT_TRUE(rules_come());
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_1.sh"));
}

TEST_F(service_test, a_daemon_that_ended_comes_back_with_the_rules)
{
    store_bridged_wan();
    gateway.start_netd();
    start();
    ASSERT_TRUE(rules_come());
    const pid_t first = process();
    (void)gateway.run_script("/etc/korvel/rule_wan_1.sh", {"-r"});
    ASSERT_FALSE(rules_come(std::chrono::milliseconds(0)));
    gateway.remove("/etc/korvel/rule_wan_1.sh");

    ASSERT_EQ(0, kill(first, SIGKILL));

    ASSERT_TRUE(wait_until([&] { return process() != 0 && process() != first; }, respawn_deadline));
    EXPECT_TRUE(serves());
    EXPECT_TRUE(rules_come());
}

TEST_F(service_test, a_stop_ends_it_cleanly_and_for_good)
{
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());
    const pid_t daemon = process();

    EXPECT_EQ(0, run_program({script, "stop"}).status);

    EXPECT_NE(0, kill(daemon, 0));
    EXPECT_TRUE(is_logged("Receive stop signal: 15"));
    expect_nothing_runs();
}

TEST_F(service_test, a_stop_ends_one_that_waits_for_the_bus)
{
    start();
    ASSERT_TRUE(wait_until([this] { return is_logged("Waiting for the bus"); }));

    EXPECT_EQ(0, run_program({script, "stop"}).status);
    gateway.start_netd();

    expect_nothing_runs();
}

TEST_F(service_test, a_restart_leaves_one_daemon)
{
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());
    const pid_t first = process();

    EXPECT_EQ(0, run_program({script, "restart"}).status);

    EXPECT_TRUE(wait_until([&] { return process() != first && is_daemon(); }));
    EXPECT_TRUE(serves());
    EXPECT_EQ(std::to_string(process()) + "\n", run_program({"pgrep", "-x", "korvel"}).output);
}

// A gateway of a release that ran no rules and kept no highest identifier, with its configuration and scripts
// kept.
TEST_F(service_test, an_upgraded_gateway_has_its_wans_with_their_rules)
{
    store_bridged_wan();
    gateway.store_wan(routed_dhcp(2, {.vid = 200}));
    gateway.start_netd();
    gateway.start_korvel(); // writes the scripts
    gateway.stop_korvel();
    gateway.uci_delete("firewall.korvel");
    gateway.uci_delete("network.korvel.maxWanId");

    gateway.install_package();
    start();

    ASSERT_TRUE(serves());
    EXPECT_TRUE(rules_come());
    EXPECT_EQ("2", gateway.uci_get("network.korvel.maxWanId").value_or("missing"));
    EXPECT_EQ(2U, gateway.call("all").json().size());
    EXPECT_EQ(0, gateway.call("del", R"({"wanId":1})").status);
    EXPECT_FALSE(rules_come(std::chrono::milliseconds(0)));
}

// The helper that waits for the daemon's object is not the daemon's child, which would never collect it.
TEST_F(service_test, the_daemon_has_no_dead_children)
{
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());

    EXPECT_TRUE(wait_until([this] {
        return run_program({"pgrep", "-P", std::to_string(process())}).output.empty() &&
               run_program({"pgrep", "-f", "run-daemon"}).output.empty();
    }));
}

TEST_F(service_test, it_leaves_no_core_with_passwords)
{
    rlimit allowed{};
    ASSERT_EQ(0, getrlimit(RLIMIT_CORE, &allowed));
    if (allowed.rlim_max == 0)
        GTEST_SKIP() << "this machine allows no cores anyway";
    allowed.rlim_cur = allowed.rlim_max;
    ASSERT_EQ(0, setrlimit(RLIMIT_CORE, &allowed));
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());

    std::ifstream limits("/proc/" + std::to_string(process()) + "/limits");
    std::string line;
    while (std::getline(limits, line) && !line.starts_with("Max core file size"))
        ;
    EXPECT_NE(std::string::npos, line.find(" 0 ")) << line;
}

TEST_F(service_test, what_it_prints_goes_to_the_system_log)
{
    gateway.fake_program("korvel", "echo printed; echo complained >&2; sleep 1000");
    gateway.start_netd();

    start();

    EXPECT_TRUE(wait_until([this] { return is_logged("printed") && is_logged("complained"); }));
}

TEST_F(service_test, the_wait_is_a_number)
{
    const program_result result = run_program({"/usr/libexec/korvel/run-daemon", "-t", "soon"});

    EXPECT_EQ(2, result.status);
    EXPECT_EQ("Usage: run-daemon [-t SECONDS]\n", result.errors);
}

TEST_F(service_test, a_change_on_trial_that_lost_its_guard_is_taken_back_at_the_start)
{
    silence_services();
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.start_netd();
    start();
    ASSERT_TRUE(serves());
    ASSERT_EQ(0, run_program({"korvelctl", "try", "600", "modify", "1", "--vlan", "101"}).status);
    ASSERT_EQ("101", *gateway.device_option(1, "vid"));
    EXPECT_EQ(0, run_program({script, "restart"}).status);
    EXPECT_EQ("101", *gateway.device_option(1, "vid")) << "while its guard lives it is the guard's";
    ASSERT_EQ(0, run_program({"pkill", "-KILL", "-x", "korvelctl"}).status);

    EXPECT_EQ(0, run_program({script, "restart"}).status);

    EXPECT_EQ("100", *gateway.device_option(1, "vid"));
    EXPECT_TRUE(serves());
    EXPECT_FALSE(gateway.exists("/etc/korvel/try.taken-back"));
}

} // namespace
