// Locked, complete and durable access to configuration and delta files.
#include "file.h"

#include <cerrno>
#include <string_view>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <replace_file.h>
#include <uci.h>
#include <write_whole.h>

namespace uci {
namespace {

int code_of_errno()
{
    switch (errno) {
    case ENOENT:
    case ENOTDIR:
        return UCI_ERR_NOTFOUND;
    case ENOMEM:
        return UCI_ERR_MEM;
    default:
        return UCI_ERR_IO;
    }
}

// Not waiting in open: the path may name a pipe, which is refused later.
constexpr int common_flags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

int open_file(const char *path, locking lock, when_missing missing, mode_t mode, locked_file *out)
{
    out->created = false;
    const int flags = common_flags | (lock == locking::exclusive ? O_RDWR | O_APPEND : O_RDONLY);
    for (;;) {
        struct stat status;
        const bool found = stat(path, &status) == 0;
        if (found ? !S_ISREG(status.st_mode) : missing == when_missing::fail)
            return UCI_ERR_NOTFOUND;
        out->file.reset(open(path, flags));
        if (out->file || errno != ENOENT || missing == when_missing::fail)
            break;
        out->file.reset(open(path, flags | O_CREAT | O_EXCL, mode));
        out->created = bool(out->file);
        if (out->file || errno != EEXIST)
            break;
        // A dangling link exists for the second open only; any other file was made by someone else in
        // between.
        if (lstat(path, &status) == 0 && S_ISLNK(status.st_mode)) {
            out->file.reset(open(path, flags | O_CREAT, mode));
            break;
        }
    }
    return out->file ? UCI_OK : code_of_errno();
}

bool lock_file(int fd, locking lock)
{
    int result;
    do
        result = flock(fd, lock == locking::exclusive ? LOCK_EX : LOCK_SH);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

bool is_named_by(int fd, const char *path)
{
    struct stat opened, named;
    return fstat(fd, &opened) == 0 && stat(path, &named) == 0 && opened.st_dev == named.st_dev &&
           opened.st_ino == named.st_ino;
}

// Room for at least one more byte and the NUL, the block doubling.
bool make_room(text *block, size_t used, size_t *capacity)
{
    if (used + 1 < *capacity)
        return true;
    const size_t larger = *capacity * 2;
    auto *const moved = static_cast<char *>(realloc(block->get(), larger));
    if (!moved)
        return false;
    (void)block->release(); // realloc has freed it or it is `moved`
    block->reset(moved);
    *capacity = larger;
    return true;
}

// Room for all of a file and the NUL, and for a read to find its end. 4 KiB for what has no size, and for
// what says that it is larger than any configuration: room is then made for what really comes.
size_t room_for(int fd)
{
    constexpr off_t usual = 4096, most_believed = 16 << 20;
    struct stat status;
    const bool is_known = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    if (!is_known || status.st_size < usual || status.st_size > most_believed)
        return usual;
    return static_cast<size_t>(status.st_size) + 2;
}

// Reads until `read_some(place, room)` returns 0; a negative result is an error. `capacity` is what it begins
// with.
template <typename Read> int read_all(Read read_some, size_t capacity, bytes *out)
{
    bytes result;
    result.data.reset(static_cast<char *>(malloc(capacity)));
    if (!result.data)
        return UCI_ERR_MEM;
    for (;;) {
        if (!make_room(&result.data, result.size, &capacity))
            return UCI_ERR_MEM;
        const ssize_t count = read_some(result.data.get() + result.size, capacity - result.size - 1);
        if (count < 0)
            return UCI_ERR_IO;
        if (count == 0)
            break;
        result.size += static_cast<size_t>(count);
    }
    result.data.get()[result.size] = '\0';
    *out = std::move(result);
    return UCI_OK;
}

// What ends the last line of a file, if it lacks its newline.
std::string_view missing_line_end(int fd, off_t size)
{
    char last = '\n';
    if (size > 0 && pread(fd, &last, 1, size - 1) != 1)
        return "\n";
    if (last == '\\')
        return "\n\n"; // the first is joined to the line
    return last == '\n' ? "" : "\n";
}

} // namespace

int descriptor::release()
{
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

void descriptor::reset(int fd)
{
    if (fd_ >= 0)
        close(fd_);
    fd_ = fd;
}

bool descriptor::close_checked()
{
    return close(release()) == 0;
}

int open_locked(const char *path, locking lock, when_missing missing, mode_t mode, locked_file *out)
{
    for (;;) {
        const int code = open_file(path, lock, missing, mode, out);
        if (code != UCI_OK)
            return code;
        struct stat status;
        if (fstat(out->file.get(), &status) != 0 || !S_ISREG(status.st_mode))
            return UCI_ERR_NOTFOUND;
        if (!lock_file(out->file.get(), lock))
            return UCI_ERR_IO;
        if (is_named_by(out->file.get(), path))
            return UCI_OK;
    }
}

int read_file(int fd, bytes *out)
{
    off_t offset = 0;
    return read_all(
        [&](char *place, size_t room) {
            ssize_t count;
            do
                count = pread(fd, place, room, offset);
            while (count < 0 && errno == EINTR);
            if (count > 0)
                offset += count;
            return count;
        },
        room_for(fd), out);
}

int read_stream(FILE *stream, bytes *out)
{
    return read_all(
        [&](char *place, size_t room) {
            const size_t count = fread(place, 1, room, stream);
            return count == 0 && ferror(stream) ? ssize_t{-1} : static_cast<ssize_t>(count);
        },
        room_for(fileno(stream)), out);
}

int append_whole(int fd, size_t kept, const char *data, size_t size)
{
    struct stat before;
    const auto begin = static_cast<off_t>(kept);
    if (fstat(fd, &before) != 0 || (before.st_size != begin && ftruncate(fd, begin) != 0))
        return UCI_ERR_IO;
    const std::string_view separator = missing_line_end(fd, begin);
    if (write_whole(fd, separator.data(), separator.size()) && write_whole(fd, data, size))
        return UCI_OK;
    (void)!ftruncate(fd, begin); // the write has failed already, and that is what the caller hears
    return UCI_ERR_IO;
}

int replace_file(const char *path, const char *data, size_t size)
{
    file_replacement next(path);
    const bool replaced =
        next && next.write(data, size, look_of(path, UCI_FILEMODE)) && next.put_into_place();
    return replaced ? UCI_OK : UCI_ERR_IO;
}

mode_t mode_of(const char *path, mode_t fallback)
{
    return path ? look_of(path, fallback).mode : fallback;
}

} // namespace uci
