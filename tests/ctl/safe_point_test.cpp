// Safe points, and changes that go again unless they are confirmed.
#include "ctl/ctl_test.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace {

constexpr char points[] = "/etc/korvel/safe-points";
constexpr char service[] = "/etc/init.d/korvel";

class ctl_safe_point_test : public ctl_test {
protected:
    ctl_safe_point_test()
    {
        if (gateway.exists(service))
            shipped_ = gateway.file(service);
        // The daemon runs beside the service manager here; its restart is noted.
        gateway.write_file(service, "#!/bin/sh\nexec gateway-tool journal \"$0\" \"$@\"\n", 0755);
        gateway.store_wan(routed_pppoe(1, {.vid = 100, .bind = "10000000"}));
        gateway.store_wan(routed_dhcp(2, {.vid = 200}));
        gateway.store_wan(bridged_wan(3, "00100000", {.vid = 300, .service = 3}));
        start();
    }
    ~ctl_safe_point_test() override
    {
        for (const pid_t process : guards())
            (void)kill(process, SIGKILL);
        gateway.remove("/etc/korvel/try");
        shipped_.empty() ? gateway.remove(service) : gateway.write_file(service, shipped_, 0755);
    }

    // Configurations and scripts, with modes.
    text_lines state() const
    {
        text_lines all;
        for (const std::string directory : {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface"})
            for (const std::string &name : gateway.list_directory(directory)) {
                const std::string path = directory + "/" + name;
                if (!std::filesystem::is_directory(path) && !name.starts_with("try"))
                    all.push_back(path + " " + std::to_string(gateway.mode(path)) + "\n" +
                                  gateway.file(path));
            }
        return all;
    }
    static void ok(const program_arguments &words)
    {
        const program_result result = ctl(words);
        ASSERT_EQ(0, result.status) << result.errors;
    }
    // Processes of korvelctl in this root, which has its processes to itself.
    static std::vector<pid_t> guards()
    {
        std::vector<pid_t> found;
        for (const auto &entry : std::filesystem::directory_iterator("/proc")) {
            const std::string name = entry.path().filename();
            std::ifstream command(entry.path() / "comm");
            std::string text;
            if (name.find_first_not_of("0123456789") == std::string::npos && std::getline(command, text) &&
                text == "korvelctl")
                found.push_back(static_cast<pid_t>(std::stol(name)));
        }
        return found;
    }
    bool is_back_at(const text_lines &before)
    {
        return wait_until([&] { return !gateway.exists("/etc/korvel/try.taken-back") && state() == before; });
    }

private:
    std::string shipped_;
};

TEST_F(ctl_safe_point_test, a_restore_brings_back_configurations_and_scripts_to_the_byte)
{
    ok({"save", "before"});
    const text_lines before = state();
    ok({"del", "1"});
    ok({"modify", "2", "--vlan", "201", "--mtu", "1400"});
    ok({"add", "--bridged", "--vlan", "400", "--ports", "lan2"});
    ASSERT_NE(before, state());
    gateway.clear_commands();

    const program_result result = ctl({"restore", "before"});

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_EQ(before, state());
    EXPECT_EQ(text_lines{}, unreadable_configurations());
    EXPECT_EQ("", gateway.list_directory("/etc/config").front().substr(0, 1) == "." ? "left over" : "");
    const text_lines commands = gateway.commands();
    // The highest identifier is another now.
    EXPECT_NE(commands.end(), std::find(commands.begin(), commands.end(), "/etc/init.d/korvel restart"));
    gateway.restart_korvel();
    EXPECT_EQ(gateway.call("get", R"({"wanId":1})").at("vid"), 100);
}

TEST_F(ctl_safe_point_test, a_restore_reloads_the_services)
{
    ok({"save", "before"});
    ok({"modify", "2", "--vlan", "201"});
    const child_process watcher({"korvelctl", "watch"}, {}, "/tmp/watched");
    ASSERT_TRUE(
        wait_until([&] { return gateway.file("/tmp/watched").find("listening") != std::string::npos; }));
    for (const char *const name : {"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy"})
        gateway.write_file(std::string("/etc/init.d/") + name,
                           "#!/bin/sh\nexec gateway-tool journal \"$0\" \"$@\"\n", 0755);
    gateway.clear_commands();

    ok({"restore", "before"});

    text_lines reloads;
    for (const std::string &command : gateway.commands())
        if (command.ends_with(" reload"))
            reloads.push_back(command);
    const text_lines expected = {"/etc/init.d/network reload", "/etc/init.d/dnsmasq reload",
                                 "/etc/init.d/firewall reload", "/etc/init.d/miniupnpd reload",
                                 "/etc/init.d/omcproxy reload"};
    reloads.resize(std::min(reloads.size(), expected.size()));
    EXPECT_EQ(expected, reloads);
    EXPECT_TRUE(wait_until([&] {
        return gateway.file("/tmp/watched").find("wan restored: safe point before") != std::string::npos;
    }));
    gateway.clear_commands();
    ok({"restore", "before"});
    EXPECT_EQ(text_lines{}, gateway.commands()) << "all is as it was saved";
}

TEST_F(ctl_safe_point_test, is_for_its_owner_alone_and_five_are_kept)
{
    for (const char *const name : {"one", "two", "three", "four", "five", "six"}) {
        ok({"save", name});
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // files tell their age in ticks
    }

    EXPECT_EQ((text_lines{"five", "four", "six", "three", "two"}), gateway.list_directory(points));
    EXPECT_EQ(0600U, gateway.mode(std::string(points) + "/six"));
    EXPECT_EQ(0700U, gateway.mode(points));
    const json_value list = ctl_json({"list"}).at("points");
    EXPECT_EQ(5U, list.size());
    EXPECT_EQ(list.at(0).at("name"), "two");
    EXPECT_EQ(list.at(4).at("name"), "six");
    for (const char *const wrong :
         {"", ".try", "../x", "a/b", "a b", "x\033[2J", "123456789012345678901234567890123"})
        EXPECT_EQ(code(exit_status::usage), ctl({"save", wrong}).status) << wrong;
    EXPECT_EQ(code(exit_status::no_such), ctl({"restore", "seven"}).status);
}

TEST_F(ctl_safe_point_test, a_damaged_one_changes_nothing)
{
    ok({"save", "point"});
    const std::string path = std::string(points) + "/point";
    const std::string whole = gateway.file(path);
    ok({"modify", "2", "--vlan", "201"});
    const text_lines before = state();
    const std::string other = "korvel safe point 1\n/etc/passwd 1\nx\nend 0\n";
    for (const std::string &damaged :
         {whole.substr(0, whole.size() / 2), "x" + whole, std::string(), other, whole + "more",
          std::string(whole).replace(whole.find("200"), 3, "999")}) {
        gateway.write_file(path, damaged, 0600);
        const program_result result = ctl({"restore", "point"});
        EXPECT_EQ(code(exit_status::refused), result.status) << result.errors;
        EXPECT_EQ(before, state());
    }
}

TEST_F(ctl_safe_point_test, a_restore_that_is_killed_is_completed)
{
    ok({"save", "before"});
    const text_lines before = state();
    ok({"del", "1"});
    ok({"modify", "2", "--vlan", "201"});
    {
        held_service network(gateway, "network");
        child_process client({"korvelctl", "restore", "before"}, {}, "/tmp/out", "/tmp/errors");
        ASSERT_TRUE(network.entered());
        EXPECT_EQ(128 + SIGKILL, client.stop(SIGKILL));
        network.let_go();
    }
    silence_services();

    gateway.restart_korvel();

    EXPECT_EQ(before, state());
}

TEST_F(ctl_safe_point_test, a_try_goes_again)
{
    const text_lines before = state();
    const child_process watcher({"korvelctl", "watch"}, {}, "/tmp/watched");
    ASSERT_TRUE(
        wait_until([&] { return gateway.file("/tmp/watched").find("listening") != std::string::npos; }));

    const program_result result = ctl({"try", "2", "modify", "2", "--vlan", "201"});

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_NE(std::string::npos, result.output.find("It is taken back in 2s, unless: korvelctl confirm\n"));
    EXPECT_TRUE(is_back_at(before));
    EXPECT_TRUE(wait_until([&] {
        return gateway.file("/tmp/watched").find("restored: not confirmed within 2 s") != std::string::npos;
    }));
    const text_lines told = gateway.log_texts(LOG_NOTICE);
    EXPECT_NE(told.end(), std::find(told.begin(), told.end(),
                                    "The change on trial is taken back: not confirmed within 2 s"));
    EXPECT_TRUE(wait_until([&] { return guards().size() == 1; })) << "but for the watcher";
    EXPECT_EQ(code(exit_status::no_such), ctl({"confirm"}).status);
}

TEST_F(ctl_safe_point_test, a_confirmed_try_stays)
{
    ok({"try", "60", "modify", "2", "--vlan", "201"});
    const text_lines changed = state();
    EXPECT_NE(std::string::npos, ctl({"status"}).output.find("A change is on trial"));
    EXPECT_EQ(code(exit_status::refused), ctl({"try", "60", "del", "1"}).status) << "one at a time";

    EXPECT_EQ("The change stays.\n", ctl({"confirm"}).output);

    EXPECT_TRUE(wait_until([&] { return guards().empty(); }));
    EXPECT_EQ(changed, state());
    EXPECT_EQ(text_lines{}, gateway.list_directory(points));
    EXPECT_EQ(std::string::npos, ctl({"status"}).output.find("A change is on trial"));
}

TEST_F(ctl_safe_point_test, a_try_that_is_refused_leaves_nothing_behind)
{
    const text_lines before = state();

    EXPECT_EQ(code(exit_status::vlan_taken), ctl({"try", "60", "modify", "2", "--vlan", "300"}).status);

    EXPECT_TRUE(wait_until([&] { return guards().empty(); }));
    EXPECT_EQ(before, state());
    EXPECT_EQ(code(exit_status::no_such), ctl({"confirm"}).status);
    for (const program_arguments &wrong : {program_arguments{"try"},
                                           {"try", "60"},
                                           {"try", "0", "del", "1"},
                                           {"try", "60", "status"},
                                           {"try", "60", "modify", "2", "--in", "5s"},
                                           {"try", "60", "del", "1", "--dry-run"}})
        EXPECT_EQ(code(exit_status::usage), ctl(wrong).status) << wrong.back();
}

TEST_F(ctl_safe_point_test, a_try_goes_again_though_its_maker_is_killed)
{
    const text_lines before = state();
    {
        held_service network(gateway, "network");
        child_process client({"korvelctl", "try", "1", "modify", "2", "--vlan", "201"}, {}, "/tmp/out",
                             "/tmp/errors");
        ASSERT_TRUE(network.entered());
        EXPECT_EQ(128 + SIGKILL, client.stop(SIGKILL));
        network.let_go();
        EXPECT_TRUE(wait_until([&] { return state() != before; }));
        EXPECT_TRUE(is_back_at(before));
    }
    EXPECT_TRUE(wait_until([&] { return guards().empty(); }));
}

TEST_F(ctl_safe_point_test, a_restart_of_the_gateway_takes_a_try_back)
{
    const text_lines before = state();
    ok({"try", "600", "modify", "2", "--vlan", "201"});
    ASSERT_NE(before, state());
    EXPECT_EQ(0, ctl({"take-back", "--boot"}).status);
    ASSERT_NE(before, state()) << "it has a guard";
    for (const pid_t process : guards())
        EXPECT_EQ(0, kill(process, SIGKILL));
    ASSERT_TRUE(wait_until([&] { return guards().empty(); }));
    (void)gateway.stop_korvel();

    EXPECT_EQ(0, ctl({"take-back", "--boot"}).status);

    EXPECT_EQ(before, state());
    EXPECT_EQ(0, ctl({"take-back", "--boot"}).status) << "each start asks";
    EXPECT_EQ(code(exit_status::no_such), ctl({"take-back"}).status);
}

TEST_F(ctl_safe_point_test, a_try_that_is_being_taken_back_is_left_to_who_does_that)
{
    const text_lines before = state();
    ok({"try", "60", "modify", "1", "--vlan", "150"});
    held_service network(gateway, "network");
    child_process first({"korvelctl", "take-back"}, {}, "/tmp/out", "/tmp/errors");
    ASSERT_TRUE(network.entered());
    ASSERT_TRUE(wait_until([&] { return guards().size() == 1; })) << "the guard has gone, and its lock";

    EXPECT_EQ(0, ctl({"take-back", "--boot"}).status);
    EXPECT_EQ(code(exit_status::refused), ctl({"take-back"}).status);
    EXPECT_TRUE(gateway.exists("/etc/korvel/try.taken-back"));
    network.let_go();

    EXPECT_EQ(0, first.wait());
    EXPECT_EQ("The change on trial is taken back.\n", gateway.file("/tmp/out"));
    EXPECT_EQ(before, state());
}

TEST_F(ctl_safe_point_test, a_try_can_be_taken_back_at_once)
{
    const text_lines before = state();
    ok({"try", "600", "del", "1"});

    EXPECT_EQ("The change on trial is taken back.\n", ctl({"take-back"}).output);

    EXPECT_EQ(before, state());
    EXPECT_TRUE(wait_until([&] { return guards().empty(); }));
}

} // namespace
