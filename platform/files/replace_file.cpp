#include "replace_file.h"

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

// Whether two streams hold the same from here on.
bool same_content(FILE *one, FILE *other)
{
    for (;;) {
        char block[4096], beside[4096];
        const size_t count = fread(block, 1, sizeof(block), one);
        if (fread(beside, 1, sizeof(beside), other) != count || memcmp(block, beside, count) != 0)
            return false;
        if (count < sizeof(block))
            return !ferror(one) && !ferror(other);
    }
}

} // namespace

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

bool sync_file(const char *path)
{
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    const int reason = errno;
    (void)close(descriptor);
    errno = reason;
    return synced;
}

file_look look_of(const char *path, mode_t mode_if_missing)
{
    struct stat info;
    if (stat(path, &info) != 0)
        return {mode_if_missing, keep_owner, keep_group};
    return {info.st_mode & permission_bits, info.st_uid, info.st_gid};
}

file_replacement::file_replacement(const char *path, const char *suffix)
{
    if (!find_target(path, target_))
        return;
    if (strcmp(suffix, temporary_suffix) == 0)
        remove_leftovers(target_);
    const char *const name = strrchr(target_, '/') + 1;
    (void)snprintf(temporary_, sizeof(temporary_), "%.*s.%s%s", static_cast<int>(name - target_), target_,
                   name, suffix);
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

// C libraries disagree about how a stream learns that its writer has failed: so it never does, and the
// failure is kept here.
ssize_t file_replacement::write_some(void *cookie, const char *data, size_t size)
{
    file_replacement *const file = static_cast<file_replacement *>(cookie);
    if (file->write_error_ == 0 && !write_whole(file->descriptor_, data, size))
        file->write_error_ = errno;
    return static_cast<ssize_t>(size);
}

FILE *file_replacement::open_writer()
{
    const cookie_io_functions_t calls = {nullptr, write_some, nullptr, nullptr};
    return fopencookie(this, "w", calls);
}

FILE *file_replacement::open_reader() const
{
    return fopen(temporary_, "re");
}

bool file_replacement::written() const
{
    if (write_error_ != 0)
        errno = write_error_;
    return write_error_ == 0;
}

bool file_replacement::equals_target() const
{
    FILE *const old = fopen(target_, "re");
    FILE *const own = old ? open_reader() : nullptr;
    const bool equal = own && same_content(own, old);
    if (old)
        (void)fclose(old);
    if (own)
        (void)fclose(own);
    return equal;
}

// The look comes last: until then the file is nobody else's to read.
bool file_replacement::dress(const file_look &look, syncing when)
{
    [[maybe_unused]] const int given = fchown(descriptor_, look.owner, look.group);
    return fchmod(descriptor_, look.mode) == 0 && (when == syncing::later || fsync(descriptor_) == 0);
}

bool file_replacement::finish(const file_look &look, syncing when)
{
    const bool finished = descriptor_ >= 0 && written() && dress(look, when);
    const int reason = errno;
    const bool closed = descriptor_ >= 0 && close(descriptor_) == 0;
    descriptor_ = -1;
    if (!finished || !closed)
        give_up();
    if (!finished)
        errno = reason;
    return finished && closed;
}

bool file_replacement::write(const char *data, size_t size, const file_look &look)
{
    if (descriptor_ >= 0 && !write_whole(descriptor_, data, size))
        write_error_ = errno;
    return finish(look);
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
