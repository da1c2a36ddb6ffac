// Which files count as the process's own: those that no other user can have planted.
#include "base/own_file.h"

#include "support/gateway.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

void PrintTo(own_file result, std::ostream *out)
{
    *out << (result == own_file::opened    ? "opened"
             : result == own_file::missing ? "missing"
             : result == own_file::foreign ? "foreign"
                                           : "unreadable");
}

namespace {

namespace fs = std::filesystem;

constexpr uid_t stranger = 65534;

class own_file_test : public gateway_test {
protected:
    own_file_test()
    {
        fs::create_directory("/tmp/a");
        gateway.write_file("/tmp/a/file", "text");
        gateway.chmod("/tmp", 01777);
    }

    static own_file open(const std::string &path)
    {
        FILE *stream = nullptr;
        const own_file result = open_own_file(path.c_str(), &stream);
        EXPECT_EQ(result == own_file::opened, stream != nullptr);
        if (stream) {
            char text[8] = {};
            EXPECT_EQ(4U, fread(text, 1, sizeof(text), stream));
            EXPECT_STREQ("text", text);
            fclose(stream);
        }
        return result;
    }

    static void give_away(const std::string &path)
    {
        if (lchown(path.c_str(), stranger, stranger) != 0)
            throw std::runtime_error("cannot give " + path + " away: " + strerror(errno));
    }

    // Whether there is any user but this one to whom a file can be given.
    bool has_strangers()
    {
        gateway.write_file("/tmp/given", "");
        const bool given = chown("/tmp/given", stranger, stranger) == 0;
        gateway.remove("/tmp/given");
        return given;
    }
};

#define SKIP_WITHOUT_STRANGERS()                                                                             \
    if (!has_strangers())                                                                                    \
    GTEST_SKIP() << "an ordinary user has no second one to give files to; run it as root"

TEST_F(own_file_test, a_file_of_its_own_is_opened)
{
    for (const char *path : {"/tmp/a/file", "//tmp//a/./file", "/tmp/a/../a/file"})
        EXPECT_EQ(own_file::opened, open(path)) << path;
    ASSERT_EQ(0, chdir("/tmp/a"));
    EXPECT_EQ(own_file::opened, open("file"));
    EXPECT_EQ(own_file::opened, open("../a/file"));
    ASSERT_EQ(0, chdir("/"));
    for (const unsigned mode : {0600U, 0400U, 0755U, 04755U}) {
        gateway.chmod("/tmp/a/file", mode);
        EXPECT_EQ(own_file::opened, open("/tmp/a/file")) << mode;
    }
}

TEST_F(own_file_test, what_is_not_there_is_missing)
{
    const text_lines paths = {"/tmp/b",
                              "/tmp/b/file",
                              "b",
                              "/tmp/a/file/more",
                              "/tmp/" + std::string(256, 'x'),
                              std::string(5000, 'x')};
    for (const std::string &path : paths)
        EXPECT_EQ(own_file::missing, open(path)) << path;
}

// Fails all opening of files beyond so many more.
class descriptor_limit {
public:
    explicit descriptor_limit(rlim_t more)
    {
        const int next = dup(STDIN_FILENO);
        close(next);
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit lower{static_cast<rlim_t>(next) + more, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &lower);
    }
    ~descriptor_limit() { setrlimit(RLIMIT_NOFILE, &before_); }
    descriptor_limit(const descriptor_limit &) = delete;
    descriptor_limit &operator=(const descriptor_limit &) = delete;

private:
    rlimit before_{};
};

TEST_F(own_file_test, what_the_system_has_no_room_to_open_is_unreadable_and_not_missing)
{
    unsigned needed = 0;
    for (own_file result = own_file::unreadable; result == own_file::unreadable; needed++) {
        SCOPED_TRACE(needed);
        ASSERT_LT(needed, 10U);
        const descriptor_limit limit(needed);
        FILE *stream = nullptr;
        result = open_own_file("/tmp/a/file", &stream);
        const int reason = errno;
        if (stream)
            fclose(stream);
        ASSERT_EQ(stream ? own_file::opened : own_file::unreadable, result);
        EXPECT_TRUE(stream || reason == EMFILE) << strerror(reason);
    }
    EXPECT_LT(2U, needed);
}

TEST_F(own_file_test, a_file_that_others_may_write_is_foreign)
{
    for (const unsigned mode : {0664U, 0646U, 0666U, 0622U, 01777U}) {
        gateway.chmod("/tmp/a/file", mode);
        EXPECT_EQ(own_file::foreign, open("/tmp/a/file")) << mode;
    }
}

TEST_F(own_file_test, a_file_with_a_second_name_is_foreign)
{
    fs::create_hard_link("/tmp/a/file", "/tmp/second");

    EXPECT_EQ(own_file::foreign, open("/tmp/a/file"));
    EXPECT_EQ(own_file::foreign, open("/tmp/second"));
}

TEST_F(own_file_test, what_is_no_regular_file_is_foreign_and_not_waited_for)
{
    ASSERT_EQ(0, mkfifo("/tmp/a/pipe", 0600));

    for (const char *path : {"/tmp/a", "/tmp/a/", "/", "", ".", "/tmp/a/pipe", "/dev/null"})
        EXPECT_EQ(own_file::foreign, open(path)) << path;
}

TEST_F(own_file_test, links_of_its_own_are_followed)
{
    fs::create_symlink("a/file", "/tmp/relative");
    fs::create_symlink("/tmp/a/file", "/tmp/absolute");
    fs::create_symlink("/tmp/a", "/tmp/directory");
    fs::create_symlink("../relative", "/tmp/a/up");
    fs::create_symlink("nowhere", "/tmp/dangling");
    fs::create_symlink("loop", "/tmp/loop");
    fs::create_symlink("/tmp/a", "/tmp/to-directory");

    for (const char *path : {"/tmp/relative", "/tmp/absolute", "/tmp/directory/file", "/tmp/directory/up",
                             "/tmp/directory/../a/up"})
        EXPECT_EQ(own_file::opened, open(path)) << path;
    EXPECT_EQ(own_file::missing, open("/tmp/dangling"));
    EXPECT_EQ(own_file::missing, open("/tmp/loop"));
    EXPECT_EQ(own_file::foreign, open("/tmp/to-directory"));
}

TEST_F(own_file_test, in_a_directory_where_others_may_replace_it_a_file_is_foreign)
{
    const struct {
        const char *directory;
        unsigned mode;
        own_file result;
    } cases[] = {
        {"/tmp/a", 0775, own_file::foreign}, {"/tmp/a", 0757, own_file::foreign},
        {"/tmp/a", 0777, own_file::foreign}, {"/tmp/a", 01777, own_file::opened},
        {"/tmp/a", 01775, own_file::opened}, {"/tmp/a", 0700, own_file::opened},
        {"/tmp", 0777, own_file::foreign},   {"/tmp", 0755, own_file::opened},
    };
    fs::create_symlink("/tmp/a/file", "/link");
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.directory) + " " + std::to_string(row.mode));
        const unsigned before = gateway.mode(row.directory);
        gateway.chmod(row.directory, row.mode);

        EXPECT_EQ(row.result, open("/tmp/a/file"));
        EXPECT_EQ(row.result, open("/link"));

        gateway.chmod(row.directory, before);
    }
    gateway.remove("/link");
}

TEST_F(own_file_test, what_belongs_to_another_user_is_foreign)
{
    SKIP_WITHOUT_STRANGERS();
    fs::create_symlink("/tmp/a/file", "/tmp/link");
    fs::create_symlink("/tmp/a", "/tmp/directory");
    fs::create_symlink("/tmp/link", "/tmp/own");
    EXPECT_EQ(own_file::opened, open("/tmp/own"));
    give_away("/tmp/link");
    EXPECT_EQ(own_file::foreign, open("/tmp/link"));
    EXPECT_EQ(own_file::foreign, open("/tmp/own")) << "leads through another's link";
    EXPECT_EQ(own_file::opened, open("/tmp/directory/file"));
    give_away("/tmp/directory");
    EXPECT_EQ(own_file::foreign, open("/tmp/directory/file"));

    EXPECT_EQ(own_file::opened, open("/tmp/a/file"));
    give_away("/tmp/a");
    EXPECT_EQ(own_file::foreign, open("/tmp/a/file")) << "its owner can put another one there";
    ASSERT_EQ(0, chown("/tmp/a", 0, 0));
    give_away("/tmp/a/file");
    EXPECT_EQ(own_file::foreign, open("/tmp/a/file"));
}

} // namespace
