// How often a file is opened, by anybody, while an object of this lives.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

#include <sys/inotify.h>
#include <unistd.h>

class open_count {
public:
    explicit open_count(const std::string &path) : events_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        // The kernel merges equal events in a row: the closing in between keeps two opens apart.
        if (inotify_add_watch(events_, path.c_str(), IN_OPEN | IN_CLOSE) < 0)
            throw std::runtime_error("cannot watch " + path);
    }
    ~open_count() { close(events_); }
    open_count(const open_count &) = delete;
    open_count &operator=(const open_count &) = delete;

    // Since the start or the last call; at most some hundred.
    size_t take() const
    {
        alignas(inotify_event) char buffer[16384];
        const ssize_t length = read(events_, buffer, sizeof(buffer));
        size_t opens = 0;
        for (ssize_t at = 0; at < length; at += static_cast<ssize_t>(sizeof(inotify_event))) {
            inotify_event event; // without a name, since a file is watched and no directory
            memcpy(&event, buffer + at, sizeof(event));
            opens += (event.mask & IN_OPEN) != 0;
        }
        return opens;
    }

private:
    int events_;
};
