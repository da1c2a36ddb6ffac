// The tracer sees every call that changes a file, and its word counts.
#include "faults/disk_log.h"
#include "faults/short_memory.h"
#include "faults/traced_program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>

namespace {

namespace fs = std::filesystem;
using texts = std::vector<std::string>;
using enum call_kind;

constexpr char subject_file[] = "/etc/config/subject";
constexpr char output_path[] = "/gateway/faults/output";

std::string content(const std::string &path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

class traced_program_test : public testing::Test {
protected:
    traced_program_test()
    {
        fs::create_directories("/gateway/faults");
        fs::remove(output_path);
        put_files({{subject_file, {0644, "old\n"}}});
    }

    // Runs the subject to its end. The calls that count are in `seen`.
    void run(texts words, const std::function<fate(const system_call &)> &decide = {},
             disk_log *log = nullptr)
    {
        words.insert(words.begin(), KORVEL_FAULTS_SUBJECT);
        traced_program subject(words, environment, output_path);
        subject.before_call = [&](const system_call &call) {
            if (contains(changing_calls, call.kind))
                seen.push_back(call.text());
            return decide ? decide(call) : fate{};
        };
        subject.child_fails = child_fails;
        if (log)
            subject.after_call = [&](const system_call &call, int64_t result) { log->note(call, result); };
        EXPECT_TRUE(subject.run([&] { return subject.ended(); }, 10));
        wait_status = subject.wait_status();
    }

    // The subject's fate at one call.
    static std::function<fate(const system_call &)> at(call_kind kind, fate wanted)
    {
        return [kind, wanted](const system_call &call) { return call.kind == kind ? wanted : fate{}; };
    }

    texts seen, environment;
    std::function<bool()> child_fails;
    int wait_status = -1;
};

const texts replacing = {"openat /etc/config/.subject.new",
                         "write /etc/config/.subject.new",
                         "fchmod /etc/config/.subject.new",
                         "fsync /etc/config/.subject.new",
                         "rename /etc/config/.subject.new /etc/config/subject",
                         "fsync /etc/config"};

TEST_F(traced_program_test, every_call_that_changes_a_file_is_seen_in_order)
{
    run({"replace"});
    EXPECT_EQ(replacing, seen);
    EXPECT_EQ("replaced\n", content(subject_file));
}

TEST_F(traced_program_test, what_the_c_library_does_for_its_streams_is_seen)
{
    run({"stream"});
    EXPECT_EQ((texts{"openat /etc/config/subject", "write /etc/config/subject"}), seen);
}

TEST_F(traced_program_test, temporary_files_are_seen)
{
    run({"temporary"});
    ASSERT_EQ(3U, seen.size());
    EXPECT_TRUE(seen[0].starts_with("openat /etc/config/.subject."));
    EXPECT_TRUE(seen[1].starts_with("ftruncate /etc/config/.subject."));
    EXPECT_TRUE(seen[2].starts_with("unlink /etc/config/.subject."));
}

TEST_F(traced_program_test, what_is_run_unseen_is_seen_again_from_its_wait_on)
{
    traced_program subject({KORVEL_FAULTS_SUBJECT, "replace", "events", "stream"}, {}, output_path);
    subject.before_call = [this](const system_call &call) {
        if (contains(changing_calls, call.kind))
            seen.push_back(call.text());
        return fate{};
    };
    EXPECT_TRUE(subject.run_unseen(10));
    EXPECT_FALSE(subject.ended());
    EXPECT_EQ(texts{}, seen);
    EXPECT_EQ("replaced\n", content(subject_file));

    EXPECT_TRUE(subject.run([&] { return subject.ended(); }, 10));
    EXPECT_EQ((texts{"openat /etc/config/subject", "write /etc/config/subject"}), seen);
}

// Its wait goes on by another call after the first stop.
TEST_F(traced_program_test, a_thread_that_waits_for_a_time_waits_for_events)
{
    traced_program subject({KORVEL_FAULTS_SUBJECT, "idle thread", "events", "events"}, {}, output_path);
    for (int i = 0; i < 2; i++) {
        const time_t begun = time(nullptr);
        EXPECT_TRUE(subject.run_unseen(30));
        EXPECT_FALSE(subject.ended());
        EXPECT_LT(time(nullptr), begun + 20);
    }
    EXPECT_TRUE(subject.run([&] { return subject.ended(); }, 10));
}

// What a call names can then no longer be read.
TEST_F(traced_program_test, threads_may_be_ended_in_the_middle_of_a_call)
{
    for (int i = 0; i < 100; i++) {
        traced_program subject({KORVEL_FAULTS_SUBJECT, "searching threads", "stream"}, {}, output_path);
        EXPECT_TRUE(subject.run([&] { return subject.ended(); }, 10));
    }
}

TEST_F(traced_program_test, threads_are_watched_and_children_are_not)
{
    run({"thread", "children"});
    EXPECT_EQ(
        (texts{"clone3", "openat /etc/config/subject", "write /etc/config/subject", "clone3", "clone3"}),
        seen);
    EXPECT_EQ("child\n", content("/etc/config/child"));
    EXPECT_EQ("system 0\npopen words\n", content(output_path));
}

TEST_F(traced_program_test, a_call_that_nobody_listed_ends_the_try)
{
    EXPECT_THROW(run({"unheard-of"}), std::runtime_error);
}

TEST_F(traced_program_test, killed_before_a_call_means_that_it_was_not_made)
{
    for (size_t n = 0; n < replacing.size(); n++) {
        SCOPED_TRACE(replacing[n]);
        put_files({{subject_file, {0644, "old\n"}}});
        size_t count = 0;
        run({"replace"}, [&](const system_call &call) {
            return contains(changing_calls, call.kind) && count++ == n ? fate{fate::kill} : fate{};
        });
        EXPECT_TRUE(WIFSIGNALED(wait_status) && WTERMSIG(wait_status) == SIGKILL);
        EXPECT_EQ(n > 4 ? "replaced\n" : "old\n", content(subject_file));
        EXPECT_EQ(n > 0 && n <= 4, fs::exists("/etc/config/.subject.new"));
        EXPECT_EQ(n > 1 && n <= 4 ? "replaced\n" : "", content("/etc/config/.subject.new"));
    }
}

TEST_F(traced_program_test, a_refused_call_fails_with_the_error)
{
    run({"stream"}, at(open_to_create, {fate::refuse, ENOSPC}));
    EXPECT_EQ("open: No space left on device\n", content(output_path));
    EXPECT_EQ("old\n", content(subject_file));
}

TEST_F(traced_program_test, a_call_that_is_left_out_seems_to_succeed)
{
    run({"replace"}, at(rename, {fate::leave_out}));
    EXPECT_EQ("", content(output_path));
    EXPECT_EQ("old\n", content(subject_file));
    EXPECT_EQ("replaced\n", content("/etc/config/.subject.new"));
}

TEST_F(traced_program_test, a_child_that_cannot_start_is_none)
{
    run({"children"}, at(child, {fate::refuse, EAGAIN}));
    EXPECT_FALSE(fs::exists("/etc/config/child"));
    EXPECT_EQ("system 127\npopen none\n", content(output_path));
}

TEST_F(traced_program_test, a_child_that_fails_does_nothing_and_ends_with_1)
{
    bool first = true;
    child_fails = [&first] { return std::exchange(first, false); };
    run({"children"});
    EXPECT_FALSE(fs::exists("/etc/config/child"));
    EXPECT_EQ("system 1\npopen words\n", content(output_path));
}

TEST_F(traced_program_test, a_sleep_that_is_left_out_takes_no_time)
{
    run({"sleep"}, at(call_kind::sleep, {fate::leave_out}));
    EXPECT_TRUE(WIFEXITED(wait_status));
}

TEST_F(traced_program_test, the_chosen_allocation_fails)
{
    const short_memory page = {1, 0, 2, 2};
    std::ofstream(short_memory_page, std::ios::binary)
        .write(reinterpret_cast<const char *>(&page), sizeof(page));
    environment = {"LD_PRELOAD=" KORVEL_SHORT_MEMORY};
    run({"allocate"});
    EXPECT_EQ("1 got\n2 none\n3 got\n", content(output_path));
}

// What a file may hold after a power cut.
std::set<std::string> contents_after(const std::vector<disk_log::remains> &all,
                                     const std::string &path = subject_file)
{
    std::set<std::string> contents;
    for (const disk_log::remains &left : all)
        contents.insert(left.files.contains(path) ? left.files.at(path).content : "(none)");
    return contents;
}

TEST_F(traced_program_test, a_careful_replacement_survives_every_power_cut)
{
    disk_log log(take_files());
    run({"replace"}, {}, &log);
    EXPECT_EQ(2U, log.syncs());
    EXPECT_EQ((std::set<std::string>{"old\n", "replaced\n"}), contents_after(log.all_remains()));
    EXPECT_EQ(take_files(), log.all_remains().back().files);
}

TEST_F(traced_program_test, a_file_that_is_cut_by_its_name_is_noted)
{
    disk_log log(take_files());
    run({"cut"}, {}, &log);
    EXPECT_EQ((std::set<std::string>{"old\n", "o"}), contents_after(log.all_remains()));
}

TEST_F(traced_program_test, before_its_sync_a_file_may_be_there_in_part)
{
    disk_log log(take_files());
    run({"replace"}, {}, &log);
    EXPECT_EQ((std::set<std::string>{"(none)", "", "repl", "replaced\n"}),
              contents_after(log.all_remains(), "/etc/config/.subject.new"));
}

// What a file may hold after a power cut when the subject is done.
std::set<std::string> contents_when_done(disk_log &log, const std::string &path = subject_file)
{
    log.note_answer();
    std::vector<disk_log::remains> answered = log.all_remains();
    std::erase_if(answered, [](const disk_log::remains &left) { return !left.answered; });
    return contents_after(answered, path);
}

TEST_F(traced_program_test, only_the_sync_of_the_directory_holds_a_name)
{
    disk_log whole(take_files());
    run({"replace"}, {}, &whole);
    EXPECT_EQ(std::set<std::string>{"replaced\n"}, contents_when_done(whole));

    put_files({{subject_file, {0644, "old\n"}}});
    disk_log log(take_files());
    size_t syncs = 0;
    const auto second_sync = [&syncs](const system_call &call) {
        return call.kind == sync && ++syncs == 2 ? fate{fate::leave_out} : fate{};
    };
    run({"replace"}, second_sync, &log);
    EXPECT_EQ((std::set<std::string>{"old\n", "replaced\n"}), contents_when_done(log));
}

TEST_F(traced_program_test, the_sync_of_a_new_file_does_not_hold_its_name)
{
    disk_log log(take_files());
    run({"replace"}, at(call_kind::rename, {fate::kill}), &log);
    EXPECT_EQ((std::set<std::string>{"(none)", "replaced\n"}),
              contents_when_done(log, "/etc/config/.subject.new"));
}

TEST_F(traced_program_test, a_replacement_without_its_sync_does_not)
{
    disk_log log(take_files());
    run({"replace"}, at(sync, {fate::leave_out}), &log);
    EXPECT_EQ((std::set<std::string>{"old\n", "", "repl", "replaced\n"}), contents_after(log.all_remains()));
}

TEST_F(traced_program_test, a_file_written_in_place_does_not_survive_a_power_cut)
{
    disk_log log(take_files());
    run({"stream"}, {}, &log);
    const std::set<std::string> contents = contents_after(log.all_remains());
    EXPECT_TRUE(contents.contains("") && contents.contains("old\n") && contents.contains("streamed\n"));
}

} // namespace
