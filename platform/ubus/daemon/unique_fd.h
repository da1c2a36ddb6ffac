// Owner of a file descriptor.
#pragma once

#include <utility>

#include <unistd.h>

namespace ubusd {

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~unique_fd()
    {
        if (fd_ >= 0)
            close(fd_);
    }

    int get() const { return fd_; }
    // Leaves the descriptor open, to the caller.
    int release() { return std::exchange(fd_, -1); }
    explicit operator bool() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

} // namespace ubusd
