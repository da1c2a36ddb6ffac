// What is on disk when a write fails, or its writer is killed: the old file or the new one, whole.
#include <mxuci.h>

#include "support/small_disk.h"

#include "support/gateway.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const char base[] = "\nconfig globals 'g'\n\toption one '1'\n\n";

class mxuci_crash_test : public gateway_test {
protected:
    mxuci_crash_test() { gateway.set_config("t", base); }

    std::string stored() const { return gateway.config("t"); }

    // Every call that writes; each must fail.
    static void expect_no_write()
    {
        char name[16] = "";
        EXPECT_NE(mxuci_set("t", "g", "one", "2"), 0);
        EXPECT_NE(mxuci_set("t", "g", "two", "2"), 0);
        EXPECT_NE(mxuci_add_list("t", "g", "many", "a"), 0);
        EXPECT_NE(mxuci_delete("t", "g", "one"), 0);
        EXPECT_NE(mxuci_del_section("t", "g"), 0);
        EXPECT_NE(mxuci_add_section("t", "device", name), 0);
    }
};

TEST_F(mxuci_crash_test, a_full_disk_leaves_the_old_file_and_no_other)
{
    const text_lines files = gateway.list_directory("/etc/config");
    small_disk disk("/etc/config");
    disk.fill();

    expect_no_write();

    EXPECT_EQ(stored(), base);
    disk.empty_again();
    EXPECT_EQ(gateway.list_directory("/etc/config"), files);
    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0) << "there is room again";
    EXPECT_EQ(gateway.uci_get("t.g.one"), "2");
}

TEST_F(mxuci_crash_test, a_disk_that_fills_in_the_middle_of_a_file_leaves_the_old_one)
{
    small_disk disk("/etc/config", 128 * 1024);
    const std::string value(200000, 'v');

    EXPECT_NE(mxuci_set("t", "g", "one", value.c_str()), 0);

    EXPECT_EQ(stored(), base);
    for (const std::string &name : gateway.list_directory("/etc/config"))
        EXPECT_FALSE(name.starts_with('.')) << name;
}

TEST_F(mxuci_crash_test, a_read_only_disk_leaves_the_old_file)
{
    small_disk disk("/etc/config");
    disk.make_read_only();

    expect_no_write();

    EXPECT_EQ(stored(), base);
    disk.make_writable();
    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
}

TEST_F(mxuci_crash_test, pending_changes_survive_a_write_that_fails)
{
    ASSERT_EQ(run_program({"uci", "set", "t.g.two=pending"}).status, 0);
    {
        small_disk disk("/etc/config");
        disk.fill();
        EXPECT_NE(mxuci_set("t", "g", "one", "2"), 0);
        disk.empty_again();
        disk.make_read_only();
        EXPECT_NE(mxuci_set("t", "g", "one", "2"), 0);
    }

    EXPECT_EQ(gateway.uci_get("t.g.two"), "pending");
    EXPECT_EQ(stored(), base);
    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption one '2'\n\toption two 'pending'\n\n");
}

TEST_F(mxuci_crash_test, mode_and_owner_are_kept)
{
    for (const unsigned mode : {0600U, 0640U, 0644U, 0666U}) {
        SCOPED_TRACE(mode);
        gateway.chmod("/etc/config/t", mode);
        const bool given = chown("/etc/config/t", 0, 0) == 0;

        EXPECT_EQ(mxuci_add_list("t", "g", "many", "a"), 0);

        EXPECT_EQ(gateway.mode("/etc/config/t"), mode);
        struct stat info = {};
        ASSERT_EQ(stat("/etc/config/t", &info), 0);
        EXPECT_TRUE(!given || info.st_uid == 0);
    }
}

TEST_F(mxuci_crash_test, a_symbolic_link_stays_one)
{
    gateway.write_file("/tmp/elsewhere/real", base);
    gateway.remove("/etc/config/t");
    fs::create_symlink("/tmp/elsewhere/real", "/etc/config/t");

    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
    EXPECT_EQ(mxuci_set("t", "g", "one", "3"), 0);

    EXPECT_TRUE(fs::is_symlink("/etc/config/t"));
    EXPECT_EQ(gateway.file("/tmp/elsewhere/real"), "\nconfig globals 'g'\n\toption one '3'\n\n");
    EXPECT_EQ(gateway.list_directory("/tmp/elsewhere"), text_lines{"real"});
}

// Writes for ever: two short options with a text between them that is long every other time.
[[noreturn]] void write_for_ever()
{
    const std::string filling(20000, 'f');
    for (unsigned i = 0;; i++) {
        const std::string value = std::to_string(i);
        (void)mxuci_set("t", "first", "number", value.c_str());
        (void)mxuci_set("t", "filling", "text", i % 2 ? filling.c_str() : "short");
        (void)mxuci_set("t", "last", "number", value.c_str());
    }
}

// Whether the file is one that the writer has written: all three sections, options in their places.
testing::AssertionResult is_whole(const std::string &text)
{
    const bool starts = text.starts_with("\nconfig section 'first'\n\toption number '");
    const bool ends = text.ends_with("'\n\n") &&
                      text.find("\nconfig section 'last'\n\toption number '") != std::string::npos;
    const bool middle = text.find("\toption text 'short'\n\n") != std::string::npos ||
                        text.find("\toption text '" + std::string(20000, 'f') + "'\n\n") != std::string::npos;
    if (starts && ends && middle)
        return testing::AssertionSuccess();
    return testing::AssertionFailure() << text.size() << " bytes: " << text.substr(0, 200);
}

TEST_F(mxuci_crash_test, a_killed_writer_leaves_a_whole_file)
{
    gateway.set_config("t", "\nconfig section 'first'\n\toption number '0'\n"
                            "\nconfig section 'filling'\n\toption text 'short'\n"
                            "\nconfig section 'last'\n\toption number '0'\n\n");
    std::string last_seen;
    unsigned changes = 0;
    constexpr int rounds = 40;
    for (int round = 0; round < rounds; round++) {
        const pid_t writer = fork();
        ASSERT_GE(writer, 0);
        if (writer == 0)
            write_for_ever();
        // Killed at another moment in each round; meanwhile the file is looked at over and over.
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(3000 + 777 * round);
        while (std::chrono::steady_clock::now() < end) {
            const std::string text = stored();
            ASSERT_TRUE(is_whole(text)) << "while it is written";
            changes += text != last_seen;
            last_seen = text;
        }
        ASSERT_EQ(kill(writer, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(writer, &status, 0), writer);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer has ended by itself";

        ASSERT_TRUE(is_whole(stored())) << "after round " << round;
        ASSERT_EQ(mxuci_set("t", "first", "number", "7"), 0) << "what the writer held is let go";
    }
    EXPECT_GT(changes, static_cast<unsigned>(rounds)) << "the writers did write";
    EXPECT_EQ(run_program({"uci", "show", "t"}).status, 0);
}

} // namespace
