#include "locked_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

file_state state_from(const struct stat &info)
{
    return {info.st_dev, info.st_ino, info.st_size, info.st_mtim, info.st_ctim};
}

bool same_time(const timespec &one, const timespec &other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool is_still(const char *path, int descriptor)
{
    struct stat opened, named;
    return fstat(descriptor, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

} // namespace

file_state state_of(const char *path)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return {};
    return state_from(info);
}

bool same_state(const file_state &one, const file_state &other)
{
    return one.device == other.device && one.inode == other.inode && one.size == other.size &&
           same_time(one.modified, other.modified) && same_time(one.changed, other.changed);
}

locked_file::locked_file(const char *path, int flags) : descriptor_(-1)
{
    for (;;) {
        descriptor_ = open(path, flags | O_CLOEXEC);
        if (descriptor_ < 0)
            return;
        const bool locked = flock(descriptor_, LOCK_EX) == 0;
        if (locked && is_still(path, descriptor_))
            return;
        const bool try_again = locked || errno == EINTR;
        (void)close(descriptor_);
        descriptor_ = -1;
        if (!try_again)
            return;
    }
}

locked_file::~locked_file()
{
    if (descriptor_ >= 0)
        (void)close(descriptor_);
}

file_state locked_file::state() const
{
    struct stat info;
    if (descriptor_ < 0 || fstat(descriptor_, &info) != 0)
        return {};
    return state_from(info);
}
