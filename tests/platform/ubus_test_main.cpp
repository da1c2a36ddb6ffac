// The main of the bus's test programs. The daemon makes a directory below /var/run even when its socket is
// elsewhere, so the tests run with an empty /run of their own.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

namespace {

bool write_file(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool written = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return written;
}

// An ordinary user becomes root of a name space in which only this user exists.
bool unshare_as_root()
{
    const unsigned user = geteuid(), group = getegid();
    if (user == 0)
        return unshare(CLONE_NEWNS) == 0;
    return unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0 && write_file("/proc/self/setgroups", "deny") &&
           write_file("/proc/self/uid_map", "0 " + std::to_string(user) + " 1") &&
           write_file("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
}

bool enter_private_run()
{
    return unshare_as_root() && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0;
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    if (!GTEST_FLAG_GET(list_tests) && !enter_private_run()) {
        fprintf(stderr, "cannot get a /run of my own: %s\n", strerror(errno));
        return 1;
    }
    return RUN_ALL_TESTS();
}
