// The launcher: its command line, and a boot to the end.
#include "launcher/launcher_options.h"
#include "machine/inside.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

launcher_options parsed(std::vector<std::string> words)
{
    words.insert(words.begin(), "korvel-gateway");
    std::vector<char *> pointers;
    for (std::string &word : words)
        pointers.push_back(word.data());
    return parse_launcher_options(static_cast<int>(pointers.size()), pointers.data());
}

TEST(launcher_command_line, without_a_command_it_is_a_shell)
{
    EXPECT_TRUE(parsed({}).command.empty());
    EXPECT_TRUE(parsed({"--shell"}).command.empty());
    EXPECT_TRUE(parsed({}).start_korvel);
}

TEST(launcher_command_line, options_end_at_the_command)
{
    const launcher_options options =
        parsed({"--no-korvel", "--config", "dir", "--programs", "bin", "--", "ubus", "--bare", "--help"});

    EXPECT_FALSE(options.start_korvel);
    EXPECT_FALSE(options.bare);
    EXPECT_EQ("dir", options.config);
    EXPECT_EQ("bin", options.programs);
    EXPECT_EQ((command_words{"ubus", "--bare", "--help"}), options.command);
    EXPECT_FALSE(options.help);
}

TEST(launcher_command_line, what_it_does_not_know_is_refused)
{
    EXPECT_THROW(parsed({"--unknown"}), std::invalid_argument);
    EXPECT_THROW(parsed({"--config"}), std::invalid_argument);
    EXPECT_THROW(parsed({"--pace", "slow"}), std::invalid_argument);
    EXPECT_THROW(parsed({"--shell", "--", "true"}), std::invalid_argument);
}

program_result launch(program_arguments arguments)
{
    arguments.insert(arguments.begin(), KORVEL_LAUNCHER);
    return run_program(arguments);
}

// The lines of a text that are indented and begin with these words, each behind a "; ".
std::string commands_in(const std::string &text, const std::string &words)
{
    std::istringstream lines(text);
    std::string commands;
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("  " + words))
            commands += "; " + line;
    return commands;
}

TEST(launcher, the_shell_says_how_to_add_a_wan)
{
    const program_result shell = run_program(
        {"sh", "-c", "echo 'echo serving $(ubus list korvel)' | \"$0\" --shell", KORVEL_LAUNCHER});
    const std::string shown =
        commands_in(shell.output, "ubus call korvel add") + commands_in(shell.output, "ubus call korvel get");

    const program_result result = launch({"--", "sh", "-c", "set -e" + shown});

    EXPECT_NE(std::string::npos, shell.output.find("serving korvel\n")) << shell.errors;
    EXPECT_NE(std::string::npos, result.output.find("\"info\": \"korvel modify OK.\"")) << shown;
    EXPECT_NE(std::string::npos, result.output.find("\"wanName\": \"1_INTERNET_R_VID_100\"")) << shown;
    EXPECT_EQ(0, result.status) << result.errors;
}

TEST(launcher, the_command_finds_a_serving_gateway)
{
    const program_result result =
        launch({"--", "sh", "-c",
                "ubus list korvel && ubus list network && ubus -S call korvel get '{\"wanId\":9}'; exit 5"});

    EXPECT_EQ("korvel\nnetwork\n", result.output.substr(0, result.output.find('{')));
    EXPECT_EQ(5, result.status) << result.errors;
}

TEST(launcher, korvel_can_be_left_out)
{
    const program_result result = launch({"--no-korvel", "--", "ubus", "-S", "list", "korvel"});

    EXPECT_EQ("", result.output);
    EXPECT_EQ(4, result.status) << result.errors; // the bus's "not found"
}

TEST(launcher, a_given_configuration_replaces_the_shipped_one)
{
    const scratch_directory config;
    std::ofstream(config.path() + "/custom") << "config gpon 'gpon'\n\toption ppp_service_name_hidden '1'\n";

    const program_result result =
        launch({"--no-korvel", "--config", config.path(), "--", "sh", "-c",
                "uci get custom.gpon.ppp_service_name_hidden; uci get network.korvel"});

    EXPECT_EQ("1\nkorvel\n", result.output) << result.errors;
}

TEST(launcher, given_programs_replace_those_of_the_gateway)
{
    const scratch_directory programs;
    std::ofstream(programs.path() + "/uci") << "#!/bin/sh\necho given $1\n";
    std::filesystem::permissions(programs.path() + "/uci", std::filesystem::perms::owner_all);
    std::ofstream(programs.path() + "/sh") << "no program of the gateway\n";

    const program_result result = launch(
        {"--no-korvel", "--programs", programs.path(), "--", "sh", "-c", "uci show; ubus list network"});

    EXPECT_EQ("given show\nnetwork\n", result.output) << result.errors;
}

TEST(launcher, a_bare_gateway_runs_nothing_but_the_command)
{
    const program_result result =
        launch({"--bare", "--", "sh", "-c", "ls /dev/log; ubus list; command -v korvel"});

    EXPECT_EQ("/gateway/bin/korvel\n", result.output);
    EXPECT_NE(std::string::npos, result.errors.find("/dev/log")) << result.errors;
    EXPECT_NE(std::string::npos, result.errors.find("Failed to connect to ubus")) << result.errors;
}

TEST(launcher, the_journal_and_the_log_are_shown_at_the_end)
{
    const program_result result =
        launch({"--show-journal", "--show-log", "--", "/etc/init.d/firewall", "reload"});

    EXPECT_EQ(0, result.status) << result.errors;
    // The network daemon's own hotplug events may stand around the command.
    const size_t log = result.output.find("System log:\n");
    ASSERT_NE(std::string::npos, log) << result.output;
    EXPECT_EQ(0U, result.output.find("Started commands:\n")) << result.output;
    EXPECT_LT(result.output.find("\n/etc/init.d/firewall reload\n"), log) << result.output;
    EXPECT_EQ("System log:\nwarning korvel Receive stop signal: 15\n", result.output.substr(log));
}

TEST(launcher, at_a_real_pace_only_what_asks_nobody_is_up_at_once)
{
    const scratch_directory config;
    std::ofstream(config.path() + "/network")
        << "config interface 'lan'\n\toption proto 'static'\n\toption device 'br-lan'\n"
           "config interface 'wan_1'\n\toption proto 'dhcp'\n\toption device 'pon'\n";
    const char look[] = "state() { ubus -S call network.interface.$1 status | gateway-tool pick up; };"
                        "until [ $(state lan) = true ]; do sleep 0.01; done; state wan_1";

    const program_result result =
        launch({"--no-korvel", "--config", config.path(), "--pace", "real", "--", "sh", "-c", look});

    EXPECT_EQ("false\n", result.output) << result.errors;
}

TEST(launcher, a_program_that_does_not_come_up_is_named)
{
    const scratch_directory config;
    // The network daemon does not start with a configuration that cannot be read.
    std::ofstream(config.path() + "/network") << "config korvel 'korvel\n";

    const program_result result = launch({"--config", config.path(), "--", "true"});

    EXPECT_EQ(private_root_failed, result.status);
    EXPECT_NE(std::string::npos, result.errors.find("gateway-netd has ended")) << result.errors;
}

} // namespace
