#include "root/namespaces.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string &step)
{
    throw std::system_error(errno, std::generic_category(), step);
}

void check(bool done, const char *step)
{
    if (!done)
        fail(step);
}

void write_proc_file(const char *path, const std::string &text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0)
        fail(std::string("open ") + path);
    const ssize_t written = write(file, text.data(), text.size());
    const int reason = errno;
    (void)close(file);
    errno = reason;
    if (written != static_cast<ssize_t>(text.size()))
        fail(std::string("write ") + path);
}

void enter_as_user(int namespaces)
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(namespaces | CLONE_NEWUSER) != 0)
        fail("make a user namespace (are user namespaces allowed here?)");
    write_proc_file("/proc/self/setgroups", "deny");
    write_proc_file("/proc/self/uid_map", "0 " + user + " 1\n");
    write_proc_file("/proc/self/gid_map", "0 " + group + " 1\n");
}

bool is_root_directory()
{
    struct stat here {};
    struct stat above {};
    check(stat(".", &here) == 0 && stat("..", &above) == 0, "look at the directory above");
    return here.st_dev == above.st_dev && here.st_ino == above.st_ino;
}

// Makes the namespace's root this process's, changes to its former root and returns where that is: "/" unless
// chroot had set another. Such a one need not be a mount point, and then only the mount around it can be
// separated.
std::string climb_to_root()
{
    const int former = open("/", O_PATH | O_DIRECTORY | O_CLOEXEC);
    check(former >= 0 && chdir("/") == 0, "open the root directory");
    // Once the root is further in, nothing stops the way up but the namespace's own root.
    check(chroot("/proc") == 0, "leave the root directory");
    while (!is_root_directory())
        check(chdir("..") == 0, "go up from the root directory");
    check(chroot(".") == 0 && fchdir(former) == 0, "return to the root directory");
    (void)close(former);
    const std::unique_ptr<char, decltype(&free)> path(getcwd(nullptr, 0), free);
    check(path != nullptr, "find the root directory");
    return path.get();
}

} // namespace

tree_owner enter_namespaces(int namespaces)
{
    if (geteuid() == 0) {
        if (unshare(namespaces) == 0)
            return tree_owner::root;
        if (errno != EPERM)
            fail("make namespaces");
    }
    enter_as_user(namespaces);
    return tree_owner::user;
}

void separate_mounts()
{
    const std::string root = climb_to_root();
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0,
          "separate the mounts from the machine's");
    if (root == "/")
        return;
    check(mount(root.c_str(), root.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "make the root directory a mount point");
    check(chdir(root.c_str()) == 0 && syscall(SYS_pivot_root, ".", ".") == 0,
          "make the root directory the namespace's");
    // What was the root is now on top of the new one.
    check(umount2(".", MNT_DETACH) == 0 && chdir("/") == 0, "take away what is around the root directory");
}
