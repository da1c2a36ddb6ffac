// The private root: what is inside, what is kept from the machine, and how it ends.
#include "machine/inside.h"
#include "root/root_network.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/file.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using std::chrono::steady_clock;

bool wait_until(const std::function<bool()> &condition)
{
    const auto deadline = steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

class root_test : public testing::TestWithParam<rights> {
protected:
    void SetUp() override
    {
        if (const std::string missing = missing_for(GetParam()); !missing.empty())
            GTEST_SKIP() << missing;
        options_.network = false;
    }

    inside_result run(const std::string &command) const { return run_inside(options_, command, GetParam()); }

    private_root_options options_ = gateway_root_options();
};

INSTANTIATE_TEST_SUITE_P(rights, root_test, testing::Values(rights::own, rights::nobody),
                         testing::PrintToStringParamName());

TEST_P(root_test, the_command_s_end_is_the_result)
{
    struct {
        const char *command;
        int status;
    } const cases[] = {
        {"exit 0", 0},
        {"exit 7", 7},
        {"exit 255", 255},
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(example.command);
        EXPECT_EQ(example.status, run(example.command).status);
    }
}

TEST_P(root_test, the_command_is_root_but_not_process_1)
{
    EXPECT_EQ("0\n", run("id -u").output);
    EXPECT_NE("1\n", run("echo $$").output);
    EXPECT_EQ("gateway\n", run("hostname").output);
}

TEST_P(root_test, files_written_inside_do_not_reach_the_machine)
{
    const inside_result result =
        run("for directory in /etc /usr /var /opt /home /root /tmp /run /dev/shm; do"
            " echo x > $directory/private_root_probe || exit; done; cat /etc/private_root_probe");

    EXPECT_EQ("x\n", result.output);
    EXPECT_EQ(0, result.status);
    for (const char *directory :
         {"/etc", "/usr", "/var", "/opt", "/home", "/root", "/tmp", "/run", "/dev/shm"}) {
        SCOPED_TRACE(directory);
        std::error_code unreadable;
        EXPECT_FALSE(fs::exists(fs::path(directory) / "private_root_probe", unreadable));
    }
}

TEST_P(root_test, nothing_of_an_earlier_root_is_left)
{
    ASSERT_EQ(0, run("echo x > /etc/config/private_root_probe").status);

    EXPECT_EQ(1, run("[ -e /etc/config/private_root_probe ]").status);
}

TEST_P(root_test, passed_directories_are_the_machine_s)
{
    const scratch_directory written;
    const scratch_directory read;
    std::ofstream(read.path() + "/given") << "given\n";
    options_.passed.push_back({written.path(), true});
    options_.passed.push_back({read.path(), false});

    const inside_result result = run("cat " + read.path() + "/given && cp " + read.path() + "/given " +
                                     written.path() + "/copy && echo x > " + read.path() + "/refused");

    EXPECT_NE(std::string::npos, result.output.find("given\n")) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("Read-only file system")) << result.output;
    EXPECT_TRUE(fs::exists(written.path() + "/copy"));
    EXPECT_FALSE(fs::exists(read.path() + "/refused"));
}

TEST_P(root_test, the_gateway_s_files_lie_over_the_machine_s)
{
    // /lib is a symbolic link on many machines, so its files have to follow the link.
    EXPECT_EQ("", run("cmp /lib/functions/network.sh " KORVEL_ROOTFS "/lib/functions/network.sh").output);
    EXPECT_EQ("", run("cmp /etc/config/network " KORVEL_ROOTFS "/etc/config/network").output);
    EXPECT_EQ(0, run("[ -x /etc/init.d/network ] && [ -d /etc/korvel ] && [ -e /etc/passwd ]").status);
    EXPECT_EQ("0\n", run("ls -A /etc/korvel | wc -l").output);
}

TEST_P(root_test, sh_is_the_router_s)
{
    EXPECT_NE(std::string::npos, run("readlink -f /proc/$$/exe; true").output.find("/busybox\n"));
}

TEST_P(root_test, the_network_is_a_router_s)
{
    options_.network = true;
    options_.uplink = "wan0";
    options_.ports = {"eth0.1", "ra0"};

    const inside_result result = run(
        "export PATH=/usr/sbin:/sbin:$PATH; cat /sys/class/net/br-lan/address; ls /sys/class/net/br-lan/brif;"
        "ip -o -4 addr show br-lan | grep -o '192.168.1.1/24'; cat /sys/class/net/lo/flags "
        "/sys/class/net/wan0/flags;"
        "[ -e /sys/class/net/wan0/brport ] || echo apart");

    // 0x9: up, loopback; 0x1003: up, broadcast, multicast.
    EXPECT_EQ(std::string(lan_bridge_mac) + "\neth0.1\nra0\n192.168.1.1/24\n0x9\n0x1003\napart\n",
              result.output);
}

TEST_P(root_test, without_a_network_there_is_only_lo)
{
    EXPECT_EQ("lo\n", run("ls /sys/class/net").output);
}

TEST_P(root_test, processes_left_behind_end_with_the_command)
{
    const scratch_directory scratch;
    options_.passed.push_back({scratch.path(), true});
    const std::string lock_path = scratch.path() + "/lock";

    ASSERT_EQ(
        0,
        run("exec 9> " + lock_path + "; chmod 666 " + lock_path + "; flock 9; sleep 1000 & exit 0").status);

    const int lock = open(lock_path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(lock, 0);
    EXPECT_TRUE(wait_until([lock] { return flock(lock, LOCK_EX | LOCK_NB) == 0; }));
    (void)close(lock);
}

TEST_P(root_test, orphans_are_collected)
{
    const inside_result result = run("(sh -c 'exit 3' &) ; tries=0;"
                                     "while grep -qs '^State:.Z' /proc/[0-9]*/status; do"
                                     " tries=$((tries + 1)); [ $tries -lt 500 ] || exit 1; sleep 0.01; done");

    EXPECT_EQ(0, result.status);
}

TEST_P(root_test, stop_signals_are_passed_on)
{
    const scratch_directory scratch;
    options_.passed.push_back({scratch.path(), true});
    for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
        SCOPED_TRACE(number);
        const std::string ready = scratch.path() + "/ready" + std::to_string(number);
        const pid_t entered = start_inside(
            options_, "trap 'exit 9' TERM INT HUP; touch " + ready + "; while :; do sleep 0.01; done",
            GetParam(), STDERR_FILENO);
        ASSERT_TRUE(wait_until([&ready] { return fs::exists(ready); }));

        ASSERT_EQ(0, kill(entered, number));

        int status = 0;
        ASSERT_EQ(entered, waitpid(entered, &status, 0));
        EXPECT_EQ(9, WEXITSTATUS(status));
    }
}

TEST_P(root_test, everything_ends_with_a_killed_caller)
{
    const scratch_directory scratch;
    options_.passed.push_back({scratch.path(), true});
    const std::string lock_path = scratch.path() + "/lock";
    const std::string ready = scratch.path() + "/ready";
    const pid_t entered = start_inside(options_,
                                       "exec 9> " + lock_path + "; chmod 666 " + lock_path +
                                           "; flock 9; touch " + ready + "; sleep 1000",
                                       GetParam(), STDERR_FILENO);
    ASSERT_TRUE(wait_until([&ready] { return fs::exists(ready); }));

    ASSERT_EQ(0, kill(entered, SIGKILL));
    ASSERT_EQ(entered, waitpid(entered, nullptr, 0));

    const int lock = open(lock_path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(lock, 0);
    EXPECT_TRUE(wait_until([lock] { return flock(lock, LOCK_EX | LOCK_NB) == 0; }));
    (void)close(lock);
}

TEST_P(root_test, the_working_directory_stays)
{
    EXPECT_EQ(fs::current_path().string() + "\n", run("pwd").output);
}

TEST_P(root_test, a_part_that_cannot_be_made_is_named)
{
    options_.rootfs = {"/nowhere/rootfs"};

    const inside_result result = run("echo never");

    EXPECT_EQ(private_root_failed, result.status);
    EXPECT_NE(std::string::npos, result.output.find("/nowhere/rootfs")) << result.output;
    EXPECT_NE(std::string::npos, result.output.find("No such file or directory")) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("never")) << result.output;
}

TEST(private_root, the_body_runs_in_a_process_of_its_own)
{
    private_root_options options = gateway_root_options();
    options.network = false;
    int touched = 0;

    const int status = enter_private_root(options, [&touched] {
        touched = 1;
        return 42;
    });

    EXPECT_EQ(42, status);
    EXPECT_EQ(0, touched);
}

} // namespace
