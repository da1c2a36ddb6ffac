// Files under the lock that libuci takes, and what tells that somebody has changed one.
#pragma once

#include <sys/stat.h>

// What a file was at some moment, to tell later whether somebody has changed it since. All zero: it did not
// exist.
struct file_state {
    dev_t device;
    ino_t inode;
    off_t size;
    timespec modified, changed;
};

// The state of a path's file, following symbolic links.
file_state state_of(const char *path);
bool same_state(const file_state &one, const file_state &other);

// An exclusive lock of the kind libuci takes: on the file itself, so a file that was replaced while we waited
// for the lock is opened anew. Released by the destructor.
class locked_file {
public:
    // Opens and locks an existing file; flags as for open().
    locked_file(const char *path, int flags);
    ~locked_file();
    locked_file(const locked_file &) = delete;
    locked_file &operator=(const locked_file &) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }
    file_state state() const;

private:
    int descriptor_;
};
