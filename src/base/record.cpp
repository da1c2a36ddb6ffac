#include "base/record.h"

#include "base/carry_out.h"
#include "base/heap.h"
#include "base/os.h"

#include <cerrno>
#include <fcntl.h>
#include <replace_file.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <write_whole.h>

namespace {

// A lock that the system refuses once need not be refused twice; one that somebody has is.
bool take_lock(int file)
{
    for (int i = 0; i < 3; i++) {
        if (flock(file, LOCK_EX | LOCK_NB) == 0)
            return true;
        if (errno == EWOULDBLOCK)
            return false;
    }
    return false;
}

bool is_named(int file, const char *path)
{
    struct stat opened, named;
    return fstat(file, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

bool is_empty(int file)
{
    struct stat info;
    return fstat(file, &info) == 0 && info.st_size == 0;
}

} // namespace

record_file::~record_file()
{
    drop();
}

void record_file::drop()
{
    if (file_ < 0)
        return;
    if (!decided_ && unlink(path_) != 0)
        (void)unlink(path_);
    (void)close(file_);
    file_ = -1;
    decided_ = false;
}

// Locks the file that has this name now, not one that was removed while it was opened.
bool record_file::lock(const char *path, int flags, bool *busy_out)
{
    *busy_out = false;
    for (;;) {
        const int file = open(path, flags | O_RDWR | O_CLOEXEC | O_NOFOLLOW, 0600);
        if (file < 0)
            return false;
        const bool locked = take_lock(file);
        if (locked && is_named(file, path)) {
            path_ = path;
            file_ = file;
            return true;
        }
        const int reason = errno;
        (void)close(file);
        *busy_out = !locked && reason == EWOULDBLOCK;
        errno = reason;
        if (!locked)
            return false;
    }
}

bool record_file::acquire()
{
    for (const char *const path : record_paths) {
        bool busy = false;
        if (!lock(path, O_CREAT, &busy)) {
            if (busy)
                continue;
            return false;
        }
        if (is_empty(file_))
            return true;
        // An earlier operation that cannot be completed yet. It must be, before anything else changes.
        (void)close(file_);
        file_ = -1;
        errno = EBUSY;
        return false;
    }
    errno = EBUSY;
    return false;
}

bool record_file::open_existing(const char *path, bool *busy_out)
{
    return lock(path, 0, busy_out);
}

record_file::content record_file::read(step_list &steps_out) const
{
    struct stat info;
    if (fstat(file_, &info) != 0)
        return unreadable;
    const size_t size = static_cast<size_t>(info.st_size);
    const heap_ptr<char[]> text(static_cast<char *>(malloc(size + 1)));
    if (!text)
        return unreadable;
    size_t length = 0;
    while (length < size) {
        const ssize_t count = pread(file_, text.get() + length, size - length, static_cast<off_t>(length));
        if (count <= 0)
            return unreadable;
        length += static_cast<size_t>(count);
    }
    return parse_steps(text.get(), size, steps_out) ? whole : undecided;
}

bool record_file::decide(const step_list &steps)
{
    size_t size = 0;
    const heap_ptr<char[]> text(print_steps(steps, &size));
    if (!text) {
        errno = ENOMEM;
        return false;
    }
    // The record names temporaries, so their names have to be on the disk before it, as well as its own.
    if (!sync_temporaries(steps, path_) || !write_whole(file_, text.get(), size))
        return false;
    decided_ = fsync(file_) == 0;
    if (!decided_ && ftruncate(file_, 0) != 0)
        decided_ = true; // it may be read after all, so it counts
    return decided_;
}

void record_file::finish()
{
    if (file_ < 0)
        return;
    // Emptied, it would not count either.
    if (unlink(path_) != 0 && unlink(path_) != 0)
        (void)!ftruncate(file_, 0);
    (void)sync_directory_of(path_);
    (void)close(file_);
    file_ = -1;
    decided_ = false;
}

void record_file::swap(record_file &other)
{
    std::swap(path_, other.path_);
    std::swap(file_, other.file_);
    std::swap(decided_, other.decided_);
}
