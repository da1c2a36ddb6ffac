// An operation is whole or did not happen: refused, failing at any call, killed before any call, with
// neighbours in the middle.
#include "base/operation.h"

#include "base/config.h"
#include "base/os.h"
#include "base/record.h"
#include "base/recovery.h"
#include "support/gateway.h"
#include "support/small_disk.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <future>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

// The calls that change files or start children, counted; what happens before the n-th of them.
struct {
    bool counting = false;
    int count = 0;
    int fatal = 0;   // this one is not made, and the process dies; 0: none
    int failing = 0; // this one fails with EIO instead of being made; 0: none
    std::function<void(const std::string &)> watch;
} calls;

// Whether the call is to be made.
bool arrive(const char *what)
{
    if (!calls.counting)
        return true;
    calls.count++;
    if (calls.count == calls.fatal)
        (void)kill(getpid(), SIGKILL);
    if (calls.watch)
        calls.watch(what);
    if (calls.count != calls.failing)
        return true;
    errno = EIO;
    return false;
}

} // namespace

#define WRAPPED(type, name, parameters, arguments, what, failure)                                            \
    extern "C" type __real_##name parameters;                                                                \
    extern "C" type __wrap_##name parameters;                                                                \
    extern "C" type __wrap_##name parameters                                                                 \
    {                                                                                                        \
        return arrive(what) ? __real_##name arguments : (failure);                                           \
    }
WRAPPED(int, rename, (const char *from, const char *to), (from, to), to, -1)
WRAPPED(int, remove, (const char *path), (path), path, -1)
WRAPPED(int, unlink, (const char *path), (path), "unlink", -1)
WRAPPED(int, fsync, (int file), (file), "fsync", -1)
WRAPPED(int, fchmod, (int file, mode_t mode), (file, mode), "fchmod", -1)
WRAPPED(int, truncate, (const char *path, off_t size), (path, size), path, -1)
WRAPPED(int, ftruncate, (int file, off_t size), (file, size), "ftruncate", -1)
WRAPPED(int, mkostemp, (char *path, int flags), (path, flags), "mkostemp", -1)
WRAPPED(ssize_t, write, (int file, const void *data, size_t size), (file, data, size), "write", -1)
WRAPPED(int, flock, (int file, int action), (file, action), "flock", -1)
WRAPPED(int, system, (const char *command), (command), command, -1)

// The allocations of everything but the C library; this one fails; 0: none.
constinit int allocations = 0, missing_allocation = 0;
constinit bool short_memory = false;

bool allocates()
{
    return !short_memory || ++allocations != missing_allocation;
}

#define ALLOCATION(name, parameters, arguments)                                                              \
    extern "C" void *__real_##name parameters;                                                               \
    extern "C" void *__wrap_##name parameters;                                                               \
    extern "C" void *__wrap_##name parameters                                                                \
    {                                                                                                        \
        return allocates() ? __real_##name arguments : nullptr;                                              \
    }
ALLOCATION(malloc, (size_t size), (size))
ALLOCATION(calloc, (size_t count, size_t size), (count, size))
ALLOCATION(realloc, (void *memory, size_t size), (memory, size))

// As with a platform's own mxuci library.
constinit bool gathers = true;
extern "C" bool __wrap_mxuci_gathers(void);
extern "C" bool __wrap_mxuci_gathers(void)
{
    return gathers;
}

namespace {

namespace fs = std::filesystem;

constexpr const char *directories[] = {"/etc/korvel", "/etc/hotplug.d/iface"};
const std::string base = "\nconfig globals 'g'\n\toption one '1'\n\n";

std::atomic<uint32_t> kept{7};

bool put_script(const char *path, const char *text)
{
    script_file script(path);
    if (script)
        script.print("%s", text);
    return script && script.commit();
}

// What a work does is in here, so that tests can say it in place.
struct scripted_work {
    std::function<bool()> body;
    operation_work row()
    {
        return {[](void *self) { return static_cast<scripted_work *>(self)->body(); }, this};
    }
};

operation_failure failure; // of the last run_works()

operation_result run_works(std::vector<scripted_work> works)
{
    std::vector<operation_work> rows;
    for (scripted_work &each : works)
        rows.push_back(each.row());
    failure = {"not written", "not written"};
    return operation_run(rows, kept, &failure);
}

class operation_test : public gateway_test {
protected:
    operation_test() { start_over(); }
    ~operation_test() override
    {
        calls = {};
        gathers = true;
    }

    void start_over()
    {
        calls = {};
        kept = 7;
        for (const char *const name : {"t", "u"})
            gateway.set_config(name, base);
        for (const char *const directory : directories)
            for (const std::string &name : gateway.list_directory(directory))
                gateway.remove(std::string(directory) + "/" + name);
        gateway.write_file("/etc/korvel/old", "#!/bin/sh\necho \"old $1\" >>/tmp/journal\n", 0755);
        gateway.write_file("/etc/korvel/both", "#!/bin/sh\necho \"both $1\" >>/tmp/journal\n", 0755);
        gateway.write_file("/tmp/definition", "text");
        gateway.write_file("/tmp/.uci/u", "u.g.theirs='1'\n");
        gateway.remove("/tmp/journal");
        gateway.clear_log();
    }

    // An operation with everything in it: two configurations, one with pending changes; scripts that come, go
    // and are replaced; a file that goes; commands; a second stage.
    static operation_result change_all()
    {
        return run_works({{[] {
                              kept = 8;
                              (void)put_script("/etc/hotplug.d/iface/new", "#!/bin/sh\n");
                              take_back_script("/etc/korvel/old", "failure of old");
                              return config_set("t", "g", "one", "2") == 0;
                          }},
                          {[] {
                              take_back_script("/etc/korvel/both", "failure of both");
                              (void)put_script("/etc/korvel/both", "#!/bin/sh\n# new\n");
                              remove_file("/tmp/definition", "failure of definition");
                              run_command("echo reload >>/tmp/journal");
                              return config_set("u", "g", "two", "2") == 0;
                          }},
                          {[] {
                              (void)put_script("/etc/korvel/both", "#!/bin/sh\n# newer\n");
                              run_command("echo again >>/tmp/journal");
                              return config_set("t", "g", "one", "3") == 0;
                          }}});
    }

    // All that an operation can change, as one text.
    std::string state() const
    {
        std::string text;
        for (const std::string directory : {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface"})
            for (const std::string &name : gateway.list_directory(directory))
                if (directory != "/etc/config" || name == "t" || name == "u" || name.starts_with('.'))
                    text += directory + "/" + name + ":\n" + gateway.file(directory + "/" + name);
        text += gateway.exists("/tmp/definition") ? "definition\n" : "";
        return text + gateway.file("/tmp/.uci/u");
    }

    std::string journal() const { return gateway.exists("/tmp/journal") ? gateway.file("/tmp/journal") : ""; }

    // The state after the whole operation, which leaves the gateway as it was.
    std::string state_after()
    {
        EXPECT_EQ(operation_result::done, change_all());
        const std::string after = state();
        start_over();
        return after;
    }

    static int count_calls(const std::function<void()> &action)
    {
        calls = {};
        calls.counting = true;
        action();
        const int count = calls.count;
        calls = {};
        return count;
    }
};

TEST_F(operation_test, brings_everything_about_in_order)
{
    EXPECT_EQ(operation_result::done, change_all());

    EXPECT_EQ("old -r\nboth -r\nreload\nagain\n", journal());
    EXPECT_EQ("\nconfig globals 'g'\n\toption one '3'\n\n", gateway.config("t"));
    EXPECT_EQ("\nconfig globals 'g'\n\toption one '1'\n\toption theirs '1'\n\toption two '2'\n\n",
              gateway.config("u"));
    EXPECT_EQ("", gateway.file("/tmp/.uci/u"));
    EXPECT_EQ(text_lines{"both"}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ("#!/bin/sh\n# newer\n", gateway.file("/etc/korvel/both"));
    EXPECT_EQ(0755U, gateway.mode("/etc/korvel/both"));
    EXPECT_EQ(text_lines{"new"}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_FALSE(gateway.exists("/tmp/definition"));
    EXPECT_EQ(8U, kept);
    EXPECT_FALSE(gateway.exists(record_paths[0]));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(operation_test, a_work_sees_what_was_asked_for_and_nobody_else_does)
{
    const std::string before = state();
    const operation_result result = run_works({{[&] {
        (void)put_script("/etc/hotplug.d/iface/new", "text");
        take_back_script("/etc/korvel/old", "");
        remove_file("/tmp/definition", "");
        EXPECT_EQ(0, config_set("t", "g", "one", "2"));
        run_command("echo never >>/tmp/journal");

        EXPECT_TRUE(file_exists("/etc/hotplug.d/iface/new"));
        EXPECT_FALSE(file_exists("/etc/korvel/old"));
        EXPECT_FALSE(file_exists("/tmp/definition"));
        char value[4] = {};
        EXPECT_EQ(0, config_get("t", "g", "one", value));
        EXPECT_STREQ("2", value);
        const uci_loaded loaded("t");
        EXPECT_STREQ("2", loaded.plain(loaded.section("g"), "one"));
        EXPECT_FALSE(gateway.exists("/etc/hotplug.d/iface/new"));
        EXPECT_TRUE(gateway.exists("/etc/korvel/old"));
        EXPECT_EQ(base, gateway.config("t"));
        kept = 9;
        return false;
    }}});

    EXPECT_EQ(operation_result::refused, result);
    EXPECT_EQ(before, state()) << "and no temporary is left";
    EXPECT_EQ("", journal());
    EXPECT_EQ(7U, kept);
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(operation_test, a_script_that_was_only_asked_for_is_never_run)
{
    EXPECT_EQ(operation_result::done, run_works({{[] {
                  (void)put_script("/etc/korvel/fresh", "#!/bin/sh\necho fresh >>/tmp/journal\n");
                  take_back_script("/etc/korvel/fresh", "");
                  (void)put_script("/etc/korvel/twice", "first");
                  (void)put_script("/etc/korvel/twice", "second");
                  return true;
              }}}));

    EXPECT_EQ("", journal());
    EXPECT_EQ((text_lines{"both", "old", "twice"}), gateway.list_directory("/etc/korvel"));
    EXPECT_EQ("second", gateway.file("/etc/korvel/twice"));
}

TEST_F(operation_test, an_operation_without_anything_to_do_writes_nothing)
{
    const int made =
        count_calls([] { EXPECT_EQ(operation_result::done, run_works({{[] { return true; }}})); });

    EXPECT_LE(made, 3) << "the record is made, locked and removed";
}

TEST_F(operation_test, syncs_once_per_file_and_a_few_times_more)
{
    int syncs = 0, renames = 0;
    (void)count_calls([&] {
        calls.watch = [&](const std::string &what) {
            syncs += what == "fsync";
            renames += what == "/etc/config/t" || what == "/etc/config/u";
        };
        EXPECT_EQ(operation_result::done, run_works({{[] {
                      for (const char *const value : {"2", "3", "4"}) {
                          (void)config_set("t", "g", "one", value);
                          (void)config_set("u", "g", "one", value);
                      }
                      run_command(":");
                      return true;
                  }}}));
    });

    EXPECT_EQ(2, renames);
    EXPECT_LE(syncs, 2 * 2 + 4);
}

TEST_F(operation_test, a_script_that_is_put_several_times_is_synced_once)
{
    int syncs = 0;
    (void)count_calls([&] {
        calls.watch = [&](const std::string &what) { syncs += what == "fsync"; };
        EXPECT_EQ(operation_result::done, run_works({{[] {
                      for (const char *const text : {"1", "2", "3"})
                          (void)put_script("/etc/korvel/again", text);
                      return config_set("t", "g", "one", "2") == 0;
                  }}}));
    });

    EXPECT_EQ("3", gateway.file("/etc/korvel/again"));
    EXPECT_LE(syncs, 2 * 2 + 4);
}

// A disk may take long for that.
TEST_F(operation_test, others_read_the_configuration_while_new_files_are_synced)
{
    unsigned syncs = 0, read = 0;
    (void)count_calls([&] {
        calls.watch = [&](const std::string &what) {
            if (what != "fsync")
                return;
            syncs++;
            const auto asked = std::async(std::launch::async, [] {
                char value[8];
                return config_get("u", "g", "one", value);
            });
            read += asked.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
            if (read < syncs)
                _exit(3); // it waits for this very thread
        };
        EXPECT_EQ(operation_result::done,
                  run_works({{[] { return config_set("t", "g", "one", "2") == 0; }}}));
    });

    EXPECT_LE(2U, syncs);
    EXPECT_EQ(syncs, read);
}

TEST_F(operation_test, a_script_that_cannot_be_synced_is_named)
{
    calls.counting = true;
    calls.watch = [](const std::string &what) {
        if (what == "fsync" && calls.failing == 0)
            calls.failing = calls.count;
    };
    EXPECT_EQ(operation_result::failed, run_works({{[] { return put_script("/etc/korvel/again", "1"); }}}));
    calls = {};

    EXPECT_STREQ("/etc/korvel/again", failure.path);
    EXPECT_STREQ("Input/output error", failure.reason);
    EXPECT_EQ((text_lines{"both", "old"}), gateway.list_directory("/etc/korvel"));
}

TEST_F(operation_test, a_last_stage_of_commands_syncs_nothing_again)
{
    int syncs = 0;
    (void)count_calls([&] {
        calls.watch = [&](const std::string &what) { syncs += what == "fsync"; };
        EXPECT_EQ(operation_result::done, run_works({{[] {
                                                         run_command(":");
                                                         return config_set("t", "g", "one", "2") == 0;
                                                     }},
                                                     {[] {
                                                         run_command(":");
                                                         return true;
                                                     }}}));
    });

    EXPECT_LE(syncs, 2 * 1 + 4);
}

TEST_F(operation_test, killed_before_any_call_it_is_whole_or_did_not_happen)
{
    const std::string before = state();
    const std::string after = state_after();
    const int all = count_calls([] { (void)change_all(); });
    ASSERT_GT(all, 30);
    int befores = 0, afters = 0;
    for (int fatal = 1; fatal <= all; fatal++) {
        SCOPED_TRACE(fatal);
        start_over();
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            calls.counting = true;
            calls.fatal = fatal;
            (void)change_all();
            _exit(0);
        }
        int status = 0;
        ASSERT_EQ(child, waitpid(child, &status, 0));
        ASSERT_TRUE(WIFSIGNALED(status));

        recover_operations(directories);

        const std::string found = state();
        EXPECT_TRUE(found == before || found == after) << found;
        befores += found == before;
        afters += found == after;
        if (found == after)
            EXPECT_TRUE(journal().ends_with("again\n")) << journal();
        else
            EXPECT_EQ("", journal());
        EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
    }
    EXPECT_GT(befores, 10);
    EXPECT_GT(afters, 10);
}

// The recovery is killed as well, before each of its calls in turn, until it comes through.
TEST_F(operation_test, killed_while_it_recovers_it_is_whole_all_the_same)
{
    const std::string after = state_after();
    const int all = count_calls([] { (void)change_all(); });
    for (int fatal = all / 2; fatal <= all; fatal++) {
        SCOPED_TRACE(fatal);
        start_over();
        const auto kill_at = [this](int call, const std::function<void()> &action) {
            // What still comes in from the child before would be taken by another thread, and with it a lock
            // of the allocator that nobody gives back in the next child.
            (void)gateway.log();
            const pid_t child = fork();
            if (child == 0) {
                calls.counting = true;
                calls.fatal = call;
                action();
                _exit(0);
            }
            int status = 0;
            EXPECT_EQ(child, waitpid(child, &status, 0));
            return WIFSIGNALED(status);
        };
        ASSERT_TRUE(kill_at(fatal, [] { (void)change_all(); }));
        const bool decided = gateway.exists(record_paths[0]) && !gateway.file(record_paths[0]).empty();
        for (int call = 1; kill_at(call, [] { recover_operations(directories); }); call++)
            ASSERT_LT(call, 200);
        if (decided) {
            EXPECT_EQ(after, state());
        }
    }
}

TEST_F(operation_test, any_call_that_fails_once_leaves_it_whole_or_undone)
{
    const std::string before = state();
    const std::string after = state_after();
    const int all = count_calls([] { (void)change_all(); });
    int befores = 0, afters = 0;
    for (int failing = 1; failing <= all; failing++) {
        SCOPED_TRACE(failing);
        start_over();
        std::string what;
        calls.counting = true;
        calls.failing = failing;
        calls.watch = [&](const std::string &name) { what = calls.count == failing ? name : what; };
        const operation_result result = change_all();
        calls = {};

        if (result == operation_result::done) {
            afters++;
            EXPECT_EQ(after, state()) << what;
            EXPECT_EQ(8U, kept);
        } else {
            befores++;
            EXPECT_EQ(before, state()) << what;
            EXPECT_EQ(operation_result::failed, result);
            EXPECT_EQ(7U, kept);
            EXPECT_EQ("", journal());
            ASSERT_FALSE(gateway.log_texts(LOG_ERR).empty()) << what;
            EXPECT_TRUE(gateway.log_texts(LOG_ERR).back().starts_with("Nothing was changed: /etc/")) << what;
            // Pending changes that the library could not lock it passes over without a word.
            const std::string told = gateway.log_texts(LOG_ERR).back();
            EXPECT_TRUE(told.ends_with("Input/output error") ||
                        (what == "flock" && told.ends_with("it would not read back as what is meant")))
                << what << " " << told;
        }
    }
    EXPECT_GT(befores, 10);
    EXPECT_GT(afters, 10);
}

TEST_F(operation_test, any_allocation_that_fails_leaves_it_whole_or_undone)
{
    const std::string before = state();
    const std::string after = state_after();
    int befores = 0, afters = 0;
    bool reached = true;
    for (int missing = 1; reached; missing++) {
        SCOPED_TRACE(missing);
        start_over();
        allocations = 0;
        missing_allocation = missing;
        short_memory = true;
        const operation_result result = change_all();
        short_memory = false;
        reached = allocations >= missing;

        (result == operation_result::done ? afters : befores)++;
        EXPECT_EQ(result == operation_result::done ? after : before, state());
        EXPECT_EQ(result == operation_result::done, gateway.log_texts(LOG_ERR).empty());
    }
    EXPECT_GT(befores, 30);
    EXPECT_GT(afters, 0);
}

TEST_F(operation_test, what_cannot_be_written_is_named)
{
    const std::string before = state();
    small_disk disk("/etc/korvel");
    disk.make_read_only();

    EXPECT_EQ(operation_result::failed, run_works({{[] {
                  (void)put_script("/etc/korvel/new", "text");
                  return config_set("t", "g", "one", "2") == 0;
              }}}));

    EXPECT_EQ(text_lines{"Nothing was changed: /etc/korvel/new: Read-only file system"},
              gateway.log_texts(LOG_ERR));
    EXPECT_STREQ("/etc/korvel/new", failure.path);
    EXPECT_STREQ("Read-only file system", failure.reason);
    EXPECT_EQ(base, gateway.config("t"));
}

TEST_F(operation_test, what_cannot_be_read_is_named)
{
    gateway.set_config("broken", "config device\n\toption 'unfinished\n");

    EXPECT_EQ(operation_result::failed, run_works({{[] {
                  (void)config_set("broken", "g", "one", "2");
                  return config_set("t", "g", "one", "2") == 0;
              }}}));

    EXPECT_EQ(text_lines{"Nothing was changed: /etc/config/broken: it cannot be parsed"},
              gateway.log_texts(LOG_ERR));
    EXPECT_EQ(base, gateway.config("t"));
}

TEST_F(operation_test, a_neighbour_that_writes_before_the_decision_has_the_works_run_again)
{
    int runs = 0;
    EXPECT_EQ(operation_result::done, run_works({{[&] {
                  kept = kept + 1;
                  EXPECT_EQ(0, config_set("t", "g", "ours", "1"));
                  if (++runs == 1)
                      gateway.set_config("t", "\nconfig globals 'g'\n\toption theirs '1'\n\n");
                  return true;
              }}}));

    EXPECT_EQ(2, runs);
    EXPECT_EQ(8U, kept) << "set back in between";
    EXPECT_STREQ("", failure.reason);
    EXPECT_EQ("\nconfig globals 'g'\n\toption theirs '1'\n\toption ours '1'\n\n", gateway.config("t"));
}

TEST_F(operation_test, a_neighbour_that_never_stops_writing_makes_it_fail)
{
    int runs = 0;
    EXPECT_EQ(operation_result::failed, run_works({{[&] {
                  EXPECT_EQ(0, config_set("t", "g", "ours", "1"));
                  gateway.set_config("t", base + "# " + std::string(static_cast<size_t>(++runs), 'x'));
                  return true;
              }}}));

    EXPECT_EQ(100, runs);
    EXPECT_FALSE(gateway.uci_get("t.g.ours"));
    EXPECT_STREQ("", failure.path);
    EXPECT_STREQ("other programs write the configuration", failure.reason);
}

TEST_F(operation_test, a_neighbour_between_two_stages_has_the_rest_run_again)
{
    std::vector<int> runs(2);
    EXPECT_EQ(operation_result::done,
              run_works({{[&] {
                             runs[0]++;
                             run_command("uci set t.g.theirs=1; uci commit t; echo first >>/tmp/journal");
                             return config_set("t", "g", "one", "2") == 0;
                         }},
                         {[&] {
                             runs[1]++;
                             kept = kept + 1;
                             (void)put_script("/etc/korvel/new", runs[1] == 1 ? "first" : "second");
                             run_command("echo second >>/tmp/journal");
                             return config_set("t", "g", "one", "3") == 0;
                         }}}));

    EXPECT_EQ((std::vector<int>{1, 2}), runs);
    EXPECT_EQ("\nconfig globals 'g'\n\toption one '3'\n\toption theirs '1'\n\n", gateway.config("t"));
    EXPECT_EQ("first\nsecond\n", journal());
    EXPECT_EQ("second", gateway.file("/etc/korvel/new"));
    EXPECT_EQ(8U, kept);
    for (const char *const path : record_paths)
        EXPECT_FALSE(gateway.exists(path));
    EXPECT_EQ((text_lines{"both", "new", "old"}), gateway.list_directory("/etc/korvel"));
}

TEST_F(operation_test, what_a_neighbour_wrote_after_a_crash_is_left_alone_and_named)
{
    const pid_t child = fork();
    if (child == 0) {
        calls.counting = true;
        calls.watch = [](const std::string &what) {
            if (what == "/etc/config/t")
                (void)kill(getpid(), SIGKILL);
        };
        (void)change_all();
        _exit(0);
    }
    ASSERT_EQ(child, waitpid(child, nullptr, 0));
    gateway.set_config("t", "\nconfig globals 'g'\n\toption theirs '1'\n\n");

    recover_operations(directories);

    EXPECT_EQ("\nconfig globals 'g'\n\toption theirs '1'\n\n", gateway.config("t"));
    EXPECT_EQ("2", gateway.uci_get("u.g.two")) << "the rest is completed";
    EXPECT_EQ((text_lines{"Left alone, another program has written it: /etc/config/t",
                          "Left alone, another program has written it: /etc/config/t"}),
              gateway.log_texts(LOG_ERR))
        << "in both stages";
    for (const std::string &name : gateway.list_directory("/etc/config"))
        EXPECT_FALSE(name.starts_with('.')) << name;
}

TEST_F(operation_test, a_record_that_is_not_whole_was_no_decision)
{
    gateway.write_file(record_paths[0], "korvel record 1\n= 0 1 5", 0600);
    gateway.write_file("/etc/config/.t.korvel-aB3dE9", "secret", 0600);
    gateway.write_file("/etc/korvel/.old.korvel-aB3dE9", "half");
    gateway.write_file("/etc/config/.t.uci-aB3dE9", "not ours");
    const std::string before = gateway.config("t");

    recover_operations(directories);

    EXPECT_EQ(before, gateway.config("t"));
    EXPECT_FALSE(gateway.exists(record_paths[0]));
    EXPECT_FALSE(gateway.exists("/etc/config/.t.korvel-aB3dE9"));
    EXPECT_EQ((text_lines{"both", "old"}), gateway.list_directory("/etc/korvel"));
    EXPECT_TRUE(gateway.exists("/etc/config/.t.uci-aB3dE9"));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(operation_test, temporaries_behind_a_linked_configuration_go_too)
{
    gateway.write_file("/tmp/elsewhere/real", base);
    gateway.write_file("/tmp/elsewhere/.real.korvel-aB3dE9", "secret", 0600);
    gateway.remove("/etc/config/t");
    fs::create_symlink("/tmp/elsewhere/real", "/etc/config/t");

    recover_operations(directories);

    EXPECT_EQ(text_lines{"real"}, gateway.list_directory("/tmp/elsewhere"));
}

TEST_F(operation_test, where_calls_cannot_be_gathered_they_take_effect_one_by_one)
{
    gathers = false;
    const operation_result result = run_works({{[&] {
                                                   EXPECT_EQ(0, config_set("t", "g", "one", "2"));
                                                   EXPECT_EQ("2", gateway.uci_get("t.g.one"));
                                                   take_back_script("/etc/korvel/old", "");
                                                   EXPECT_FALSE(gateway.exists("/etc/korvel/old"));
                                                   run_command("echo first >>/tmp/journal");
                                                   EXPECT_EQ("old -r\nfirst\n", journal());
                                                   return true;
                                               }},
                                               {[&] {
                                                   (void)put_script("/etc/korvel/new", "text");
                                                   EXPECT_EQ("text", gateway.file("/etc/korvel/new"));
                                                   return false;
                                               }},
                                               {[&] {
                                                   ADD_FAILURE() << "the one before has refused";
                                                   return true;
                                               }}});

    EXPECT_EQ(operation_result::refused, result);
    EXPECT_EQ("2", gateway.uci_get("t.g.one")) << "what was done stays";
    EXPECT_FALSE(gateway.exists(record_paths[0]));
}

TEST_F(operation_test, the_record_is_nobody_elses_to_read)
{
    EXPECT_EQ(operation_result::done, run_works({{[] {
                  run_command("stat -c %a /etc/config/.korvel.record >/tmp/journal");
                  return config_set("t", "g", "one", "2") == 0;
              }}}));

    EXPECT_EQ("600\n", journal());
}

TEST_F(operation_test, while_an_operation_is_at_work_a_starting_process_leaves_it_alone)
{
    EXPECT_EQ(operation_result::done, run_works({{[&] {
                  (void)put_script("/etc/korvel/new", "text");
                  recover_operations(directories);
                  return config_set("t", "g", "one", "2") == 0;
              }}}));

    EXPECT_EQ(text_lines{"Another process is changing the configuration"}, gateway.log_texts(LOG_WARNING));
    EXPECT_TRUE(gateway.exists("/etc/korvel/new"));
}

TEST_F(operation_test, a_second_one_need_not_wait_for_the_commands_of_the_first)
{
    std::thread first([] {
        (void)run_works({{[] {
            run_command("until [ -e /tmp/go ]; do sleep 0.02; done");
            return config_set("t", "g", "first", "1") == 0;
        }}});
    });
    ASSERT_TRUE(wait_until([this] { return gateway.uci_get("t.g.first").has_value(); }));

    EXPECT_EQ(operation_result::done, run_works({{[] { return config_set("t", "g", "second", "1") == 0; }}}));

    EXPECT_EQ("1", gateway.uci_get("t.g.second"));
    EXPECT_TRUE(gateway.exists(record_paths[0])) << "the first one is not at its end";
    gateway.write_file("/tmp/go", "");
    first.join();
    EXPECT_FALSE(gateway.exists(record_paths[0]));
}

TEST_F(operation_test, what_an_earlier_one_could_not_complete_is_completed_first)
{
    const std::string after = state_after();
    calls.counting = true;
    calls.watch = [](const std::string &what) {
        if (what == "/etc/hotplug.d/iface/new")
            calls.failing = calls.count; // every time
    };
    EXPECT_EQ(operation_result::done, change_all());
    EXPECT_STREQ("/etc/config/.korvel.record", failure.path);
    EXPECT_STREQ("not all of it is in place yet", failure.reason);
    EXPECT_NE(after, state());
    EXPECT_EQ(operation_result::failed, run_works({{[] { return config_set("t", "g", "more", "1") == 0; }}}));
    EXPECT_STREQ("/etc/config/.korvel.record", failure.path);
    EXPECT_STREQ("an earlier change cannot be completed", failure.reason);
    calls = {};

    EXPECT_EQ(operation_result::done, run_works({{[] { return true; }}}));

    EXPECT_EQ(after, state());
}

} // namespace
