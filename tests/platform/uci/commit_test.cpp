// Commits: what they take along, what they leave alone, and that nothing is lost when writing fails, a writer
// dies or several write at once.
#include "platform/uci/fixture.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/support/private_mounts.h"

namespace {

namespace fs = std::filesystem;

class uci_commit_test : public uci_base_test {
protected:
    // Sets lan.NAME, with nothing of n loaded before.
    static int set_and_commit(uci_context *context, const std::string &name, const std::string &value)
    {
        uci_ptr ptr = named("n", "lan", name.c_str(), value.c_str());
        int code = uci_set(context, &ptr);
        if (code == UCI_OK)
            code = uci_commit(context, &ptr.p, false);
        if (ptr.p)
            uci_unload(context, ptr.p);
        return code;
    }

    // The names in the configuration directory, temporary files included.
    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const fs::directory_entry &entry : fs::directory_iterator(config_dir))
            names.push_back(entry.path().filename());
        return names;
    }
};

// ---- what a commit does ----

TEST_F(uci_commit_test, a_commit_goes_on_top_of_what_others_wrote)
{
    uci_ptr ptr = named("n", "lan", "proto", "mine");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    write_config("config interface 'lan'\n\toption proto 'other'\n\toption mtu '9'\n");

    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_EQ(config(), "\nconfig interface 'lan'\n\toption proto 'mine'\n\toption mtu '9'\n\n");
}

TEST_F(uci_commit_test, a_file_that_does_not_parse_is_never_overwritten)
{
    uci_ptr ptr = named("n", "lan", "proto", "x");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    write_config("bro ken\n");

    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_ERR_PARSE);

    EXPECT_EQ(error_text(ctx), "p: Parse error (invalid command) at line 1, byte 0");
    EXPECT_EQ(config(), "bro ken\n");
    EXPECT_EQ(delta(), "n.lan.proto='x'\n");
    EXPECT_EQ(ptr.p, nullptr);
    EXPECT_TRUE(uci_list_empty(&ctx->root));
}

TEST_F(uci_commit_test, changes_of_a_section_that_is_gone_stay_pending)
{
    uci_ptr ptr = named("n", "lan", "proto", "x");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    write_config("config interface 'wan'\n");

    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_EQ(config(), "config interface 'wan'\n");
    EXPECT_EQ(delta(), "n.lan.proto='x'\n");
}

TEST_F(uci_commit_test, nothing_pending_leaves_the_file_as_it_is)
{
    write_config("# mine\n" + base_config);
    struct stat before, after;
    ASSERT_EQ(stat(config_path().c_str(), &before), 0);
    uci_package *p = load();

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    ASSERT_EQ(stat(config_path().c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(config(), "# mine\n" + base_config);
    EXPECT_EQ(uci_lookup_package(ctx, "n"), p);
}

TEST_F(uci_commit_test, overwriting_leaves_unsaved_changes_alone)
{
    uci_ptr ptr = named("n", "lan", "proto", "x");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);

    EXPECT_EQ(uci_commit(ctx, &ptr.p, true), UCI_OK);

    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(), std::nullopt);
    EXPECT_STREQ(ptr.o->v.string, "x");
}

TEST_F(uci_commit_test, overwriting_applies_saved_changes_once)
{
    uci_ptr ptr = named("n", "lan", "l", "7");
    ASSERT_EQ(uci_add_list(ctx, &ptr), UCI_OK);
    ASSERT_EQ(uci_save(ctx, ptr.p), UCI_OK);

    EXPECT_EQ(uci_commit(ctx, &ptr.p, true), UCI_OK);

    EXPECT_NE(config()->find("\tlist l '7'\n\nconfig device\n"), std::string::npos);
    EXPECT_EQ(config()->find("\tlist l '7'\n\tlist l '7'\n"), std::string::npos);
    EXPECT_EQ(delta(), "");
}

TEST_F(uci_commit_test, changes_of_all_who_saved_are_committed)
{
    const context_owner other = new_context();
    uci_ptr theirs = named("n", "lan", "theirs", "1");
    ASSERT_EQ(uci_set(other.get(), &theirs), UCI_OK);
    uci_package *p = load();
    ASSERT_EQ(uci_save(other.get(), theirs.p), UCI_OK);

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);

    EXPECT_NE(config()->find("\toption theirs '1'\n"), std::string::npos);
    EXPECT_STREQ(uci_lookup_option_string(ctx, uci_lookup_section(ctx, p, "lan"), "theirs"), "1");
}

TEST_F(uci_commit_test, a_vanished_file_is_made_anew)
{
    uci_ptr ptr = named("n", "w", nullptr, "t");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    fs::remove(config_path());

    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_EQ(config(), "\nconfig t 'w'\n\n");
    EXPECT_EQ(fs::status(config_path()).permissions(), fs::perms(0600));
}

TEST_F(uci_commit_test, modes_and_links_are_kept)
{
    fs::create_directory(root + "/elsewhere");
    fs::rename(config_path(), root + "/elsewhere/real");
    fs::create_symlink("../elsewhere/real", config_path());
    fs::permissions(root + "/elsewhere/real", fs::perms(0640));

    quietly({"set n.lan.a=1", "commit"});

    EXPECT_TRUE(fs::is_symlink(config_path()));
    EXPECT_EQ(fs::status(root + "/elsewhere/real").permissions(), fs::perms(0640));
    EXPECT_NE(read(root + "/elsewhere/real")->find("\toption a '1'\n"), std::string::npos);
    EXPECT_EQ(files(), std::vector<std::string>{"n"});
}

TEST_F(uci_commit_test, a_link_to_a_file_that_is_to_be_made_stays_one)
{
    fs::create_directory(root + "/elsewhere");
    fs::create_symlink("../elsewhere/real", config_path("new"));
    write(root + "/input", "config t x\n");

    quietly({"-f " + root + "/input import new"});

    EXPECT_TRUE(fs::is_symlink(config_path("new")));
    EXPECT_EQ(read(root + "/elsewhere/real"), "\nconfig t 'x'\n\n");
    EXPECT_EQ(fs::status(root + "/elsewhere/real").permissions(), fs::perms(0600));
}

// From now on the permissions of files hold for root, too.
void give_up_privileges()
{
    __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3] = {};
    ASSERT_EQ(syscall(SYS_capset, &header, none), 0);
}

TEST_F(uci_commit_test, what_may_not_be_opened_is_an_io_error)
{
    expect_in_child([this] {
        const std::string others = root + "/others";
        fs::create_directory(others);
        write(others + "/n", "n.lan.proto='theirs'\n");
        fs::permissions(others + "/n", fs::perms::none);
        give_up_privileges();
        EXPECT_EQ(uci_add_delta_path(ctx, others.c_str()), UCI_OK);
        uci_ptr ptr = named("n", "lan", "a", "1");
        EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK) << "someone else's changes are passed over";
        EXPECT_STREQ(uci_lookup_option_string(ctx, ptr.s, "proto"), "static");

        fs::permissions(config_path(), fs::perms(0400));
        EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_ERR_IO);
        EXPECT_EQ(delta(), std::nullopt) << "not even saved";
        fs::permissions(config_path(), fs::perms::none);
        EXPECT_EQ(uci_load(new_context().get(), "n", nullptr), UCI_ERR_IO);
        fs::permissions(config_path(), fs::perms(0600));
        EXPECT_EQ(config(), base_config);
    });
}

TEST_F(uci_commit_test, generated_names_are_written_on_demand)
{
    ctx->flags = static_cast<uci_flags>(ctx->flags | UCI_FLAG_EXPORT_NAME);
    EXPECT_EQ(set_and_commit(ctx, "a", "1"), UCI_OK);
    EXPECT_NE(config()->find("config device 'cfg020f15'\n"), std::string::npos);
}

// ---- when writing fails ----

// Below 4,096 bytes every file can be written, above nothing.
void limit_file_size()
{
    const rlimit limit = {4096, 4096};
    signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST_F(uci_commit_test, a_commit_that_cannot_write_loses_nothing)
{
    const std::string large =
        base_config + "\nconfig big 'b'\n\toption text '" + std::string(5000, 'x') + "'\n";
    write_config(large);
    expect_in_child([&] {
        limit_file_size();
        uci_ptr ptr = named("n", "lan", "a", "1");
        EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
        EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_ERR_IO);
        EXPECT_STREQ(uci_lookup_option_string(ctx, uci_lookup_section(ctx, ptr.p, "lan"), "a"), "1");
    });
    EXPECT_EQ(config(), large);
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
    EXPECT_EQ(files(), std::vector<std::string>{"n"});

    quietly({"commit"});
    EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
    EXPECT_EQ(delta(), "");
}

TEST_F(uci_commit_test, a_save_that_cannot_write_leaves_the_delta_as_it_was)
{
    const std::string before = "n.lan.text='" + std::string(4070, 'x') + "'\n";
    write_delta(before);
    expect_in_child([&] {
        limit_file_size();
        const std::string value(100, 'y');
        uci_ptr ptr = named("n", "lan", "a", value.c_str());
        EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
        EXPECT_EQ(uci_save(ctx, ptr.p), UCI_ERR_IO);
        EXPECT_FALSE(uci_list_empty(&ptr.p->delta));
    });
    EXPECT_EQ(delta(), before);
}

TEST_F(uci_commit_test, an_import_that_cannot_write_leaves_no_file)
{
    write(root + "/input", "config t n\n\toption a '" + std::string(5000, 'x') + "'\n");
    expect_in_child([&] {
        limit_file_size();
        FILE *const input = fopen((root + "/input").c_str(), "r");
        ASSERT_NE(input, nullptr);
        uci_package *p = nullptr;
        EXPECT_EQ(uci_import(ctx, input, "new", &p, true), UCI_OK);
        fclose(input);
        EXPECT_EQ(uci_commit(ctx, &p, true), UCI_ERR_IO);
    });
    EXPECT_EQ(files(), std::vector<std::string>{"n"});
}

// Fills a file system until nothing fits any more.
void fill_up(const std::string &directory)
{
    const int fd = open((directory + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    const std::string block(4096, 'f');
    while (write(fd, block.data(), block.size()) > 0)
        ;
    close(fd);
}

TEST_F(uci_commit_test, a_full_disk_keeps_file_and_delta)
{
    expect_in_child([&] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_EQ(mount("tmpfs", config_dir.c_str(), "tmpfs", 0, "size=64k"), 0);
        write_config(base_config);
        fill_up(config_dir);

        EXPECT_EQ(set_and_commit(ctx, "a", "1"), UCI_ERR_IO);

        EXPECT_EQ(config(), base_config);
        EXPECT_EQ(delta(), "n.lan.a='1'\n");
        fs::remove(config_path("filler"));
        EXPECT_EQ(files(), std::vector<std::string>{"n"});
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(ctx, "n", &p), UCI_OK);
        EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);
        EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
        EXPECT_EQ(delta(), "");
    });
}

TEST_F(uci_commit_test, a_full_save_directory_keeps_the_changes_in_memory)
{
    fs::create_directory(save_dir);
    expect_in_child([&] {
        ASSERT_TRUE(enter_private_mounts());
        ASSERT_EQ(mount("tmpfs", save_dir.c_str(), "tmpfs", 0, "size=64k"), 0);
        write_delta("n.lan.b='2'\n");
        fill_up(save_dir);
        const std::string value(5000, 'v');
        uci_ptr ptr = named("n", "lan", "a", value.c_str());
        ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);

        EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_ERR_IO);

        EXPECT_EQ(delta(), "n.lan.b='2'\n");
        EXPECT_EQ(config(), base_config);
        fs::remove(delta_path("filler"));
        EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);
        EXPECT_NE(config()->find("\toption b '2'\n\toption a '" + value + "'\n"), std::string::npos);
    });
}

TEST_F(uci_commit_test, a_read_only_directory_keeps_file_and_delta)
{
    expect_in_child([&] {
        ASSERT_TRUE(enter_private_mounts());
        const char *const directory = config_dir.c_str();
        ASSERT_EQ(mount(directory, directory, nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(nullptr, directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);
        write_delta("n.lan.b='2'\n");

        EXPECT_EQ(set_and_commit(ctx, "a", "1"), UCI_ERR_IO);

        EXPECT_EQ(config(), base_config);
        EXPECT_EQ(delta(), "n.lan.b='2'\n");
        uci_package *p = nullptr;
        EXPECT_EQ(uci_load(ctx, "n", &p), UCI_OK); // reading goes on
    });
}

TEST_F(uci_commit_test, a_directory_that_takes_no_new_file_keeps_file_and_delta)
{
    // The file itself is writable, as a file system of its own; only the new one beside it cannot be made.
    expect_in_child([&] {
        ASSERT_TRUE(enter_private_mounts());
        const std::string file = config_path();
        const char *const directory = config_dir.c_str();
        ASSERT_EQ(mount(file.c_str(), file.c_str(), nullptr, MS_BIND, nullptr), 0);
        ASSERT_EQ(mount(directory, directory, nullptr, MS_BIND | MS_REC, nullptr), 0);
        ASSERT_EQ(mount(nullptr, directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);

        EXPECT_EQ(set_and_commit(ctx, "a", "1"), UCI_ERR_IO);

        EXPECT_EQ(config(), base_config);
        EXPECT_EQ(delta(), "n.lan.a='1'\n");
    });
}

// ---- several at once ----

class child_group {
public:
    ~child_group()
    {
        for (const pid_t pid : pids_)
            kill(pid, SIGKILL);
        for (const pid_t pid : pids_)
            waitpid(pid, nullptr, 0);
    }
    void start(const std::function<bool()> &body)
    {
        fflush(nullptr);
        const pid_t pid = fork();
        if (pid == 0)
            _exit(body() ? 0 : 1);
        ASSERT_GT(pid, 0);
        pids_.push_back(pid);
    }
    // Waits for all; whether each body returned true.
    bool wait_for_success()
    {
        bool success = true;
        for (const pid_t pid : pids_) {
            int status = 0;
            success =
                waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && success;
        }
        pids_.clear();
        return success;
    }
    void kill_all() const
    {
        for (const pid_t pid : pids_)
            kill(pid, SIGKILL);
    }

private:
    std::vector<pid_t> pids_;
};

constexpr int writers = 6, rounds = 25;

std::string value_name(int writer, int round)
{
    return "w" + std::to_string(writer) + "_" + std::to_string(round);
}

TEST_F(uci_commit_test, concurrent_commits_keep_every_value)
{
    child_group group;
    for (int writer = 0; writer < writers; writer++)
        group.start([&, writer] {
            for (int round = 0; round < rounds; round++)
                if (set_and_commit(new_context().get(), value_name(writer, round), "1") != UCI_OK)
                    return false;
            return true;
        });
    EXPECT_TRUE(group.wait_for_success());

    uci_section *const lan = uci_lookup_section(ctx, load(), "lan");
    for (int writer = 0; writer < writers; writer++)
        for (int round = 0; round < rounds; round++)
            EXPECT_STREQ(uci_lookup_option_string(ctx, lan, value_name(writer, round).c_str()), "1");
    EXPECT_EQ(delta(), "");
    EXPECT_EQ(files(), std::vector<std::string>{"n"});
}

TEST_F(uci_commit_test, concurrent_runs_of_the_tool_keep_every_value)
{
    child_group group;
    const std::string tool = "uci -c " + config_dir + " -t " + save_dir + " -C '' ";
    for (int writer = 0; writer < writers; writer++)
        group.start([&, writer] {
            const std::string name = "w" + std::to_string(writer);
            const std::string script = "set -e; i=0; while [ $i -lt " + std::to_string(rounds) + " ]; do " +
                                       tool + "set n.lan." + name + "_$i=1; " + tool +
                                       "commit n; i=$((i+1)); done";
            return run_program({"sh", "-c", script}).status == 0;
        });
    EXPECT_TRUE(group.wait_for_success());

    uci_section *const lan = uci_lookup_section(ctx, load(), "lan");
    for (int writer = 0; writer < writers; writer++)
        for (int round = 0; round < rounds; round++)
            EXPECT_STREQ(uci_lookup_option_string(ctx, lan, value_name(writer, round).c_str()), "1");
}

TEST_F(uci_commit_test, changes_saved_while_others_commit_and_revert_are_kept)
{
    child_group group;
    for (int writer = 0; writer < 3; writer++)
        group.start([&, writer] {
            for (int round = 0; round < rounds; round++) {
                const context_owner own = new_context();
                const std::string name = value_name(writer, round);
                uci_ptr ptr = named("n", "lan", name.c_str(), "1");
                if (uci_set(own.get(), &ptr) != UCI_OK || uci_save(own.get(), ptr.p) != UCI_OK)
                    return false;
            }
            return true;
        });
    group.start([&] {
        for (int round = 0; round < rounds; round++)
            if (set_and_commit(new_context().get(), "committer", std::to_string(round)) != UCI_OK)
                return false;
        return true;
    });
    group.start([&] {
        for (int round = 0; round < rounds; round++) {
            const context_owner own = new_context();
            uci_ptr ptr = named("n", "g", "u", "2");
            if (uci_set(own.get(), &ptr) != UCI_OK)
                return false;
            ptr = named("n", "g", "u");
            if (uci_revert(own.get(), &ptr) != UCI_OK)
                return false;
        }
        return true;
    });
    EXPECT_TRUE(group.wait_for_success());

    uci_section *const lan = uci_lookup_section(ctx, load(), "lan");
    for (int writer = 0; writer < 3; writer++)
        for (int round = 0; round < rounds; round++)
            EXPECT_STREQ(uci_lookup_option_string(ctx, lan, value_name(writer, round).c_str()), "1");
}

class pipe_ends {
public:
    pipe_ends() { EXPECT_EQ(pipe(ends_), 0); }
    ~pipe_ends()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    bool send() const { return ::write(ends_[1], "x", 1) == 1; }
    // False when nothing comes in time.
    bool receive() const
    {
        pollfd waiting = {ends_[0], POLLIN, 0};
        char byte;
        return poll(&waiting, 1, static_cast<int>(default_deadline.count())) == 1 &&
               ::read(ends_[0], &byte, 1) == 1;
    }

private:
    int ends_[2];
};

// What a reader and a writer in another process tell each other.
struct exchange {
    std::atomic<int> seen;  // the latest value read
    std::atomic<int> loads; // how often it was read
    std::atomic<bool> done; // nothing more will be written
};

// Between the delta file and the configuration a change must be seen in one of them at any moment.
TEST_F(uci_commit_test, a_reader_never_misses_a_saved_change)
{
    constexpr int last = 30;
    void *const shared =
        mmap(nullptr, sizeof(exchange), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto *const state = new (shared) exchange{};
    child_group group;
    const auto write_values = [&] {
        for (int value = 1; value <= last; value++) {
            const context_owner own = new_context();
            const std::string text = std::to_string(value);
            uci_ptr ptr = named("n", "lan", "proto", text.c_str());
            if (uci_set(own.get(), &ptr) != UCI_OK || uci_save(own.get(), ptr.p) != UCI_OK ||
                !wait_until([&] { return state->seen == value; }) ||
                uci_commit(own.get(), &ptr.p, false) != UCI_OK)
                return false;
            // The load that ran during the commit ends before anything else is saved.
            const int loads = state->loads;
            if (!wait_until([&] { return state->loads > loads; }))
                return false;
        }
        return true;
    };
    group.start([&] {
        const bool written = write_values();
        state->done = true;
        return written;
    });

    // Each takes a moment to be found missing, between the reading of the file and of its changes.
    for (int i = 0; i < 500; i++)
        ASSERT_EQ(uci_add_delta_path(ctx, (root + "/none/" + std::to_string(i)).c_str()), UCI_OK);
    while (!state->done) {
        uci_package *const p = load();
        uci_section *const lan = p ? uci_lookup_section(ctx, p, "lan") : nullptr;
        const char *const proto = lan ? uci_lookup_option_string(ctx, lan, "proto") : nullptr;
        const int value = proto ? atoi(proto) : 0; // a word before the first change
        EXPECT_GE(value, state->seen);
        state->seen = value;
        state->loads++;
        uci_unload(ctx, p);
    }
    EXPECT_EQ(state->seen, last);
    EXPECT_TRUE(group.wait_for_success());
    munmap(shared, sizeof(exchange));
}

TEST_F(uci_commit_test, a_writer_killed_at_any_moment_leaves_a_whole_file)
{
    for (int round = 0; round < 20; round++) {
        child_group group;
        const pipe_ends progress;
        group.start([&] {
            for (int value = 0;; value++) {
                if (set_and_commit(new_context().get(), "proto",
                                   std::string(3000, static_cast<char>('a' + value % 26))) != UCI_OK)
                    return false;
                if (!progress.send())
                    return false;
            }
        });
        for (int commit = 0; commit <= round % 7; commit++)
            ASSERT_TRUE(progress.receive());
        group.kill_all();
        group.wait_for_success();

        const context_owner own = new_context();
        uci_package *p = nullptr;
        ASSERT_EQ(uci_load(own.get(), "n", &p), UCI_OK) << error_text(own.get());
        const std::string value =
            uci_lookup_option_string(own.get(), uci_lookup_section(own.get(), p, "lan"), "proto");
        EXPECT_EQ(value, std::string(3000, value[0]));
        EXPECT_NE(uci_lookup_section(own.get(), p, "cfg040f15"), nullptr);
    }
}

} // namespace
