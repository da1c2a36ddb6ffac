// That what is installed needs no other programs than a router has, and of them only what busybox' versions
// can do.
#include "root/find_program.h"
#include "support/gateway.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

constexpr char router_bin[] = "/tmp/router-bin";

// What busybox provides on a router. Its flock is missing from Debian's busybox and taken from the machine.
constexpr const char *busybox_programs[] = {"cat", "cmp", "cp", "grep",  "head", "kill", "logger", "mkdir",
                                            "rm",  "sed", "sh", "sleep", "sort", "tail", "touch",  "tr"};
constexpr const char *router_programs[] = {"flock", "ubus", "uci", "korvel"};

class router_programs_test : public gateway_test {
protected:
    router_programs_test()
    {
        gateway.set_ports({.lan = 4});
        gateway.install_package();
        fs::create_directories(router_bin);
        for (const char *name : busybox_programs)
            fs::create_symlink("/usr/bin/busybox", fs::path(router_bin) / name);
        for (const char *name : router_programs)
            fs::create_symlink(where_is(name), fs::path(router_bin) / name);
        // The machine's own: the gateway's looks for that on PATH.
        fs::create_symlink(find_program("ip"), fs::path(router_bin) / "ip");
    }

    static std::string where_is(const std::string &name)
    {
        std::string path = run_program({"which", name}).output;
        path.pop_back();
        return path;
    }

    static program_result run(program_arguments arguments)
    {
        arguments.insert(arguments.begin(), {"/usr/bin/env", std::string("PATH=") + router_bin});
        return run_program(arguments);
    }
};

TEST_F(router_programs_test, rules_are_applied)
{
    gateway.write_file("/etc/korvel/rule_wan_1.sh",
                       "ip rule del fwmark 1 prohibit\nip rule add fwmark 1 prohibit\nno-such-program\n",
                       0755);
    gateway.write_file("/etc/korvel/rule_wan_2.sh", "sh -c 'sleep 1000; :'\n", 0755);
    gateway.write_file("/etc/korvel/rule_wan_3.sh", "[ \"$1\" = -r ] || rm /etc/korvel/rule_wan_3.sh\n",
                       0755);

    const program_result result = run({"/usr/libexec/korvel/apply-rules", "-t", "1"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.errors);
    EXPECT_EQ("32765: from all fwmark 0x1 prohibit", gateway.ip_rules().at(1));
    EXPECT_NE(0, run_program({"pgrep", "-f", "sleep 1000"}).status);
    for (const std::string &text : gateway.log_texts(LOG_ERR))
        EXPECT_TRUE(text.starts_with("rule_wan_2.sh did not end") ||
                    text.find("no-such-program") != std::string::npos)
            << text;
    EXPECT_LE(2U, gateway.log_texts(LOG_ERR).size());
}

TEST_F(router_programs_test, rules_are_held)
{
    const program_result result = run({"/usr/libexec/korvel/hold-rules", "-t", "1", "1"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.errors);
}

TEST_F(router_programs_test, the_daemon_s_runs_of_scripts_take_their_turn)
{
    gateway.write_file("/etc/korvel/rule_wan_1.sh", "#!/bin/sh\nebtables -D FORWARD -i a -o b -j DROP\n",
                       0755);
    fs::create_symlink(find_program("ebtables"), fs::path(router_bin) / "ebtables");

    const program_result result =
        run_program({"/usr/bin/env", std::string("PATH=/usr/libexec/korvel/bin:") + router_bin,
                     "/etc/korvel/rule_wan_1.sh", "-r"});

    EXPECT_EQ(std::string::npos, result.errors.find("not found")) << result.errors;
    EXPECT_TRUE(wait_until([this] { return !gateway.exists("/var/run/korvel/holder"); }));
}

TEST_F(router_programs_test, the_first_boot_finds_what_it_needs)
{
    gateway.uci_delete("network.korvel");
    gateway.set_config("network", gateway.config("network") + "config korvel 'korvel'\n\tlist wanList '6'\n");
    fs::copy(KORVEL_SOURCE_DIR "/openwrt/root/etc/uci-defaults/60-korvel", "/tmp/first-boot");

    const program_result result = run({"/tmp/first-boot"});

    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.errors);
    EXPECT_EQ("6", gateway.uci_get("network.korvel.maxWanId").value_or("missing"));
}

TEST_F(router_programs_test, the_daemon_starts)
{
    gateway.start_netd();

    const child_process daemon(
        {"/usr/bin/env", std::string("PATH=") + router_bin, "/usr/libexec/korvel/run-daemon"}, {},
        "/tmp/output", "/tmp/errors");

    EXPECT_TRUE(wait_until([this] { return gateway.object_exists("korvel"); }));
    EXPECT_EQ("", gateway.file("/tmp/errors"));
}

} // namespace
