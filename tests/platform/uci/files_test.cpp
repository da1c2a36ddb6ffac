// How the library handles its files: which locks it takes, in which order it makes things durable, and what
// is left when one of the steps fails.
#include "platform/uci/fixture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>

#include <unistd.h>

#include "platform/support/file_calls.h"

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

class uci_files_test : public uci_base_test {
protected:
    // Changes "n" in memory.
    uci_package *changed()
    {
        uci_ptr ptr = named("n", "lan", "a", "1");
        EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
        return ptr.p;
    }

    strings files() const
    {
        strings names;
        for (const fs::directory_entry &entry : fs::directory_iterator(config_dir))
            names.push_back(entry.path().filename());
        return names;
    }

    file_calls calls;
};

TEST_F(uci_files_test, a_load_locks_file_and_delta_against_writers)
{
    write_delta("n.lan.a='1'\n");

    load();

    EXPECT_EQ(calls.take(root), (strings{"lock shared /config/n", "lock shared /save/n"}));
}

TEST_F(uci_files_test, a_save_locks_the_delta_against_everybody)
{
    uci_package *const p = changed();
    calls.take(root);

    EXPECT_EQ(uci_save(ctx, p), UCI_OK);

    EXPECT_EQ(calls.take(root), strings{"lock exclusively /save/n"});
}

TEST_F(uci_files_test, a_commit_empties_the_delta_only_after_the_new_file_is_durable)
{
    uci_package *p = changed();
    calls.take(root);

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_EQ(calls.take(root),
              (strings{"lock exclusively /config/n", "lock exclusively /save/n", "lock exclusively /save/n",
                       "sync /config/.n.uci-", "rename to /config/n", "sync /config", "truncate /save/n"}));
}

TEST_F(uci_files_test, a_revert_replaces_the_delta_as_a_whole)
{
    quietly({"set n.lan.a=1", "set n.lan.b=1"});
    uci_ptr ptr = named("n", "lan", "a");

    EXPECT_EQ(uci_revert(ctx, &ptr), UCI_OK);

    const strings done = calls.take(root);
    const strings replaced = {"lock exclusively /save/n", "sync /save/.n.uci-", "rename to /save/n",
                              "sync /save"};
    EXPECT_NE(std::search(done.begin(), done.end(), replaced.begin(), replaced.end()), done.end());
    EXPECT_EQ(delta(), "n.lan.b='1'\n");
}

TEST_F(uci_files_test, a_commit_whose_file_cannot_be_replaced_keeps_file_and_delta)
{
    for (const char *step : {"write", "fsync", "rename"}) {
        SCOPED_TRACE(step);
        write_config(base_config);
        write_delta("n.lan.a='1'\n");
        const context_owner own = new_context();
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(own.get(), "n", &p), UCI_OK);
        calls.fail_next(step, EIO);

        EXPECT_EQ(uci_commit(own.get(), &p, false), UCI_ERR_IO);

        EXPECT_EQ(error_text(own.get()), "p: I/O error");
        EXPECT_EQ(config(), base_config);
        EXPECT_EQ(delta(), "n.lan.a='1'\n");
        EXPECT_EQ(files(), strings{"n"});
    }
}

TEST_F(uci_files_test, a_commit_that_cannot_empty_the_delta_says_so)
{
    uci_package *p = changed();
    calls.fail_next("ftruncate", EIO);

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_ERR_IO);

    EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
}

TEST_F(uci_files_test, a_directory_that_has_nothing_to_sync_is_no_failure)
{
    const std::pair<int, int> cases[] = {{EINVAL, UCI_OK}, {EIO, UCI_ERR_IO}};
    for (const auto &[error, result] : cases) {
        SCOPED_TRACE(error);
        write_config(base_config);
        uci_package *p = changed();
        calls.at_next("rename", [this, refusal = error] {
            calls.fail_next("fsync", refusal);
            return 0;
        });

        EXPECT_EQ(uci_commit(ctx, &p, false), result);

        uci_unload(ctx, p);
    }
}

TEST_F(uci_files_test, interrupted_and_short_calls_go_on)
{
    uci_package *p = changed();
    calls.shorten_writes(7);
    calls.fail_next("flock", EINTR);
    calls.fail_next("write", EINTR);

    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
    calls.fail_next("write", EINTR);
    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_NE(config()->find("\toption proto 'static'\n\toption a '1'\n\nconfig device\n"),
              std::string::npos);
}

TEST_F(uci_files_test, what_cannot_be_locked_is_neither_read_nor_written)
{
    calls.fail_next("flock", ENOLCK);
    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_IO);

    uci_package *p = changed();
    calls.fail_next("flock", ENOLCK);
    EXPECT_EQ(uci_save(ctx, p), UCI_ERR_IO);
    calls.fail_next("flock", ENOLCK);
    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_ERR_IO);
    EXPECT_EQ(delta(), "");
    EXPECT_EQ(config(), base_config);

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK) << "the change is still in memory";
    EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
}

// ---- temporary files of writers that were stopped ----

void make_file_aged(const std::string &path, std::chrono::seconds age)
{
    std::ofstream(path) << "half a configur";
    fs::last_write_time(path, fs::file_time_type::clock::now() - age);
}

TEST_F(uci_files_test, a_commit_removes_what_a_stopped_writer_left)
{
    expect_in_child([this] {
        uci_package *p = changed();
        calls.at_next("rename", []() -> int { _exit(0); });
        uci_commit(ctx, &p, false);
        ADD_FAILURE() << "the writer was not stopped";
    });
    ASSERT_EQ(files().size(), 2U);
    for (const fs::directory_entry &entry : fs::directory_iterator(config_dir))
        fs::last_write_time(entry, fs::file_time_type::clock::now() - std::chrono::minutes(2));
    uci_package *p = changed();

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_EQ(files(), strings{"n"});
}

TEST_F(uci_files_test, a_commit_removes_nothing_but_old_temporary_files_of_its_own_file)
{
    const strings kept = {
        ".n.uci-youngX", ".n.uci-aB3dE",  ".n.uci-aB3dE9x",
        ".n.uci-aB3d-9", ".m.uci-aB3dE9", ".nn.uci-aB3dE9",
        ".n.bak-aB3dE9", "n.uci-aB3dE9",  ".n",
        ".n.uci-direct",
    };
    for (const std::string &name : kept)
        make_file_aged(config_path(name), std::chrono::seconds(name == ".n.uci-youngX" ? 40 : 80));
    fs::remove(config_path(".n.uci-direct"));
    fs::create_directory(config_path(".n.uci-direct"));
    fs::last_write_time(config_path(".n.uci-direct"),
                        fs::file_time_type::clock::now() - std::chrono::hours(1));
    make_file_aged(config_path(".n.uci-aB3dE9"), std::chrono::seconds(80));
    uci_package *p = changed();

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_FALSE(fs::exists(config_path(".n.uci-aB3dE9")));
    for (const std::string &name : kept)
        EXPECT_TRUE(fs::exists(config_path(name))) << name;
}

TEST_F(uci_files_test, temporary_files_are_beside_what_a_link_points_to)
{
    fs::create_directory(root + "/elsewhere");
    fs::rename(config_path(), root + "/elsewhere/real");
    fs::create_symlink("../elsewhere/real", config_path());
    make_file_aged(root + "/elsewhere/.real.uci-aB3dE9", std::chrono::minutes(2));
    uci_package *p = changed();

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_FALSE(fs::exists(root + "/elsewhere/.real.uci-aB3dE9"));
}

// Whoever waits for a lock may get it on a file that has been replaced meanwhile.
TEST_F(uci_files_test, a_file_replaced_while_waiting_for_its_lock_is_opened_anew)
{
    write(root + "/next", "config interface 'lan'\n\toption proto 'theirs'\n");
    calls.at_next("flock", [this] {
        fs::rename(root + "/next", config_path());
        return 0;
    });

    uci_package *const p = load();

    EXPECT_STREQ(uci_lookup_option_string(ctx, uci_lookup_section(ctx, p, "lan"), "proto"), "theirs");
    EXPECT_EQ(calls.take(root), (strings{"lock shared /config/n", "lock shared /config/n"}));
}

TEST_F(uci_files_test, a_file_removed_while_waiting_for_its_lock_is_missing)
{
    calls.at_next("flock", [this] {
        fs::remove(config_path());
        return 0;
    });

    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_NOTFOUND);
}

} // namespace
