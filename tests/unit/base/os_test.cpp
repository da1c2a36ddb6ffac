// What leaves the process: commands, files, and scripts that appear whole or not at all.
#include "base/os.h"

#include "base/clock.h"
#include "base/config.h"
#include "base/recovery.h"
#include "support/gateway.h"
#include "support/small_disk.h"

#include <chrono>
#include <csignal>
#include <ctime>
#include <sys/stat.h>

namespace {

unsigned watched_syncs = 0; // how many files were synced since somebody began to look
bool watching = false;
bool no_process = false; // whether no process can be started

} // namespace

extern "C" {

int __real_fsync(int descriptor);

// Starts a child, which notes the descriptors that it was given, as another thread might just then.
int __wrap_fsync(int descriptor)
{
    if (watching)
        run_command(("ls /proc/self/fd >/tmp/child-" + std::to_string(watched_syncs++)).c_str());
    return __real_fsync(descriptor);
}

int __real_system(const char *command);

int __wrap_system(const char *command)
{
    return no_process ? -1 : __real_system(command);
}
}

namespace {

using os_test = gateway_test;

constexpr char script_path[] = "/etc/korvel/script";

TEST_F(os_test, a_command_has_ended_when_the_call_returns)
{
    run_command("sleep 0.05; echo done >/tmp/result; exit 3");

    EXPECT_EQ(gateway.file("/tmp/result"), "done\n");
    EXPECT_TRUE(gateway.log().empty()) << "its exit status is nobody's business";
}

TEST_F(os_test, a_command_that_cannot_be_started_is_logged)
{
    no_process = true;
    run_command("true");
    no_process = false;

    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to run: true"});
}

TEST_F(os_test, a_commands_output_is_cut_at_the_buffers_end)
{
    struct {
        const char *command;
        const char *output;
    } const cases[] = {{"printf ''", ""},
                       {"printf abcdef", "abcdef"},
                       {"printf abcdefg", "abcdefg"},
                       {"printf abcdefgh", "abcdefg"},
                       {"printf 'a\\nb'; exit 7", "a\nb"},
                       {"no-such-program", ""}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.command);
        char output[8];
        memset(output, '#', sizeof(output));

        EXPECT_TRUE(read_command((std::string(row.command) + " 2>/dev/null").c_str(), output));

        EXPECT_STREQ(output, row.output);
    }
}

TEST_F(os_test, output_that_is_cut_is_logged_with_its_size)
{
    struct {
        const char *command;
        text_lines logged;
    } const cases[] = {
        {"printf abcdefg", {}},
        {"printf 'abcdefg\\n'", {}}, // a line feed more is no loss
        {"printf abcdefgh", {"Output of printf abcdefgh is cut at 7 of its 8 bytes"}},
        {"printf '\\nabcdefghi\\n'", {"Output of printf '\\nabcdefghi\\n' is cut at 7 of its 11 bytes"}},
        {"yes | head -c 100000", {"Output of yes | head -c 100000 is cut at 7 of its 100000 bytes"}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.command);
        gateway.clear_log();
        char output[8];

        EXPECT_TRUE(read_command(row.command, output));

        EXPECT_EQ(row.logged, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(os_test, a_command_that_never_ends_its_output_is_left)
{
    char output[8];

    EXPECT_TRUE(read_command("yes", output));

    EXPECT_STREQ(output, "y\ny\ny\ny");
    EXPECT_EQ(text_lines{"Output of yes is cut at 7 of its 1048583 bytes or more"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(os_test, a_command_is_waited_for_after_its_output_ended)
{
    char output[8];

    EXPECT_TRUE(read_command("printf text; exec >&-; sleep 0.05; echo done >/tmp/result", output));

    EXPECT_STREQ(output, "text");
    EXPECT_EQ(gateway.file("/tmp/result"), "done\n");
}

TEST_F(os_test, a_child_that_starts_while_files_are_written_has_none_of_their_descriptors)
{
    run_command("ls /proc/self/fd >/tmp/before");
    script_file script("/etc/korvel/script");
    script.print("text");
    watched_syncs = 0;
    watching = true;

    EXPECT_EQ(config_set("network", "korvel", "option", "value"), 0);
    EXPECT_TRUE(script.commit());

    watching = false;
    EXPECT_GE(watched_syncs, 3U) << "both files and a directory";
    for (unsigned i = 0; i < watched_syncs; i++)
        EXPECT_EQ(gateway.file("/tmp/before"), gateway.file("/tmp/child-" + std::to_string(i))) << i;
}

TEST_F(os_test, files_are_read_up_to_the_buffers_end)
{
    char content[8];
    gateway.write_file("/tmp/file", "abcdefg");
    EXPECT_EQ(read_file("/tmp/file", content), 7);
    EXPECT_STREQ(content, "abcdefg");
    gateway.write_file("/tmp/file", "abcdefgh");
    EXPECT_EQ(read_file("/tmp/file", content), 7);
    EXPECT_STREQ(content, "abcdefg");
    gateway.write_file("/tmp/file", "");
    EXPECT_EQ(read_file("/tmp/file", content), 0);
    EXPECT_STREQ(content, "");

    EXPECT_EQ(read_file("/tmp/none", content), -1);
}

TEST_F(os_test, a_file_ends_where_its_reading_fails)
{
    for (const char *const unreadable : {"/tmp", "/proc/self/mem"}) {
        SCOPED_TRACE(unreadable);
        char content[8] = "before";

        EXPECT_EQ(read_file(unreadable, content), 0);

        EXPECT_STREQ(content, "");
    }
}

TEST_F(os_test, a_pipe_under_a_files_name_does_not_hold_up_the_reader)
{
    ASSERT_EQ(mkfifo("/tmp/pipe", 0600), 0);
    char content[8];

    EXPECT_EQ(read_file("/tmp/pipe", content), 0);

    EXPECT_STREQ(content, "");
}

TEST_F(os_test, files_are_seen_and_removed)
{
    gateway.write_file("/tmp/file", "");

    EXPECT_TRUE(file_exists("/tmp/file"));
    remove_file("/tmp/file", "failure");
    EXPECT_FALSE(file_exists("/tmp/file"));
    remove_file("/tmp/file", "there is none");
    EXPECT_TRUE(gateway.log().empty());

    gateway.write_file("/tmp/directory/file", "");
    remove_file("/tmp/directory", "failure");
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"failure"});
}

TEST_F(os_test, a_script_that_is_taken_back_runs_with_r_and_goes)
{
    gateway.write_file(script_path, "#!/bin/sh\necho \"$0 $1\" >/tmp/ran\n", 0755);

    take_back_script(script_path, "failure");
    take_back_script("/etc/korvel/none", "failure");

    EXPECT_EQ(gateway.file("/tmp/ran"), std::string(script_path) + " -r\n");
    EXPECT_FALSE(gateway.exists(script_path));
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(os_test, a_script_that_fails_or_cannot_run_goes_all_the_same)
{
    for (const unsigned mode : {0755U, 0U}) {
        gateway.write_file(script_path, "#!/bin/sh\nexit 1\n", mode);

        take_back_script(script_path, "failure");

        EXPECT_FALSE(gateway.exists(script_path));
    }
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(os_test, a_script_that_cannot_be_deleted_is_told)
{
    gateway.write_file(std::string(script_path) + "/inside", "");

    take_back_script(script_path, "failure");

    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"failure"});
}

TEST_F(os_test, a_script_appears_with_its_commit)
{
    gateway.write_file(script_path, "old", 0600);
    script_file script(script_path);
    ASSERT_TRUE(script);
    script.print("#!/bin/sh\necho %u %s\n", 7U, "text");
    EXPECT_EQ(gateway.file(script_path), "old") << "not before";

    EXPECT_TRUE(script.commit());

    EXPECT_EQ(gateway.file(script_path), "#!/bin/sh\necho 7 text\n");
    EXPECT_EQ(gateway.mode(script_path), 0755U);
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"script"});
}

TEST_F(os_test, while_it_is_written_a_script_has_a_hidden_name)
{
    script_file script(script_path);

    for (const std::string &name : gateway.list_directory("/etc/korvel"))
        EXPECT_TRUE(name.starts_with('.')) << name;
    EXPECT_EQ(gateway.list_directory("/etc/korvel").size(), 1U);
}

TEST_F(os_test, nobody_else_may_read_a_script_before_it_is_complete)
{
    script_file script(script_path);

    EXPECT_EQ(gateway.mode("/etc/korvel/" + gateway.list_directory("/etc/korvel").at(0)), 0600U);
}

TEST_F(os_test, a_script_that_is_given_up_leaves_nothing)
{
    gateway.write_file(script_path, "old");
    {
        script_file script(script_path);
        script.print("new");
    }

    EXPECT_EQ(gateway.file(script_path), "old");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"script"});
}

TEST_F(os_test, what_a_crash_left_of_a_script_does_not_disturb_the_next_one)
{
    std::string left_behind;
    {
        script_file script(script_path);
        left_behind = "/etc/korvel/" + gateway.list_directory("/etc/korvel").at(0);
    }
    gateway.write_file(left_behind, std::string(5000, '#'));

    script_file script(script_path);
    script.print("new\n");
    EXPECT_TRUE(script.commit());
    EXPECT_EQ(gateway.file(script_path), "new\n");

    constexpr const char *directories[] = {"/etc/korvel"};
    recover_operations(directories);
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"script"});
}

TEST_F(os_test, without_its_directory_a_script_cannot_be_opened)
{
    gateway.remove("/etc/korvel");

    EXPECT_FALSE(script_file(script_path));

    EXPECT_FALSE(gateway.exists("/etc/korvel"));
}

TEST_F(os_test, a_directory_is_made_unless_it_is_there)
{
    gateway.remove("/etc/korvel");

    make_directory("/etc/korvel");
    gateway.write_file("/etc/korvel/script", "text");
    make_directory("/etc/korvel");

    EXPECT_EQ(gateway.mode("/etc/korvel"), 0755U);
    EXPECT_EQ(gateway.file("/etc/korvel/script"), "text");
    EXPECT_TRUE(gateway.log().empty());

    make_directory("/etc/korvel/script/directory");
    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to make directory: /etc/korvel/script/directory"});
}

TEST_F(os_test, a_disk_without_room_keeps_the_old_script)
{
    gateway.write_file(script_path, "old");
    small_disk disk("/etc/korvel");
    disk.fill();
    {
        script_file script(script_path);
        ASSERT_TRUE(script) << "an empty file can still be made";
        script.print("%s", std::string(100000, 'x').c_str());
        EXPECT_FALSE(script.commit());
    }
    disk.empty_again();

    EXPECT_EQ(gateway.file(script_path), "old");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"script"});
    disk.make_read_only();
    EXPECT_FALSE(script_file(script_path)) << "nowhere to write";
}

TEST_F(os_test, a_directory_under_a_scripts_name_fails_the_commit)
{
    gateway.write_file("/etc/korvel/script/file", "");
    script_file script(script_path);
    script.print("text");

    EXPECT_FALSE(script.commit());

    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{"script"});
}

TEST_F(os_test, the_clocks_tell_milliseconds)
{
    const uint64_t start = steady_milliseconds();
    const uint64_t wall = wall_milliseconds();

    std::this_thread::sleep_for(std::chrono::milliseconds(20));

    EXPECT_GE(steady_milliseconds(), start + 20);
    EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(wall) / 1000, 60);
}

} // namespace
