#include "replace_file.h"

#include "leftovers.h"
#include "write_whole.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr mode_t permission_bits = 07777;

// The path without links. A file that is not there yet has none, or one that leads nowhere and is replaced.
bool find_target(const char *path, char (&target_out)[PATH_MAX])
{
    if (realpath(path, target_out))
        return true;
    if (errno != ENOENT || path[0] != '/')
        return false;
    const int length = snprintf(target_out, sizeof(target_out), "%s", path);
    return length < static_cast<int>(sizeof(target_out));
}

// Of the directory that an absolute path is in.
bool sync_directory_of(const char *path)
{
    char directory[PATH_MAX];
    const char *const name = strrchr(path, '/') + 1;
    (void)snprintf(directory, sizeof(directory), "%.*s", static_cast<int>(name - path), path);
    const int descriptor = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    // Some file systems have nothing to sync for a directory and say so by EINVAL.
    const bool synced = fsync(descriptor) == 0 || errno == EINVAL;
    (void)close(descriptor);
    return synced;
}

} // namespace

file_look look_of(const char *path, mode_t mode_if_missing)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return {mode_if_missing, keep_owner, keep_group};
    return {info.st_mode & permission_bits, info.st_uid, info.st_gid};
}

file_replacement::file_replacement(const char *path)
{
    if (!find_target(path, target_))
        return;
    remove_leftovers(target_);
    const char *const name = strrchr(target_, '/') + 1;
    (void)snprintf(temporary_, sizeof(temporary_), "%.*s.%s%s", static_cast<int>(name - target_), target_,
                   name, temporary_suffix);
    descriptor_ = mkostemp(temporary_, O_CLOEXEC);
    if (descriptor_ < 0)
        temporary_[0] = '\0';
}

file_replacement::~file_replacement()
{
    give_up();
}

void file_replacement::give_up()
{
    if (descriptor_ >= 0)
        (void)close(descriptor_);
    descriptor_ = -1;
    if (temporary_[0] != '\0')
        (void)unlink(temporary_);
    temporary_[0] = '\0';
}

// The look comes last: until then the file is nobody else's to read.
bool file_replacement::fill(const char *data, size_t size, const file_look &look)
{
    if (!write_whole(descriptor_, data, size))
        return false;
    [[maybe_unused]] const int given = fchown(descriptor_, look.owner, look.group);
    return fchmod(descriptor_, look.mode) == 0 && fsync(descriptor_) == 0;
}

bool file_replacement::write(const char *data, size_t size, const file_look &look)
{
    const bool filled = descriptor_ >= 0 && fill(data, size, look);
    const bool closed = descriptor_ >= 0 && close(descriptor_) == 0;
    descriptor_ = -1;
    if (!filled || !closed)
        give_up();
    return filled && closed;
}

bool file_replacement::put_into_place()
{
    if (temporary_[0] == '\0' || descriptor_ >= 0 || rename(temporary_, target_) != 0) {
        give_up();
        return false;
    }
    temporary_[0] = '\0';
    return sync_directory_of(target_);
}
