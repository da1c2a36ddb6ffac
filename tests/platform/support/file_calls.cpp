#include "platform/support/file_calls.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <map>
#include <utility>

#include <sys/file.h>
#include <sys/types.h>

extern "C" {
int __real_flock(int fd, int operation);
ssize_t __real_write(int fd, const void *data, size_t size);
int __real_fsync(int fd);
int __real_rename(const char *from, const char *to);
int __real_ftruncate(int fd, off_t size);
int __wrap_flock(int fd, int operation);
ssize_t __wrap_write(int fd, const void *data, size_t size);
int __wrap_fsync(int fd);
int __wrap_rename(const char *from, const char *to);
int __wrap_ftruncate(int fd, off_t size);
}

namespace {

struct {
    bool active = false;
    std::map<std::string, std::function<int()>> hooks;
    size_t most_written = SIZE_MAX;
    std::vector<std::pair<std::string, std::string>> calls; // what, path
} state;

std::string path_of(int fd)
{
    std::error_code none;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
}

// Records a call and runs its hook; 0 or the errno that the call is to fail with.
int arrive(const std::string &name, const std::string &what, const std::string &path)
{
    if (!state.active)
        return 0;
    if (!what.empty())
        state.calls.emplace_back(what, path);
    const auto found = state.hooks.find(name);
    if (found == state.hooks.end())
        return 0;
    const std::function<int()> hook = std::move(found->second);
    state.hooks.erase(found);
    return hook();
}

int failed(int error)
{
    errno = error;
    return -1;
}

} // namespace

int __wrap_flock(int fd, int operation)
{
    const char *const what = operation & LOCK_EX ? "lock exclusively" : "lock shared";
    const int error = arrive("flock", what, path_of(fd));
    return error ? failed(error) : __real_flock(fd, operation);
}

ssize_t __wrap_write(int fd, const void *data, size_t size)
{
    const int error = arrive("write", "", "");
    return error ? failed(error) : __real_write(fd, data, std::min(size, state.most_written));
}

int __wrap_fsync(int fd)
{
    const int error = arrive("fsync", "sync", path_of(fd));
    return error ? failed(error) : __real_fsync(fd);
}

int __wrap_rename(const char *from, const char *to)
{
    const int error = arrive("rename", "rename to", to);
    return error ? failed(error) : __real_rename(from, to);
}

int __wrap_ftruncate(int fd, off_t size)
{
    const int error = arrive("ftruncate", "truncate", path_of(fd));
    return error ? failed(error) : __real_ftruncate(fd, size);
}

file_calls::file_calls()
{
    state = {};
    state.active = true;
}

file_calls::~file_calls()
{
    state = {};
}

void file_calls::at_next(const std::string &name, std::function<int()> hook)
{
    state.hooks[name] = std::move(hook);
}

void file_calls::fail_next(const std::string &name, int error)
{
    at_next(name, [error] { return error; });
}

void file_calls::shorten_writes(size_t most)
{
    state.most_written = most;
}

std::vector<std::string> file_calls::take(const std::string &directory)
{
    std::vector<std::string> result;
    for (const auto &[what, path] : state.calls) {
        if (!path.starts_with(directory))
            continue;
        std::string name = path.substr(directory.size());
        const size_t random_end = name.find(".uci-");
        if (random_end != std::string::npos)
            name.erase(random_end + 5);
        result.push_back(what + " " + name);
    }
    state.calls.clear();
    return result;
}
