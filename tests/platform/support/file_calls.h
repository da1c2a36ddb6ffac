// The system calls by which files are locked, written and replaced: recorded, and made to fail where a test
// wants it. A test program that links this has its calls sent here by the linker; see korvel_wrap_file_calls.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

class file_calls {
public:
    file_calls();
    ~file_calls();
    file_calls(const file_calls &) = delete;
    file_calls &operator=(const file_calls &) = delete;

    // Runs the hook right before the next call of this name ("flock", "write", "fsync", "rename",
    // "ftruncate") is made. The call is not made when the hook returns an errno, but fails with that.
    void at_next(const std::string &name, std::function<int()> hook);
    void fail_next(const std::string &name, int error);

    // From now on write() takes no more bytes than this at once.
    void shorten_writes(size_t most);

    // The calls on files below a directory since the latest take, with the paths from there on; the random
    // end of a temporary name is cut off. Writes are left out: how many there are is nobody's business.
    std::vector<std::string> take(const std::string &directory);
};
