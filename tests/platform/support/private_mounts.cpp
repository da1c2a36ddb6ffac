#include "platform/support/private_mounts.h"

#include <fstream>
#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

bool write_line(const char *path, const std::string &line)
{
    std::ofstream file(path);
    file << line << std::flush;
    return file.good();
}

bool unshare_as_root()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (geteuid() == 0)
        return unshare(CLONE_NEWNS) == 0;
    return unshare(CLONE_NEWNS | CLONE_NEWUSER) == 0 && write_line("/proc/self/setgroups", "deny") &&
           write_line("/proc/self/uid_map", "0 " + user + " 1") &&
           write_line("/proc/self/gid_map", "0 " + group + " 1");
}

} // namespace

bool enter_private_mounts()
{
    return unshare_as_root() && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}
