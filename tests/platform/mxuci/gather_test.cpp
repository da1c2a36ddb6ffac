// Gathered calls: they change nothing until they are put into place together, and they say the same as calls
// that are made one by one.
#include <mxuci.h>
#include <mxuci_gather.h>

#include "support/gateway.h"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <thread>
#include <uci.h>

#include "platform/support/file_calls.h"

extern "C" {
int __real_uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header);
int __wrap_uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header);
}

namespace {

namespace fs = std::filesystem;

// What an export loses of its text, without saying so: its end, at the cost of an option's value.
bool exports_lose = false;

} // namespace

int __wrap_uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header)
{
    if (!exports_lose)
        return __real_uci_export(ctx, stream, package, header);
    (void)fputs("\nconfig globals 'g'\n\n", stream);
    return UCI_OK;
}

namespace {

constexpr char suffix[] = ".test-XXXXXX";

const std::string base = "\nconfig globals 'g'\n\toption one '1'\n\tlist many 'a'\n"
                         "\nconfig device\n\toption name 'first'\n"
                         "\nconfig device\n\toption name 'second'\n\n";

class mxuci_gather_test : public gateway_test {
protected:
    mxuci_gather_test()
    {
        gateway.set_config("t", base);
        gateway.set_config("u", base);
    }
    ~mxuci_gather_test() override
    {
        exports_lose = false;
        mxuci_gather_end();
    }

    std::string stored(const std::string &config = "t") const { return gateway.config(config); }

    std::vector<mxuci_staged> stage(int expected_result = UCI_OK)
    {
        std::vector<mxuci_staged> staged(8);
        int count = -1;
        EXPECT_EQ(expected_result, mxuci_gather_stage(suffix, staged.data(), 8, &count));
        staged.resize(static_cast<size_t>(count));
        return staged;
    }

    // Locks and renames; whether nobody had written meanwhile.
    static bool put_into_place(const std::vector<mxuci_staged> &files)
    {
        bool all_unchanged = true;
        for (const mxuci_staged &file : files) {
            bool unchanged = false;
            EXPECT_EQ(0, mxuci_gather_lock(file.config, &unchanged));
            all_unchanged = all_unchanged && unchanged;
        }
        for (const mxuci_staged &file : files) {
            if (all_unchanged && file.temporary[0] != '\0')
                fs::rename(file.temporary, file.target);
            if (all_unchanged && file.delta[0] != '\0')
                fs::resize_file(file.delta, 0);
            mxuci_gather_placed(file.config);
        }
        return all_unchanged;
    }

    static std::string read(const char *config, const char *section, const char *option)
    {
        char value[64] = "nothing";
        (void)mxuci_get(config, section, option, value, sizeof(value));
        return value;
    }

    text_lines temporaries() const
    {
        text_lines names = gateway.list_directory("/etc/config");
        std::erase_if(names, [](const std::string &name) { return !name.starts_with('.'); });
        return names;
    }

    file_calls calls;
};

TEST_F(mxuci_gather_test, calls_see_each_other_and_nothing_is_written_until_they_are_put_into_place)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    EXPECT_EQ(0, mxuci_add_list("t", "g", "many", "b"));
    EXPECT_EQ(0, mxuci_set("u", "@device[1]", "name", "changed"));
    EXPECT_EQ("2", read("t", "g", "one"));
    EXPECT_EQ("a b", read("t", "g", "many"));
    int count = 0;
    EXPECT_EQ(0, mxuci_total_list("t", "g", "many", &count));
    EXPECT_EQ(2, count);
    EXPECT_EQ(text_lines{}, [this] {
        text_lines writes = calls.take("/etc/config");
        std::erase_if(writes, [](const std::string &call) { return call.starts_with("lock shared"); });
        return writes;
    }());

    const auto staged = stage();
    EXPECT_EQ(base, stored("t"));
    EXPECT_EQ(base, stored("u"));
    EXPECT_TRUE(put_into_place(staged));

    EXPECT_EQ("\nconfig globals 'g'\n\toption one '2'\n\tlist many 'a'\n\tlist many 'b'\n",
              stored("t").substr(0, stored("t").find("\nconfig device")));
    EXPECT_EQ("changed", gateway.uci_get("u.@device[1].name"));
    mxuci_gather_end();
    EXPECT_EQ("2", read("t", "g", "one"));
    EXPECT_EQ(text_lines{}, temporaries());
}

TEST_F(mxuci_gather_test, what_is_not_staged_has_not_happened)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_del_section("t", "g"));
    EXPECT_NE(0, mxuci_gather_begin()) << "one at most";
    mxuci_gather_end();

    EXPECT_EQ(base, stored());
    EXPECT_EQ("1", read("t", "g", "one"));
    mxuci_gather_end();
}

// Each call with what it returns, made one by one and gathered, must say the same and leave the same file.
TEST_F(mxuci_gather_test, every_call_says_and_leaves_the_same_as_by_itself)
{
    char name[16] = "";
    const std::vector<std::function<int()>> all = {
        [] { return mxuci_set("t", "g", "one", "2"); },
        [] { return mxuci_set("t", "g", "new", "it's"); },
        [] { return mxuci_set("t", "g", "one", ""); },
        [] { return mxuci_set("t", "none", "one", "2"); },
        [] { return mxuci_set("none", "g", "one", "2"); },
        [] { return mxuci_set("t", "@device[-1]", "name", "last"); },
        [] { return mxuci_add_list("t", "g", "fresh", "x"); },
        [] { return mxuci_add_list("t", "@device[7]", "fresh", "x"); },
        [] { return mxuci_del_list("t", "g", "many", "a"); },
        [] { return mxuci_delete("t", "g", "many"); }, // gone with its last value
        [] { return mxuci_del_list("t", "g", "many", "a"); },
        [&] { return name[0] = '\0', mxuci_add_section("t", "device", name); },
        [&] { return mxuci_set("t", name, "name", "third"); },
        [] { return mxuci_del_section("t", "@device[0]"); },
        [] { return mxuci_del_section("t", "@device[5]"); },
        [] {
            char given[16] = "wan_1";
            return mxuci_add_section("t", "interface", given);
        },
        [] { return mxuci_set("t", "wan_1", "proto", "dhcp"); },
        [] { return mxuci_delete("t", "wan_1", "none"); },
        [] { return mxuci_set("t", "bad-name", "one", "2"); },
        [] { return mxuci_get("t", "g", "many", nullptr, 0); },
    };
    std::vector<int> single, gathered;
    for (const auto &call : all)
        single.push_back(call());
    const std::string wanted = stored();
    gateway.set_config("t", base);

    ASSERT_EQ(0, mxuci_gather_begin());
    for (const auto &call : all)
        gathered.push_back(call());
    EXPECT_EQ(0, mxuci_gather_failure().code);
    EXPECT_TRUE(put_into_place(stage()));

    EXPECT_EQ(single, gathered);
    EXPECT_EQ(wanted, stored());
    EXPECT_NE(base, wanted);
}

TEST_F(mxuci_gather_test, generated_names_hold_while_others_before_them_are_deleted)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    char name[16] = "";
    EXPECT_EQ(0, mxuci_add_section("t", "device", name));
    EXPECT_STREQ("cfg040f15", name);
    EXPECT_EQ(0, mxuci_del_section("t", "cfg020f15"));
    EXPECT_EQ("second", read("t", "cfg030f15", "name"));
    EXPECT_EQ(0, mxuci_set("t", name, "name", "new"));

    EXPECT_TRUE(put_into_place(stage()));
    EXPECT_EQ(0, mxuci_set("t", name, "name", "newer")) << "also across a stage";

    EXPECT_TRUE(put_into_place(stage()));
    EXPECT_EQ("newer", gateway.uci_get("t.@device[1].name"));
}

TEST_F(mxuci_gather_test, a_view_is_the_gathered_configuration_itself)
{
    uci_context *context = nullptr;
    uci_package *package = nullptr;
    EXPECT_EQ(UCI_ERR_INVAL, mxuci_gather_view("t", &context, &package));
    ASSERT_EQ(0, mxuci_gather_begin());

    ASSERT_EQ(0, mxuci_gather_view("t", &context, &package));
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));

    uci_section *const section = uci_lookup_section(context, package, "g");
    ASSERT_NE(nullptr, section);
    EXPECT_STREQ("2", uci_lookup_option_string(context, section, "one"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, mxuci_gather_view("none", &context, &package));
    EXPECT_EQ(nullptr, package);
    EXPECT_EQ(0, mxuci_gather_failure().code);
}

TEST_F(mxuci_gather_test, each_configuration_is_loaded_once)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ("1", read("t", "g", "one"));
    gateway.set_config("t", "\nconfig globals 'g'\n\toption one '7'\n");
    gateway.set_config("late", base);

    EXPECT_EQ("1", read("t", "g", "one"));
    EXPECT_EQ("1", read("late", "g", "one"));
}

TEST_F(mxuci_gather_test, a_configuration_that_is_not_there_stays_so_until_the_end)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ("nothing", read("late", "g", "one"));
    gateway.set_config("late", base);

    EXPECT_EQ("nothing", read("late", "g", "one"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, mxuci_set("late", "g", "one", "2"));
}

TEST_F(mxuci_gather_test, other_threads_are_not_gathering)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));

    std::thread([] { EXPECT_EQ(0, mxuci_set("u", "g", "one", "3")); }).join();
    std::thread([] { EXPECT_EQ("1", read("t", "g", "one")); }).join();

    EXPECT_EQ("3", gateway.uci_get("u.g.one"));
    EXPECT_EQ(base, stored("t"));
}

TEST_F(mxuci_gather_test, staged_files_are_whole_and_look_like_what_they_replace)
{
    gateway.chmod("/etc/config/t", 0640);
    gateway.chmod("/etc/config/u", 0600);
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("u", "g", "one", "2"));
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "3"));
    (void)calls.take("/etc/config");

    const auto staged = stage();

    ASSERT_EQ(2U, staged.size());
    EXPECT_STREQ("t", staged[0].config) << "in the order of their names";
    EXPECT_STREQ("u", staged[1].config);
    EXPECT_STREQ("/etc/config/t", staged[0].target);
    EXPECT_STREQ("", staged[0].delta);
    EXPECT_TRUE(std::string(staged[0].temporary).starts_with("/etc/config/.t.test-"));
    EXPECT_EQ(0640U, gateway.mode(staged[0].temporary));
    EXPECT_EQ(0600U, gateway.mode(staged[1].temporary));
    EXPECT_EQ("\nconfig globals 'g'\n\toption one '3'\n", gateway.file(staged[0].temporary).substr(0, 36));
    EXPECT_EQ(text_lines{}, calls.take("/etc/config")) << "syncing is for the caller";
    EXPECT_TRUE(put_into_place(staged));
}

TEST_F(mxuci_gather_test, a_file_that_would_not_change_is_not_staged_for_replacement)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "1"));
    EXPECT_EQ("1", read("u", "g", "one"));
    EXPECT_NE(0, mxuci_set("u", "none", "one", "1"));

    const auto staged = stage();

    ASSERT_EQ(1U, staged.size());
    EXPECT_STREQ("", staged[0].temporary);
    EXPECT_EQ(text_lines{}, temporaries());
    EXPECT_EQ(0U, stage().size()) << "what is staged has not changed since";
}

// The file is still the old one when the second stage is written, but will not be when that is put into
// place.
TEST_F(mxuci_gather_test, a_stage_that_takes_the_one_before_back_is_staged_for_replacement)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    const auto first = stage();
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "1"));
    const auto second = stage();

    ASSERT_EQ(1U, second.size());
    EXPECT_TRUE(put_into_place(first));
    EXPECT_NE(base, stored());
    EXPECT_TRUE(put_into_place(second));
    EXPECT_EQ(base, stored());
}

TEST_F(mxuci_gather_test, a_link_stays_one_and_its_file_is_replaced_where_it_is)
{
    gateway.write_file("/tmp/elsewhere/real", base);
    gateway.remove("/etc/config/t");
    fs::create_symlink("/tmp/elsewhere/real", "/etc/config/t");
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));

    const auto staged = stage();

    ASSERT_EQ(1U, staged.size());
    EXPECT_STREQ("/tmp/elsewhere/real", staged[0].target);
    EXPECT_TRUE(put_into_place(staged));
    EXPECT_TRUE(fs::is_symlink("/etc/config/t"));
    EXPECT_EQ("2", gateway.uci_get("t.g.one"));
}

TEST_F(mxuci_gather_test, what_others_left_pending_is_part_of_it_and_named)
{
    ASSERT_EQ(0, run_program({"uci", "set", "t.g.theirs=1"}).status);
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ("1", read("t", "g", "theirs"));
    EXPECT_EQ(0, mxuci_set("t", "g", "ours", "1"));

    const auto staged = stage();

    ASSERT_EQ(1U, staged.size());
    EXPECT_STREQ("/tmp/.uci/t", staged[0].delta);
    EXPECT_NE("", gateway.file("/tmp/.uci/t"));
    EXPECT_TRUE(put_into_place(staged));
    EXPECT_EQ("1", gateway.uci_get("t.g.theirs"));
    EXPECT_EQ("1", gateway.uci_get("t.g.ours"));

    EXPECT_EQ(0, mxuci_set("t", "g", "ours", "2"));
    const auto second = stage();
    ASSERT_EQ(1U, second.size());
    EXPECT_STREQ("", second[0].delta) << "once is enough";
}

// libuci passes over what it cannot lock.
TEST_F(mxuci_gather_test, pending_changes_that_cannot_be_read_are_not_lost)
{
    ASSERT_EQ(0, run_program({"uci", "set", "t.g.theirs=1"}).status);
    for (const bool gathered : {true, false}) {
        SCOPED_TRACE(gathered);
        calls.at_next("flock", [this] { return calls.fail_next("flock", EIO), 0; });
        if (gathered) {
            ASSERT_EQ(0, mxuci_gather_begin());
        }

        EXPECT_EQ(UCI_ERR_IO, mxuci_set("t", "g", "ours", "1"));

        mxuci_gather_end();
        EXPECT_NE("", gateway.file("/tmp/.uci/t"));
        EXPECT_EQ(base, stored());
    }
}

TEST_F(mxuci_gather_test, pending_changes_that_do_not_apply_stay_until_something_changes)
{
    gateway.write_file("/tmp/.uci/t", "t.none.a='1'\n");
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "1"));
    EXPECT_STREQ("", stage().at(0).delta);
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    EXPECT_STREQ("/tmp/.uci/t", stage().at(0).delta);
}

TEST_F(mxuci_gather_test, a_neighbour_is_noticed_when_the_files_are_locked)
{
    const std::pair<const char *, std::function<void()>> neighbours[] = {
        {"a commit",
         [] {
             EXPECT_EQ(0, run_program({"busybox", "ash", "-c", "uci set t.g.x=1; uci commit t"}).status);
         }},
        {"a pending change",
         [] {
             EXPECT_EQ(0, run_program({"uci", "set", "t.g.x=2"}).status);
         }},
        {"an editor",
         [this] {
             gateway.write_file("/etc/config/.next", base);
             fs::rename("/etc/config/.next", "/etc/config/t");
         }},
        {"another mode", [this] { gateway.chmod("/etc/config/t", 0600); }},
    };
    for (const auto &[trace, disturb] : neighbours) {
        SCOPED_TRACE(trace);
        ASSERT_EQ(0, mxuci_gather_begin());
        EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
        const auto staged = stage();
        disturb();

        EXPECT_FALSE(put_into_place(staged));

        mxuci_gather_end();
        for (const std::string &name : temporaries())
            gateway.remove("/etc/config/" + name);
    }
}

TEST_F(mxuci_gather_test, locked_files_keep_writers_out_until_they_are_in_place)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    const auto staged = stage();
    bool unchanged = false;
    ASSERT_EQ(0, mxuci_gather_lock("t", &unchanged));
    EXPECT_TRUE(unchanged);

    child_process beside({"busybox", "ash", "-c", "uci set t.g.beside=1; uci commit t"});
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(base, stored());
    fs::rename(staged.at(0).temporary, staged.at(0).target);
    mxuci_gather_placed("t");

    EXPECT_EQ(0, beside.wait(std::chrono::seconds(10)));
    EXPECT_EQ("2", gateway.uci_get("t.g.one"));
    EXPECT_EQ("1", gateway.uci_get("t.g.beside"));
}

TEST_F(mxuci_gather_test, a_file_that_vanished_cannot_be_locked)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    (void)stage();
    gateway.remove("/etc/config/t");
    bool unchanged = true;

    EXPECT_EQ(UCI_ERR_IO, mxuci_gather_lock("t", &unchanged));

    EXPECT_FALSE(unchanged);
    EXPECT_EQ(ENOENT, mxuci_gather_failure().reason);
    EXPECT_STREQ("t", mxuci_gather_failure().config);
}

TEST_F(mxuci_gather_test, what_is_not_there_is_no_failure_and_what_cannot_be_read_is)
{
    gateway.set_config("broken", "config device\n\toption 'unfinished\n");
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(UCI_ERR_NOTFOUND, mxuci_del_section("t", "none"));
    EXPECT_EQ(UCI_ERR_NOTFOUND, mxuci_del_list("none", "g", "one", "1"));
    EXPECT_EQ(UCI_ERR_INVAL, mxuci_set("t", "", "one", "1"));
    EXPECT_EQ(0, mxuci_gather_failure().code);

    EXPECT_EQ(UCI_ERR_PARSE, mxuci_set("broken", "g", "one", "1"));

    EXPECT_EQ(UCI_ERR_PARSE, mxuci_gather_failure().code);
    EXPECT_STREQ("broken", mxuci_gather_failure().config);
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    (void)stage(UCI_ERR_PARSE);
    EXPECT_EQ(text_lines{}, temporaries());
}

TEST_F(mxuci_gather_test, a_step_of_staging_that_fails_leaves_nothing_and_is_told)
{
    for (const bool second : {false, true}) {
        SCOPED_TRACE(second);
        ASSERT_EQ(0, mxuci_gather_begin());
        EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
        EXPECT_EQ(0, mxuci_set("u", "g", "one", "2"));
        if (second)
            calls.at_next("write", [this] { return calls.fail_next("write", ENOSPC), 0; });
        else
            calls.fail_next("write", ENOSPC);

        (void)stage(UCI_ERR_IO);

        EXPECT_EQ(UCI_ERR_IO, mxuci_gather_failure().code);
        EXPECT_EQ(ENOSPC, mxuci_gather_failure().reason);
        EXPECT_STREQ(second ? "u" : "t", mxuci_gather_failure().config);
        EXPECT_EQ(text_lines{}, temporaries());
        mxuci_gather_end();
    }
    EXPECT_EQ(base, stored("t"));
    EXPECT_EQ(base, stored("u"));
}

TEST_F(mxuci_gather_test, content_that_does_not_read_back_as_what_was_meant_replaces_nothing)
{
    exports_lose = true;
    EXPECT_NE(0, mxuci_set("t", "g", "one", "2")) << "neither by a single call";
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));

    (void)stage(UCI_ERR_UNKNOWN);

    EXPECT_EQ(base, stored());
    EXPECT_EQ(text_lines{}, temporaries());
    EXPECT_STREQ("t", mxuci_gather_failure().config);
}

TEST_F(mxuci_gather_test, more_configurations_than_there_is_room_for_are_a_failure)
{
    ASSERT_EQ(0, mxuci_gather_begin());
    EXPECT_EQ(0, mxuci_set("t", "g", "one", "2"));
    EXPECT_EQ(0, mxuci_set("u", "g", "one", "2"));
    mxuci_staged only = {};
    int count = -1;
    EXPECT_EQ(UCI_ERR_MEM, mxuci_gather_stage(suffix, &only, 1, &count));
    EXPECT_EQ(0, count);
    EXPECT_EQ(text_lines{}, temporaries());
    mxuci_gather_end();

    ASSERT_EQ(0, mxuci_gather_begin());
    for (int i = 0; i < 9; i++) {
        const std::string name = "c" + std::to_string(i);
        gateway.set_config(name, base);
        EXPECT_EQ(i < 8 ? 0 : UCI_ERR_MEM, mxuci_set(name.c_str(), "g", "one", "2"));
    }
    EXPECT_EQ(UCI_ERR_MEM, mxuci_gather_failure().code);
}

} // namespace
