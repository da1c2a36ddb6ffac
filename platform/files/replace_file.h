// Replaces a file as a whole, so that at any moment its path names the old content or the new one, complete.
#pragma once

#include "leftovers.h"

#include <climits>
#include <cstddef>
#include <cstdio>
#include <sys/types.h>

// Who may do what with a file.
struct file_look {
    mode_t mode; // permission bits
    uid_t owner; // keep_owner: the writer's
    gid_t group; // keep_group: the writer's
};
constexpr uid_t keep_owner = static_cast<uid_t>(-1);
constexpr gid_t keep_group = static_cast<gid_t>(-1);

// The look of the file at a path, or at what a link there points to; if there is none, this mode and the
// writer as owner.
file_look look_of(const char *path, mode_t mode_if_missing);

// Syncs the directory that an absolute path is in. A directory that has nothing to sync is no failure.
bool sync_directory_of(const char *path);

// Syncs a file. False: errno says why.
bool sync_file(const char *path);

// New content for a file, in two steps: write(), or a writer and finish(), bring it to the disk beside the
// file, and put_into_place() makes it the file. Whoever replaces several files can take the first step for
// all of them before the second one. What is not put into place is removed by the destructor, and the old
// file stays as it was.
class file_replacement {
public:
    // Opens an empty file beside the one at this path, or beside the one that a link there points to; it is
    // hidden, and nobody but its owner may read it. The path is absolute or that of an existing file; the
    // directory must be there. The new file's name ends in `suffix`, with its six X replaced. With the usual
    // one, temporary files that stopped writers left of the same file are removed; who has another knows
    // where its own are.
    explicit file_replacement(const char *path, const char *suffix = temporary_suffix);
    ~file_replacement();
    file_replacement(const file_replacement &) = delete;
    file_replacement &operator=(const file_replacement &) = delete;

    // Whether the new file could be opened.
    explicit operator bool() const { return temporary_[0] != '\0'; }
    const char *target() const { return target_; } // without links
    const char *temporary() const { return temporary_; }

    // Streams into and from the new file; null when memory is short. The caller closes them. What a writer
    // took is there once it is closed and written() says so; if not, errno says why.
    FILE *open_writer();
    FILE *open_reader() const;
    bool written() const;
    // Whether the old file holds the very same.
    bool equals_target() const;

    // Gives the new file its look and syncs it, unless the caller does that later, by sync_file(). False: not
    // all of that worked, and the new file is gone. Only root can give a file away: for others it stays
    // theirs, which is no failure. To be called once.
    enum class syncing { now, later };
    bool finish(const file_look &look, syncing when = syncing::now);
    // Writes the whole content before that, without a writer.
    bool write(const char *data, size_t size, const file_look &look);

    // Renames what was written onto the file and syncs the directory; links stay what they are. False: the
    // old file is still there, or, when only the last step failed, the new one is and may not outlive a loss
    // of power. A directory that has nothing to sync is no failure.
    bool put_into_place();
    // Leaves the finished file to the caller.
    void release() { temporary_[0] = '\0'; }

private:
    static ssize_t write_some(void *cookie, const char *data, size_t size);
    bool dress(const file_look &look, syncing when);
    void give_up();

    int descriptor_ = -1;                // while the content is written
    int write_error_ = 0;                // errno of a writer
    char target_[PATH_MAX] = "";         // without links
    char temporary_[PATH_MAX + 16] = ""; // empty: there is none, or not any longer
};
