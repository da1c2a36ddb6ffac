// The daemon as a program: command lines, start-up on a real configuration, and its end.
#include "support/daemon_test.h"
#include "support/open_count.h"
#include "support/printed_replies.h"
#include "support/sanitizers.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <unistd.h>

namespace {

constexpr char usage[] =
    "Usage: korvel [-dh]\n\nSystem WAN management utilities\n\n\t-d\tStart service in daemon mode\n";

class startup_test : public daemon_test {
protected:
    // The daemon's children, of all its threads.
    ptrdiff_t children() const
    {
        const std::string tasks = "/proc/" + std::to_string(gateway.korvel_pid()) + "/task/";
        ptrdiff_t count = 0;
        for (const std::string &task : gateway.list_directory(tasks))
            count += std::ranges::count(gateway.file(tasks + task + "/children"), ' ');
        return count;
    }

    void expect_stop_message(int number)
    {
        EXPECT_EQ((std::vector<log_entry>{
                      {LOG_WARNING, "korvel", "Receive stop signal: " + std::to_string(number)}}),
                  gateway.log());
    }
};

TEST_F(startup_test, help_or_no_argument_prints_the_usage)
{
    for (const program_arguments &arguments : {program_arguments{}, {"-h"}, {"-h", "-d"}}) {
        SCOPED_TRACE(testing::PrintToString(arguments));

        const program_result result = gateway.run_korvel(arguments);

        EXPECT_EQ(0, result.status);
        EXPECT_EQ(usage, result.output);
        EXPECT_EQ("", result.errors);
    }
}

TEST_F(startup_test, any_other_argument_prints_nothing)
{
    for (const char *argument : {"-x", "--help", "-dh", "", "start"}) {
        SCOPED_TRACE(argument);

        const program_result result = gateway.run_korvel({argument, "-d"});

        EXPECT_EQ(0, result.status);
        EXPECT_EQ("", result.output);
        EXPECT_EQ("", result.errors);
    }
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(startup_test, only_the_first_argument_counts)
{
    gateway.start_netd();
    child_process daemon({"korvel", "-d", "extra", "-h"});

    EXPECT_TRUE(wait_until([this] { return gateway.object_exists("korvel"); }));

    EXPECT_EQ(0, daemon.stop(SIGTERM));
}

TEST_F(startup_test, the_process_that_was_started_serves_in_the_foreground)
{
    gateway.start_netd();
    gateway.start_korvel();

    EXPECT_TRUE(gateway.korvel_running());
    EXPECT_EQ(getsid(0), getsid(gateway.korvel_pid()));
    EXPECT_EQ(getpgid(0), getpgid(gateway.korvel_pid()));
    for (const char *directory : {"/var/run", "/tmp"})
        for (const std::string &name : gateway.list_directory(directory))
            EXPECT_EQ(std::string::npos, name.find("korvel")) << directory << "/" << name;
    EXPECT_EQ("", gateway.korvel_output());
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(startup_test, without_a_highest_identifier_it_ends_before_any_other_task)
{
    // What the later tasks would act on: a board, a WAN whose script is missing, a list to import.
    printed_replies bus(gateway);
    gateway.store_wan(bridged_wan(1, "1000"));
    gateway.uci_delete("network.korvel.maxWanId");
    gateway.write_file("/tmp/wan_list", "/tmp/wan_1\n");
    const std::string before = gateway.config("network");

    const program_result result = gateway.run_korvel({"-d"});

    EXPECT_EQ(1, result.status);
    EXPECT_EQ((std::vector<log_entry>{{LOG_ERR, "korvel", "Failed to get maxWanId"}}), gateway.log());
    EXPECT_TRUE(bus.asked().empty());
    EXPECT_TRUE(gateway.list_directory("/etc/korvel").empty());
    EXPECT_TRUE(gateway.exists("/tmp/wan_list"));
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_TRUE(gateway.commands().empty());
}

TEST_F(startup_test, the_board_is_probed_before_rules_are_regenerated)
{
    gateway.set_ports({.lan = 2});
    gateway.store_wan(bridged_wan(1, "10", {.vid = 100}));
    gateway.start_netd();

    gateway.start_korvel();

    const std::string script = gateway.file("/etc/korvel/rule_wan_1.sh");
    EXPECT_NE(std::string::npos, script.find("eth0.2"));
    EXPECT_EQ(std::string::npos, script.find("eth0.3"));
}

TEST_F(startup_test, without_a_board_it_starts_with_no_ports)
{
    gateway.remove_board_description();
    gateway.start_netd();

    gateway.start_korvel();

    EXPECT_EQ(
        (std::vector<log_entry>{
            {LOG_ERR, "korvel", "[nemtra_init_lan_num][2276] Failed to parse all boardinfo data json"}}),
        gateway.log());
    EXPECT_EQ(result_reply(0, 0, "korvel modify OK."),
              gateway.call("add", add_request(routed_dhcp(1, {.bind = "11"}))));
    EXPECT_FALSE(gateway.device_option(1, "port_binding"));
}

TEST_F(startup_test, the_configuration_is_read_once_however_many_wans_there_are)
{
    gateway.set_ports({.lan = 4});
    for (uint8_t id = 1; id <= 6; id++)
        gateway.store_wan(id % 2 == 0 ? bridged_wan(id, "0000", {.vid = static_cast<uint16_t>(100 + id)})
                                      : routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id)}));
    gateway.start_netd();
    const open_count opens("/etc/config/network");

    gateway.start_korvel();

    EXPECT_EQ(1U, opens.take());
}

TEST_F(startup_test, the_uplink_names_the_devices)
{
    const struct {
        const char *uplink; // empty: not configured
        const char *tagged;
        const char *untagged;
    } cases[] = {
        {"", "pon.4095", "pon"},
        {"nas0", "nas0.4095", "nas0"},
        {"abcdefgh", "abcdefgh.40", "abcdefgh"},
        {"abcdefghi", "abcdefghi40", "abcdefghi"},
        {"abcdefghijklm", "abcdefghi40", "abcdefghijk"},
    };
    gateway.start_netd();
    silence_services();
    const std::string shipped = gateway.config("network");
    for (const auto &row : cases) {
        SCOPED_TRACE(row.uplink);
        gateway.uci_set("network.korvel.pon_adapt", *row.uplink ? row.uplink : "pon");
        if (!*row.uplink)
            gateway.uci_delete("network.korvel.pon_adapt");
        gateway.clear_log();
        gateway.start_korvel();

        EXPECT_EQ(0, gateway.call("add", add_request(routed_dhcp(1, {.vid = 4095}))).status);
        EXPECT_EQ(0, gateway.call("add", add_request(routed_dhcp(2, {.service = 2}))).status);

        EXPECT_EQ(row.tagged, gateway.device_option(1, "name"));
        EXPECT_EQ(row.untagged, gateway.device_option(2, "name"));
        EXPECT_EQ(*row.uplink ? text_lines{} : text_lines{"Failed to get value: network.korvel.pon_adapt"},
                  gateway.log_texts(LOG_ERR));
        EXPECT_EQ(0, gateway.stop_korvel());
        gateway.set_config("network", shipped);
    }
}

TEST_F(startup_test, each_stop_signal_ends_an_idle_daemon)
{
    gateway.start_netd();
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        SCOPED_TRACE(number);
        gateway.start_korvel();
        gateway.clear_log();

        EXPECT_EQ(0, gateway.stop_korvel(number));

        expect_stop_message(number);
        EXPECT_TRUE(gateway.commands().empty());
    }
}

TEST_F(startup_test, a_stop_signal_ends_a_daemon_that_waits_for_a_service)
{
    if (thread_sanitizer)
        GTEST_SKIP() << "it holds signals back until system() returns";
    gateway.start_netd();
    for (const int number : {SIGHUP, SIGTERM}) {
        SCOPED_TRACE(number);
        gateway.start_korvel();
        gateway.clear_log();
        held_service firewall(gateway, "firewall");
        background_call add("korvel", "add",
                            add_request(routed_dhcp(1, {.vid = static_cast<uint16_t>(number)})));
        ASSERT_TRUE(firewall.entered());

        EXPECT_EQ(0, gateway.stop_korvel(number));

        expect_stop_message(number);
    }
}

TEST_F(startup_test, a_stop_signal_ends_a_daemon_that_waits_for_a_status)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.script_interface("wan_1", "slow 30 {\"up\":true}");
    gateway.start_netd();
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        SCOPED_TRACE(number);
        gateway.start_korvel();
        gateway.clear_log();
        background_call get("korvel", "get", R"({"wanId":1})");
        // The bus tool that asks for the status is the daemon's only child.
        ASSERT_TRUE(wait_until([&] { return children() == 1; }));

        EXPECT_EQ(0, gateway.stop_korvel(number));

        expect_stop_message(number);
    }
}

TEST_F(startup_test, a_stop_signal_ends_a_daemon_that_waits_for_several)
{
    for (const uint8_t id : {uint8_t{1}, uint8_t{2}}) {
        gateway.store_wan(routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id), .ip_protocol = 3}));
        for (const char *suffix : {"", "_v6"})
            gateway.script_interface("wan_" + std::to_string(id) + suffix, "slow 30 {\"up\":true}");
    }
    gateway.start_netd();
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        SCOPED_TRACE(number);
        gateway.start_korvel();
        gateway.clear_log();
        background_call all("korvel", "all", "{}");
        ASSERT_TRUE(wait_until([&] { return children() == 4; }));

        EXPECT_EQ(0, gateway.stop_korvel(number));

        expect_stop_message(number);
    }
}

TEST_F(startup_test, a_stop_signal_ends_a_daemon_that_starts_up)
{
    gateway.start_bus();
    gateway.fake_program("ubus", ": >/tmp/asked\nexec sleep 30");
    child_process daemon({"korvel", "-d"});
    ASSERT_TRUE(wait_until([this] { return gateway.exists("/tmp/asked"); }));

    EXPECT_EQ(0, daemon.stop(SIGTERM));

    expect_stop_message(SIGTERM);
}

TEST_F(startup_test, without_a_bus_it_keeps_running_unregistered)
{
    printed_replies no_board(gateway);
    child_process daemon({"korvel", "-d"});
    const std::string descriptors = "/proc/" + std::to_string(daemon.pid()) + "/fd";
    const auto loop_exists = [&] {
        for (const std::string &name : gateway.list_directory(descriptors)) {
            std::error_code gone;
            if (std::filesystem::read_symlink(descriptors + "/" + name, gone)
                    .string()
                    .ends_with("[eventpoll]"))
                return true;
        }
        return false;
    };
    ASSERT_TRUE(wait_until(loop_exists));

    gateway.remove("/gateway/fakes/ubus");
    gateway.start_netd();
    EXPECT_FALSE(gateway.object_exists("korvel"));
    EXPECT_TRUE(daemon.running());

    EXPECT_EQ(0, daemon.stop(SIGTERM));
}

TEST_F(startup_test, a_second_daemon_ends_with_status_1_and_the_first_one_serves_on)
{
    gateway.start_netd();
    gateway.start_korvel();
    gateway.clear_log();

    EXPECT_EQ(1, gateway.run_korvel({"-d"}).status);

    EXPECT_EQ(text_lines{"Failed to register on the bus: Invalid argument"}, gateway.log_texts(LOG_ERR));
    EXPECT_TRUE(gateway.korvel_running());
    EXPECT_EQ(0, gateway.call("all").status);
}

TEST_F(startup_test, it_ends_when_the_bus_goes_away)
{
    gateway.start_netd();
    gateway.start_korvel();
    gateway.clear_log();

    gateway.stop_bus();

    ASSERT_TRUE(wait_until([this] { return !gateway.korvel_running(); }));
    EXPECT_EQ(0, gateway.stop_korvel());
    EXPECT_TRUE(gateway.log_texts(LOG_WARNING).empty());
}

} // namespace
