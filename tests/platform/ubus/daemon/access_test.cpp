// Access: what clients that are not root may do, with and without access files.
#include "platform/ubus/daemon_fixture.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr unsigned nobody = 65534, unknown_user = 54321;

bytes lookup(const bytes &fields = {})
{
    return message(msg_lookup, 7, 0, fields);
}

bytes invoke(uint32_t object, std::string_view method)
{
    return message(msg_invoke, 8, object,
                   number_field(field_object, object) + text_field(field_method, method) +
                       attribute(field_data, {}));
}

std::vector<std::string> found_paths(raw_client &client, const bytes &request)
{
    std::vector<bytes> data;
    EXPECT_EQ(0, client.call(request, &data));
    std::vector<std::string> paths;
    for (const bytes &found : data)
        paths.emplace_back(reinterpret_cast<const char *>(&found[16]));
    return paths;
}

class ubusd_access_test : public running_ubusd_test {
protected:
    // Becoming somebody else takes root, or a user name space with more than one user.
    void SetUp() override
    {
        const int probe = connect_as(nobody, nobody, socket_path);
        if (probe < 0)
            GTEST_SKIP() << "this run has only one user, so access rules were not tested: "
                         << strerror(errno);
        close(probe);
    }

    raw_client connect_as_nobody() const { return raw_client(connect_as(nobody, nobody, socket_path)); }

    std::string write_access_file(const std::string &content, const std::string &name = "rules.json") const
    {
        const std::string path = directory + "/acl/" + name;
        std::ofstream(path) << content;
        chmod(path.c_str(), 0644);
        return path;
    }
    // SIGHUP, and the proof that it has been acted on: an answer to a client that connected after it.
    void reload()
    {
        kill(daemon.pid(), SIGHUP);
        EXPECT_TRUE(connect().pending().empty());
        EXPECT_TRUE(connect().pending().empty());
    }
    bool is_refused(raw_client &client, uint32_t object, const char *method)
    {
        client.send(invoke(object, method));
        return !client.pending().empty();
    }
};

TEST_F(ubusd_access_test, stranger_without_rules_may_do_nothing)
{
    raw_client owner = connect();
    const uint32_t object = owner.add_object("t");
    ASSERT_NE(0u, owner.add_object("bare", {}));
    raw_client stranger = connect_as_nobody();

    EXPECT_EQ(std::vector<std::string>{"bare"}, found_paths(stranger, lookup()));
    EXPECT_TRUE(found_paths(stranger, lookup(text_field(field_path, "t"))).empty());
    EXPECT_TRUE(found_paths(stranger, lookup(text_field(field_path, "t*"))).empty());
    EXPECT_EQ(6, stranger.call(invoke(object, "get")));
    EXPECT_EQ(2, stranger.call(message(msg_add_object, 9, 0, text_field(field_path, "mine"))));
    const uint32_t anonymous = stranger.add_anonymous();
    EXPECT_NE(0u, anonymous);
    EXPECT_EQ(6, stranger.listen(anonymous, "x"));
    EXPECT_EQ(6, stranger.send_event("x"));
    EXPECT_EQ(6, stranger.call(
                     message(msg_subscribe, 9, 0,
                             number_field(field_object, anonymous) + number_field(field_target, object))));
    EXPECT_TRUE(owner.pending().empty());
}

TEST_F(ubusd_access_test, user_or_group_that_the_system_does_not_know_is_not_greeted)
{
    raw_client user(connect_as(unknown_user, nobody, socket_path));
    EXPECT_EQ("closed", user.hello());
    raw_client group(connect_as(nobody, unknown_user, socket_path));
    EXPECT_EQ("closed", group.hello());
    EXPECT_TRUE(connect().pending().empty());
}

TEST_F(ubusd_access_test, owner_learns_who_calls)
{
    write_access_file(R"({"user": "nobody", "access": {"t": {"methods": ["*"]}}})");
    reload();
    raw_client owner = connect();
    const uint32_t object = owner.add_object("t");
    raw_client stranger = connect_as_nobody();

    stranger.send(invoke(object, "get"));

    EXPECT_EQ(words(message(msg_invoke, 8, stranger.id(),
                            number_field(field_object, object) + text_field(field_method, "get") +
                                text_field(field_user, "nobody") + text_field(field_group, "nogroup") +
                                attribute(field_data, {}))),
              owner.receive());
}

TEST_F(ubusd_access_test, methods_are_allowed_by_name_and_by_beginning)
{
    write_access_file(
        R"({"user": "nobody", "access": {"t": {"methods": ["get"]}, "net.*": {"methods": ["s*"]}}})");
    reload();
    raw_client owner = connect();
    const bytes signature = named_table("get") + named_table("set") + named_table("show");
    const uint32_t plain = owner.add_object("t", signature);
    const uint32_t inner = owner.add_object("net.a", signature);
    const uint32_t other = owner.add_object("network", signature);
    raw_client stranger = connect_as_nobody();

    EXPECT_FALSE(is_refused(stranger, plain, "get"));
    EXPECT_TRUE(is_refused(stranger, plain, "set"));
    EXPECT_TRUE(is_refused(stranger, inner, "get"));
    EXPECT_FALSE(is_refused(stranger, inner, "set"));
    EXPECT_FALSE(is_refused(stranger, inner, "sound"));
    EXPECT_TRUE(is_refused(stranger, other, "set"));

    // A lookup shows the methods that may be called.
    std::vector<bytes> found;
    EXPECT_EQ(0, stranger.call(lookup(), &found));
    ASSERT_EQ(2u, found.size());
    const std::string inner_signature =
        words(attribute(field_signature, named_table("set") + named_table("show")));
    const std::string plain_signature = words(attribute(field_signature, named_table("get")));
    EXPECT_TRUE(words(found[0]).ends_with(inner_signature)) << words(found[0]);
    EXPECT_TRUE(words(found[1]).ends_with(plain_signature)) << words(found[1]);
}

TEST_F(ubusd_access_test, each_list_allows_its_own_kind)
{
    write_access_file(R"({"group": "nogroup", "publish": ["my.*"], "listen": ["foo", "ubus.*"],
                          "send": ["out.*"], "subscribe": ["t"]})");
    reload();
    raw_client owner = connect();
    const uint32_t object = owner.add_object("t");
    const uint32_t other = owner.add_object("u");
    raw_client stranger = connect_as_nobody();

    EXPECT_NE(0u, stranger.add_object("my.own"));
    EXPECT_EQ(0u, stranger.add_object("own"));
    const uint32_t anonymous = stranger.add_anonymous();
    EXPECT_EQ(0, stranger.listen(anonymous, "foo"));
    EXPECT_EQ(0, stranger.listen(anonymous, "ubus.object.add"));
    EXPECT_EQ(6, stranger.listen(anonymous, "fo"));
    EXPECT_EQ(6, stranger.listen(anonymous, "*"));
    EXPECT_EQ(0, stranger.send_event("out.side"));
    EXPECT_EQ(6, stranger.send_event("side"));
    const bytes from = number_field(field_object, anonymous);
    EXPECT_EQ(0, stranger.call(message(msg_subscribe, 9, 0, from + number_field(field_target, object))));
    EXPECT_EQ(6, stranger.call(message(msg_subscribe, 9, 0, from + number_field(field_target, other))));
}

TEST_F(ubusd_access_test, rules_of_somebody_else_do_not_count)
{
    const std::string everything = R"("access": {"*": {"methods": ["*"]}}, "publish": ["*"], "send": ["*"])";
    write_access_file(R"({"user": "daemon", )" + everything + "}", "a.json");
    write_access_file(R"({"group": "daemon", )" + everything + "}", "b.json");
    reload();
    raw_client owner = connect();
    const uint32_t object = owner.add_object("t");
    raw_client stranger = connect_as_nobody();

    EXPECT_EQ(6, stranger.send_event("x"));
    EXPECT_EQ(6, stranger.call(invoke(object, "get")));
    EXPECT_EQ(0u, stranger.add_object("mine"));
    EXPECT_TRUE(found_paths(stranger, lookup()).empty());
}

// An empty file system in place of a directory of the system's, for as long as it lives.
struct covered_directory {
    explicit covered_directory(const char *directory) : path(directory)
    {
        EXPECT_EQ(0, mount("tmpfs", path, "tmpfs", 0, "mode=0755")) << strerror(errno);
    }
    ~covered_directory() { umount2(path, MNT_DETACH); }
    const char *path;
};

TEST_F(ubusd_access_test, without_an_option_the_files_are_the_systems)
{
    const covered_directory share("/usr/share");
    ASSERT_EQ(0, mkdir("/usr/share/acl.d", 0755));
    std::ofstream("/usr/share/acl.d/nobody.json") << R"({"user": "nobody", "send": ["a"]})";
    write_access_file(R"({"user": "nobody", "send": ["b"]})");
    daemon.stop(SIGTERM);

    start();

    EXPECT_EQ(0, connect_as_nobody().send_event("a"));
    EXPECT_EQ(6, connect_as_nobody().send_event("b"));
}

// The directories of the real root in a root of its own, whose other entries are the test's. It is in the
// private /run and not in the test's directory, which is removed with all that is in it.
class copied_root {
public:
    copied_root()
    {
        const std::vector<fs::path> entries(fs::directory_iterator("/"), fs::directory_iterator());
        fs::create_directory(path);
        EXPECT_EQ(0, mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0755")) << strerror(errno);
        for (const fs::path &entry : entries) {
            const fs::path copy = path + entry.string();
            if (fs::is_symlink(entry)) {
                fs::copy_symlink(entry, copy);
            } else if (fs::is_directory(entry)) {
                fs::create_directory(copy);
                EXPECT_EQ(0, mount(entry.c_str(), copy.c_str(), nullptr, MS_BIND | MS_REC, nullptr))
                    << entry << ": " << strerror(errno);
            }
        }
    }
    ~copied_root()
    {
        umount2(path.c_str(), MNT_DETACH);
        rmdir(path.c_str());
    }
    const std::string path = "/run/ubusd-root";
};

TEST_F(ubusd_access_test, empty_option_means_the_files_in_the_root_directory)
{
    const copied_root root;
    std::ofstream(root.path + "/nobody.json") << R"({"user": "nobody", "send": ["a"]})";
    write_access_file(R"({"user": "nobody", "send": ["b"]})");
    daemon.stop(SIGTERM);

    start_below(root.path, {"-A", ""});

    EXPECT_EQ(0, connect_as_nobody().send_event("a"));
    EXPECT_EQ(6, connect_as_nobody().send_event("b"));
    // While its root is there: a sanitizer looks into /proc at the end.
    EXPECT_EQ(0, daemon.stop(SIGTERM));
}

TEST_F(ubusd_access_test, several_files_add_up_and_a_reload_forgets_the_old_ones)
{
    const std::string first = write_access_file(R"({"user": "nobody", "send": ["a"]})", "a.json");
    write_access_file(R"({"user": "nobody", "send": ["b"]})", "b.json");
    write_access_file(R"({"user": "nobody", "send": ["c"]})", "c.text");
    reload();
    raw_client stranger = connect_as_nobody();
    EXPECT_EQ(0, stranger.send_event("a"));
    EXPECT_EQ(0, stranger.send_event("b"));
    EXPECT_EQ(6, stranger.send_event("c"));

    unlink(first.c_str());
    reload();

    EXPECT_EQ(6, stranger.send_event("a"));
    EXPECT_EQ(0, stranger.send_event("b"));
}

TEST_F(ubusd_access_test, file_that_others_could_have_written_is_left_out)
{
    const struct {
        const char *what;
        unsigned owner, group;
        mode_t mode;
        bool used;
    } cases[] = {
        {"ours", 0, 0, 0644, true},
        {"group-writable", 0, 0, 0664, false},
        {"writable by all", 0, 0, 0646, false},
        {"executable by all", 0, 0, 0645, false},
        {"executable by its owner", 0, 0, 0744, true},
        {"somebody else's", nobody, nobody, 0644, false},
        {"somebody else's in our group", nobody, 0, 0644, false},
        {"ours in another group", 0, nobody, 0644, false},
    };
    raw_client stranger = connect_as_nobody();
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        const std::string path = write_access_file(R"({"user": "nobody", "send": ["a"]})");
        ASSERT_EQ(0, chown(path.c_str(), row.owner, row.group));
        ASSERT_EQ(0, chmod(path.c_str(), row.mode));
        reload();

        EXPECT_EQ(row.used ? 0 : 6, stranger.send_event("a"));
    }
}

TEST_F(ubusd_access_test, name_that_is_no_file_is_left_out)
{
    ASSERT_EQ(0, mkdir((directory + "/acl/directory.json").c_str(), 0755));
    ASSERT_EQ(0, symlink("nowhere", (directory + "/acl/link.json").c_str()));
    write_access_file(R"({"user": "nobody", "send": ["a"]})");

    reload();

    EXPECT_EQ(0, connect_as_nobody().send_event("a"));
}

TEST_F(ubusd_access_test, file_with_other_contents_is_survived)
{
    raw_client stranger = connect_as_nobody();
    for (const char *content :
         {"", "{", "[]", "\"x\"", "null", "{}", R"({"user": 1, "send": ["a"]})",
          R"({"user": "nobody", "send": "a"})", R"({"user": "nobody", "send": [1, null, {}]})",
          R"({"user": "nobody", "access": [], "send": {}})",
          R"({"user": "nobody", "access": {"t": null, "u": {"methods": 1}}})"}) {
        SCOPED_TRACE(content);
        write_access_file(content);
        reload();

        EXPECT_EQ(6, stranger.send_event("a"));
    }
}

} // namespace
