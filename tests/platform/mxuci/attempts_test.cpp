// What a change does when the files change under it, and when a step of it fails: it starts again, gives up,
// or leaves everything as it was.
#include <mxuci.h>

#include "support/gateway.h"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <uci.h>

#include "platform/support/file_calls.h"

extern "C" {
int __real_uci_load(uci_context *ctx, const char *name, uci_package **package);
int __wrap_uci_load(uci_context *ctx, const char *name, uci_package **package);
}

namespace {

namespace fs = std::filesystem;

// Runs behind each load of a configuration by its name.
std::function<void()> behind_load;
// What a load by path returns instead of loading.
int refusal_by_path = UCI_OK;

} // namespace

int __wrap_uci_load(uci_context *ctx, const char *name, uci_package **package)
{
    if (name && name[0] == '/' && refusal_by_path != UCI_OK)
        return refusal_by_path;
    const int result = __real_uci_load(ctx, name, package);
    if (behind_load && name && name[0] != '/')
        behind_load();
    return result;
}

namespace {

const std::string base = "\nconfig globals 'g'\n\toption one '1'\n\n";

class mxuci_attempts_test : public gateway_test {
protected:
    mxuci_attempts_test() { gateway.set_config("t", base); }
    ~mxuci_attempts_test() override
    {
        behind_load = nullptr;
        refusal_by_path = UCI_OK;
    }

    // Runs the action behind the first load only, and counts all loads.
    void after_first_load(const std::function<void()> &action)
    {
        behind_load = [this, action] {
            if (++loads == 1)
                action();
        };
    }

    std::string stored() const { return gateway.config("t"); }

    void expect_no_temporary_file() const
    {
        for (const std::string &name : gateway.list_directory("/etc/config"))
            EXPECT_FALSE(name.starts_with('.')) << name;
    }

    int loads = 0;
    file_calls calls;
};

TEST_F(mxuci_attempts_test, a_change_is_made_again_on_what_a_neighbour_has_written_meanwhile)
{
    after_first_load([this] { gateway.set_config("t", "\nconfig globals 'g'\n\toption theirs '22'\n\n"); });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_EQ(loads, 2);
    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption theirs '22'\n\toption ours '1'\n\n");
}

TEST_F(mxuci_attempts_test, a_change_is_made_again_when_another_is_left_pending_meanwhile)
{
    after_first_load([] { EXPECT_EQ(run_program({"uci", "set", "t.g.late=1"}).status, 0); });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_EQ(loads, 3) << "what is pending is read twice";
    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption one '1'\n\toption late '1'\n\toption ours '1'\n\n");
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "");
}

TEST_F(mxuci_attempts_test, a_change_gives_up_after_a_hundred_attempts)
{
    behind_load = [this] {
        gateway.set_config("t", base + "# " + std::string(static_cast<size_t>(++loads), 'x'));
    };

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), UCI_ERR_IO);

    EXPECT_EQ(loads, 100);
    EXPECT_EQ(stored(), base + "# " + std::string(100, 'x'));
    expect_no_temporary_file();
}

// Directly behind the write, when the lock is about to be let go.
TEST_F(mxuci_attempts_test, the_name_of_an_added_section_is_not_that_of_a_neighbours)
{
    calls.at_next("rename", [this] {
        calls.at_next("fsync", [this] {
            gateway.set_config("t", gateway.config("t") + "config device 'theirs'\n");
            return 0;
        });
        return 0;
    });
    char name[16] = "";

    EXPECT_EQ(mxuci_add_section("t", "device", name), 0);

    EXPECT_STREQ(name, "cfg020f15");
    EXPECT_EQ(stored(), base + "config device\n\nconfig device 'theirs'\n");
}

TEST_F(mxuci_attempts_test, a_file_that_vanishes_meanwhile_is_not_made_anew)
{
    after_first_load([this] { gateway.remove("/etc/config/t"); });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), UCI_ERR_IO);

    EXPECT_FALSE(gateway.exists("/etc/config/t"));
    expect_no_temporary_file();
}

TEST_F(mxuci_attempts_test, pending_changes_that_do_not_apply_go_with_the_next_one_that_does)
{
    gateway.write_file("/tmp/.uci/t", "t.none.a='1'\n");

    EXPECT_EQ(mxuci_set("t", "g", "one", "1"), 0) << "no change";
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "t.none.a='1'\n");

    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "");
}

TEST_F(mxuci_attempts_test, pending_changes_that_cancel_out_do_not_undo_a_later_one)
{
    ASSERT_EQ(run_program({"uci", "set", "t.g.one=2"}).status, 0);
    ASSERT_EQ(run_program({"uci", "set", "t.g.one=1"}).status, 0);

    EXPECT_EQ(mxuci_set("t", "g", "one", "3"), 0);

    EXPECT_EQ(gateway.uci_get("t.g.one"), "3");
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "");
}

TEST_F(mxuci_attempts_test, a_pending_change_that_is_taken_back_does_not_return)
{
    ASSERT_EQ(run_program({"uci", "set", "t.g.one=2"}).status, 0);

    EXPECT_EQ(mxuci_set("t", "g", "one", "1"), 0);

    EXPECT_EQ(stored(), base);
    EXPECT_EQ(gateway.uci_get("t.g.one"), "1");
}

// Kept, they might be applied a second time.
TEST_F(mxuci_attempts_test, pending_changes_are_dropped_when_it_cannot_be_told_whether_they_apply)
{
    gateway.write_file("/tmp/.uci/t", "|t.g.many='a'\n");
    for (const int refusal : {UCI_ERR_MEM, UCI_ERR_IO}) {
        SCOPED_TRACE(refusal);
        refusal_by_path = refusal;

        EXPECT_EQ(mxuci_add_list("t", "g", "many", "b"), 0);

        EXPECT_EQ(gateway.file("/tmp/.uci/t"), "");
        EXPECT_EQ(gateway.uci_list("t.g.many"), (text_lines{"a", "b"}));
        gateway.set_config("t", base);
        gateway.write_file("/tmp/.uci/t", "|t.g.many='a'\n");
    }
}

TEST_F(mxuci_attempts_test, the_file_is_durable_before_pending_changes_are_dropped)
{
    gateway.write_file("/tmp/.uci/t", "t.g.two='2'\n");
    int syncs = 0;
    calls.at_next("ftruncate", [this, &syncs] {
        for (const std::string &call : calls.take("/etc/config"))
            syncs += call == "sync /.t.uci-" || call == "rename to /t" || call == "sync ";
        return 0;
    });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_EQ(syncs, 3);
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "");
}

TEST_F(mxuci_attempts_test, a_step_that_fails_leaves_file_and_pending_changes)
{
    gateway.write_file("/tmp/.uci/t", "t.g.two='2'\n");
    for (const char *step : {"write", "fsync", "rename"}) {
        SCOPED_TRACE(step);
        calls.fail_next(step, EIO);

        EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), UCI_ERR_IO);

        EXPECT_EQ(stored(), base);
        EXPECT_EQ(gateway.file("/tmp/.uci/t"), "t.g.two='2'\n");
        expect_no_temporary_file();
    }
}

TEST_F(mxuci_attempts_test, a_change_that_may_not_outlive_a_loss_of_power_is_a_failure)
{
    calls.at_next("rename", [this] {
        calls.fail_next("fsync", EIO);
        return 0;
    });
    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), UCI_ERR_IO);

    gateway.write_file("/tmp/.uci/t", "t.g.two='2'\n");
    calls.fail_next("ftruncate", EIO);
    EXPECT_EQ(mxuci_set("t", "g", "ours", "2"), UCI_ERR_IO) << "the pending changes are still there";
}

TEST_F(mxuci_attempts_test, short_and_interrupted_calls_go_on)
{
    calls.shorten_writes(5);
    calls.at_next("rename", [this] {
        calls.fail_next("flock", EINTR);
        return 0;
    });
    calls.fail_next("write", EINTR);

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);
    EXPECT_EQ(mxuci_set("t", "g", "more", "2"), 0);

    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption one '1'\n\toption ours '1'\n\toption more '2'\n\n");
}

TEST_F(mxuci_attempts_test, a_change_removes_what_a_stopped_writer_left)
{
    const std::string old = "/etc/config/.t.uci-aB3dE9", young = "/etc/config/.t.uci-aB3dE8";
    gateway.write_file(old, "half a configur");
    gateway.write_file(young, "half a configur");
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::minutes(2));

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_FALSE(gateway.exists(old));
    EXPECT_TRUE(gateway.exists(young)) << "its writer may be at work";
}

// The last lock of a change without pending ones is that of the file to be replaced.
void at_the_writers_lock(file_calls &calls, const std::function<int()> &action)
{
    calls.at_next("flock", [&calls, action] {
        calls.at_next("flock", action);
        return 0;
    });
}

TEST_F(mxuci_attempts_test, a_file_replaced_while_waiting_for_its_lock_is_opened_anew)
{
    at_the_writers_lock(calls, [this] {
        gateway.write_file("/etc/config/.next", "\nconfig globals 'g'\n\toption theirs '1'\n\n");
        fs::rename("/etc/config/.next", "/etc/config/t");
        return 0;
    });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption theirs '1'\n\toption ours '1'\n\n");
}

TEST_F(mxuci_attempts_test, a_file_that_cannot_be_locked_is_not_written)
{
    at_the_writers_lock(calls, [] { return ENOLCK; });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), UCI_ERR_IO);

    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_attempts_test, an_interrupted_lock_is_asked_for_again)
{
    at_the_writers_lock(calls, [] { return EINTR; });

    EXPECT_EQ(mxuci_set("t", "g", "ours", "1"), 0);

    EXPECT_EQ(gateway.uci_get("t.g.ours"), "1");
}

} // namespace
