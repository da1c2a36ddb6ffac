// The files behind packages: locking, reading, appending and replacing them whole.
#pragma once

#include <cstdio>

#include <sys/types.h>

#include "memory.h"

namespace uci {

// Owns a file descriptor; closing it releases its lock.
class descriptor {
public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(other.release()) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~descriptor() { reset(-1); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();
    void reset(int fd);
    // Closes; false if that reports an error of earlier writes.
    bool close_checked();

private:
    int fd_ = -1;
};

enum class locking { shared, exclusive };
enum class when_missing { fail, create };

struct locked_file {
    descriptor file;
    bool created = false;
};

// Opens a regular file, for writing too if the lock is exclusive, and locks it. The path still names the
// locked file when this returns: files are replaced by renames, and a lock on the one replaced would guard
// nothing. UCI_ERR_NOTFOUND: missing or not regular; UCI_ERR_IO: cannot be opened or locked.
int open_locked(const char *path, locking lock, when_missing missing, mode_t mode, locked_file *out);

// Read to the end. UCI_ERR_IO or UCI_ERR_MEM.
int read_file(int fd, bytes *out);
int read_stream(FILE *stream, bytes *out);

// Appends to the first `kept` bytes of an open file, all of the text or nothing, on a line of its own. What
// was behind these bytes is dropped.
int append_whole(int fd, size_t kept, const char *data, size_t size);

// Puts a new file in place of the one at path, whose exclusive lock is held; its mode and owner stay. See
// file_replacement. UCI_ERR_IO: that failed.
int replace_file(const char *path, const char *data, size_t size);

// The permission bits of a file, or fallback when it cannot be told.
mode_t mode_of(const char *path, mode_t fallback);

} // namespace uci
