#include "base/own_file.h"

#include "base/text.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr unsigned most_links = 40; // as many as the kernel follows
constexpr mode_t others_write = S_IWGRP | S_IWOTH;

class descriptor {
public:
    explicit descriptor(int number) : number_(number) {}
    ~descriptor() { reset(-1); }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;

    void reset(int number)
    {
        if (number_ >= 0)
            (void)close(number_);
        number_ = number;
    }
    int release()
    {
        const int number = number_;
        number_ = -1;
        return number;
    }
    int get() const { return number_; }

private:
    int number_;
};

// What the system's refusal says about a file: that there is none, or nothing.
own_file judge_refusal()
{
    switch (errno) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case EACCES:
    case EPERM:
        return own_file::missing;
    default:
        return own_file::unreadable;
    }
}

bool is_ours_or_roots(const struct stat &info)
{
    return info.st_uid == geteuid() || info.st_uid == 0;
}

// Whether nobody else can replace an entry of ours in a directory.
bool keeps_entries(int directory)
{
    struct stat info;
    return fstat(directory, &info) == 0 && S_ISDIR(info.st_mode) && is_ours_or_roots(info) &&
           ((info.st_mode & others_write) == 0 || (info.st_mode & S_ISVTX) != 0);
}

bool is_own_file(const struct stat &info)
{
    return S_ISREG(info.st_mode) && info.st_uid == geteuid() && (info.st_mode & others_write) == 0 &&
           info.st_nlink == 1;
}

// A path that is walked name by name.
struct path_walk {
    descriptor directory{-1}; // where the names go on from
    char rest[PATH_MAX];      // the names still to come
    char name[NAME_MAX + 1];  // the one at hand
    unsigned links = 0;
};

// Sets out from the root or the working directory.
bool begin_at(path_walk &walk)
{
    walk.directory.reset(open(walk.rest[0] == '/' ? "/" : ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return walk.directory.get() >= 0;
}

// Cuts the next name off the rest; false when it is too long for one. The name is empty at the end.
bool next_name(path_walk &walk)
{
    const char *const start = walk.rest + strspn(walk.rest, "/");
    const size_t length = strcspn(start, "/");
    if (length > NAME_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(walk.name, start, length);
    walk.name[length] = '\0';
    const char *const behind = start + length + strspn(start + length, "/");
    memmove(walk.rest, behind, strlen(behind) + 1);
    return true;
}

// Puts what a link says in front of the rest.
bool follow(path_walk &walk, int link)
{
    char target[PATH_MAX];
    const ssize_t length = readlinkat(link, "", target, sizeof(target) - 1);
    if (length < 0)
        return false;
    target[length] = '\0';
    char joined[PATH_MAX];
    if (length == 0 || ++walk.links > most_links || !text_ref(joined).format("%s/%s", target, walk.rest)) {
        errno = ELOOP;
        return false;
    }
    memcpy(walk.rest, joined, sizeof(joined));
    return walk.rest[0] != '/' || begin_at(walk);
}

own_file open_last(const path_walk &walk, FILE **stream_out)
{
    descriptor file(openat(walk.directory.get(), walk.name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info;
    if (file.get() < 0 || fstat(file.get(), &info) != 0)
        return judge_refusal();
    if (!is_own_file(info))
        return own_file::foreign;
    *stream_out = fdopen(file.get(), "r");
    if (!*stream_out)
        return own_file::unreadable;
    (void)file.release();
    return own_file::opened;
}

} // namespace

own_file open_own_file(const char *path, FILE **stream_out)
{
    *stream_out = nullptr;
    path_walk walk;
    if (!text_ref(walk.rest).format("%s", path))
        return own_file::missing;
    if (!begin_at(walk))
        return judge_refusal();
    for (;;) {
        if (!next_name(walk))
            return judge_refusal();
        if (!keeps_entries(walk.directory.get()))
            return own_file::foreign;
        descriptor entry(openat(walk.directory.get(), walk.name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
        struct stat info;
        if (entry.get() < 0 || fstat(entry.get(), &info) != 0)
            return walk.name[0] == '\0' ? own_file::foreign : judge_refusal();
        if (S_ISLNK(info.st_mode)) {
            if (!is_ours_or_roots(info))
                return own_file::foreign;
            if (!follow(walk, entry.get()))
                return judge_refusal();
        } else if (S_ISDIR(info.st_mode)) {
            walk.directory.reset(entry.release());
        } else if (walk.rest[0] == '\0') {
            return is_own_file(info) ? open_last(walk, stream_out) : own_file::foreign;
        } else {
            return own_file::missing;
        }
    }
}
