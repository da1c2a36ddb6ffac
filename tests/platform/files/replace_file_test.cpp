// Files that are replaced as a whole: in which steps, what they look like, and what is left when one of the
// steps fails.
#include "platform/support/file_calls.h"

#include <replace_file.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using strings = std::vector<std::string>;

constexpr file_look script = {0755, keep_owner, keep_group};

class replace_file_test : public testing::Test {
protected:
    replace_file_test()
    {
        char pattern[] = "/tmp/replace_file_XXXXXX";
        directory = fs::canonical(mkdtemp(pattern));
        path = directory + "/file";
        write("old");
    }
    ~replace_file_test() override { fs::remove_all(directory); }

    void write(const std::string &text) const { std::ofstream(path) << text; }
    std::string content() const
    {
        std::ifstream file(path);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    // The names in the directory, but for the file's own.
    strings others() const
    {
        strings names;
        for (const fs::directory_entry &entry : fs::directory_iterator(directory))
            if (entry.path() != path)
                names.push_back(entry.path().filename());
        return names;
    }
    static unsigned mode_of(const std::string &file)
    {
        return static_cast<unsigned>(fs::status(file).permissions());
    }
    bool replace(const std::string &text) const
    {
        file_replacement next(path.c_str());
        return next && next.write(text.data(), text.size(), look_of(path.c_str(), 0600)) &&
               next.put_into_place();
    }

    std::string directory, path;
    file_calls calls;
};

TEST_F(replace_file_test, new_content_waits_beside_the_file_until_it_is_put_into_place)
{
    const std::string second = directory + "/second";
    file_replacement one(path.c_str()), other(second.c_str());
    ASSERT_TRUE(one);
    ASSERT_TRUE(other);

    EXPECT_TRUE(one.write("new", 3, script));
    EXPECT_TRUE(other.write("too", 3, script));
    EXPECT_EQ(content(), "old");
    EXPECT_FALSE(fs::exists(second));
    for (const std::string &name : others())
        EXPECT_TRUE(name.starts_with('.')) << name;

    EXPECT_TRUE(one.put_into_place());
    EXPECT_TRUE(other.put_into_place());
    EXPECT_EQ(content(), "new");
    EXPECT_EQ(others(), strings{"second"});
}

TEST_F(replace_file_test, everything_is_synced_before_it_counts)
{
    EXPECT_TRUE(replace("new"));

    EXPECT_EQ(calls.take(directory), (strings{"sync /.file.uci-", "rename to /file", "sync "}));
}

TEST_F(replace_file_test, what_is_not_put_into_place_leaves_nothing)
{
    {
        file_replacement unwritten(path.c_str());
        file_replacement written(path.c_str());
        EXPECT_TRUE(written.write("new", 3, script));
        EXPECT_EQ(others().size(), 2U);
    }

    EXPECT_EQ(content(), "old");
    EXPECT_EQ(others(), strings{});
}

TEST_F(replace_file_test, what_was_not_written_is_not_put_into_place)
{
    file_replacement next(path.c_str());

    EXPECT_FALSE(next.put_into_place());
    EXPECT_FALSE(next.write("new", 3, script));

    EXPECT_EQ(content(), "old");
    EXPECT_EQ(others(), strings{});
}

TEST_F(replace_file_test, a_step_that_fails_leaves_the_old_file_and_no_other)
{
    for (const char *step : {"write", "fsync", "rename"}) {
        SCOPED_TRACE(step);
        calls.fail_next(step, EIO);

        EXPECT_FALSE(replace("new"));

        EXPECT_EQ(content(), "old");
        EXPECT_EQ(others(), strings{});
    }
}

TEST_F(replace_file_test, a_directory_that_cannot_be_synced_is_a_failure_unless_it_has_nothing_to_sync)
{
    const std::pair<int, bool> cases[] = {{EINVAL, true}, {EIO, false}, {EROFS, false}};
    for (const auto &[error, result] : cases) {
        SCOPED_TRACE(error);
        write("old");
        calls.at_next("rename", [this, refusal = error] {
            calls.fail_next("fsync", refusal);
            return 0;
        });

        EXPECT_EQ(replace("new"), result);

        EXPECT_EQ(content(), "new");
        EXPECT_EQ(others(), strings{});
    }
}

TEST_F(replace_file_test, short_and_interrupted_writes_go_on)
{
    const std::string text(10000, 'x');
    calls.shorten_writes(7);
    calls.fail_next("write", EINTR);

    EXPECT_TRUE(replace(text + "end"));

    EXPECT_EQ(content(), text + "end");
}

TEST_F(replace_file_test, nobody_else_may_read_it_before_it_is_complete)
{
    fs::permissions(path, fs::perms(0666));
    std::string temporary;
    calls.at_next("write", [&] {
        temporary = directory + "/" + others().at(0);
        EXPECT_EQ(mode_of(temporary), 0600U);
        return 0;
    });
    calls.at_next("fsync", [&] {
        EXPECT_EQ(fs::file_size(temporary), 3U);
        EXPECT_EQ(mode_of(temporary), 0666U);
        return 0;
    });

    EXPECT_TRUE(replace("new"));

    EXPECT_EQ(mode_of(path), 0666U);
}

TEST_F(replace_file_test, no_program_that_is_started_meanwhile_gets_the_descriptor)
{
    const file_replacement next(path.c_str());

    size_t found = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code none;
        if (!fs::read_symlink(entry, none).string().starts_with(directory + "/."))
            continue;
        found++;
        EXPECT_TRUE(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC);
    }
    EXPECT_EQ(found, 1U);
}

TEST_F(replace_file_test, the_look_is_the_old_files_or_what_is_asked_for)
{
    fs::permissions(path, fs::perms(0640));
    const bool given = chown(path.c_str(), 1, 1) == 0; // for root only
    EXPECT_TRUE(replace("new"));
    struct stat info = {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0640U);
    EXPECT_EQ(info.st_uid, given ? 1 : geteuid());
    EXPECT_EQ(info.st_gid, given ? 1 : getegid());

    file_replacement next(path.c_str());
    EXPECT_TRUE(next.write("new", 3, script) && next.put_into_place());
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0755U);
    EXPECT_EQ(info.st_uid, geteuid());

    const file_look missing = look_of((directory + "/none").c_str(), 0604);
    EXPECT_EQ(missing.mode, 0604U);
    EXPECT_EQ(missing.owner, keep_owner);
    EXPECT_EQ(missing.group, keep_group);
}

TEST_F(replace_file_test, a_link_stays_one)
{
    fs::create_directory(directory + "/elsewhere");
    const std::string real = directory + "/elsewhere/real";
    fs::rename(path, real);
    fs::create_symlink("elsewhere/real", path);

    EXPECT_TRUE(replace("new"));

    EXPECT_TRUE(fs::is_symlink(path));
    EXPECT_FALSE(fs::is_symlink(real));
    EXPECT_EQ(content(), "new");
}

TEST_F(replace_file_test, a_link_that_leads_nowhere_is_replaced)
{
    fs::remove(path);
    fs::create_symlink("none", path);

    EXPECT_TRUE(replace("new"));

    EXPECT_FALSE(fs::is_symlink(path));
    EXPECT_EQ(others(), strings{});
}

TEST_F(replace_file_test, without_a_place_to_write_nothing_is_opened)
{
    EXPECT_FALSE(file_replacement((directory + "/none/file").c_str()));
    EXPECT_FALSE(file_replacement((path + "/file").c_str()));
    EXPECT_FALSE(file_replacement((directory + "/" + std::string(250, 'n')).c_str()));
    EXPECT_FALSE(file_replacement(("/" + std::string(PATH_MAX, 'n')).c_str()));
    EXPECT_FALSE(file_replacement("no-such-file-here"));
    EXPECT_FALSE(file_replacement(""));
    EXPECT_EQ(others(), strings{});
}

TEST_F(replace_file_test, a_directory_in_its_place_is_not_replaced)
{
    fs::remove(path);
    fs::create_directory(path);

    EXPECT_FALSE(replace("new"));

    EXPECT_TRUE(fs::is_directory(path));
    EXPECT_EQ(others(), strings{});
}

TEST_F(replace_file_test, temporary_files_of_stopped_writers_go)
{
    for (const char *name : {"/.file.uci-aB3dE9", "/.file.uci-young0", "/.other.uci-aB3dE9"}) {
        std::ofstream(directory + name) << "half a fi";
        if (std::string_view(name) != "/.file.uci-young0")
            fs::last_write_time(directory + name, fs::file_time_type::clock::now() - std::chrono::minutes(2));
    }

    EXPECT_TRUE(replace("new"));

    EXPECT_FALSE(fs::exists(directory + "/.file.uci-aB3dE9"));
    EXPECT_TRUE(fs::exists(directory + "/.file.uci-young0")) << "its writer may be at work";
    EXPECT_TRUE(fs::exists(directory + "/.other.uci-aB3dE9"));
}

TEST_F(replace_file_test, a_writer_with_a_suffix_of_its_own_leaves_those_of_others)
{
    const std::string left = directory + "/.file.uci-aB3dE9";
    std::ofstream(left) << "half a fi";
    fs::last_write_time(left, fs::file_time_type::clock::now() - std::chrono::minutes(2));

    file_replacement next(path.c_str(), ".own-XXXXXX");
    ASSERT_TRUE(next);
    ASSERT_TRUE(next.write("new", 3, {0600, keep_owner, keep_group}));
    ASSERT_TRUE(next.put_into_place());

    EXPECT_TRUE(fs::exists(left));
}

} // namespace
