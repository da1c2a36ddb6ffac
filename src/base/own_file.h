// Files that only this process's own user can have put where they are.
//
// What lies in a directory like /tmp may be anybody's, and the daemon acts on it as root: it must not read,
// and still less delete, what another user has planted, directly or through a link.
#pragma once

#include <cstdio>

enum class own_file {
    opened,
    missing,    // or the user may not open it
    foreign,    // somebody else can have put it there, or it is no regular file
    unreadable, // it cannot be told or opened, errno says why: the disk, no descriptor, no memory
};

// Opens a file for reading. It counts as one's own when it is a regular file of the effective user under one
// name alone, writable by nobody else, and nobody else can change what its path leads to: each directory on
// the way is the user's or root's and nobody else may replace what is in it (/tmp's sticky bit is enough),
// each symbolic link on the way is the user's or root's. So the same path may be removed afterwards, too. A
// pipe is not waited for. The caller closes *stream_out; it is null unless the file was opened.
own_file open_own_file(const char *path, FILE **stream_out);
