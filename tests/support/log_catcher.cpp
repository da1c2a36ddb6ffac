#include "support/log_catcher.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr char socket_path[] = "/dev/log";
// No log message begins with a NUL byte.
constexpr std::string_view marker_start{"\0marker ", 8};

sockaddr_un socket_address()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    strcpy(address.sun_path, socket_path);
    return address;
}

int datagram_socket()
{
    const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        throw std::runtime_error(std::string("log socket: ") + strerror(errno));
    return descriptor;
}

// "<27>Nov 21 06:12:47 korvel[123]: text"; the time and the process id may be missing.
log_entry parse_message(std::string_view message)
{
    log_entry entry{LOG_USER | LOG_NOTICE, "", ""};
    if (message.starts_with('<')) {
        const size_t close = message.find('>');
        if (close != std::string_view::npos) {
            std::from_chars(message.data() + 1, message.data() + close, entry.priority);
            message.remove_prefix(close + 1);
        }
    }
    entry.priority = LOG_PRI(entry.priority);
    constexpr size_t time_length = 16; // "Nov 21 06:12:47 "
    if (message.size() >= time_length && message[3] == ' ' && message[9] == ':' &&
        message[time_length - 1] == ' ')
        message.remove_prefix(time_length);
    const size_t colon = message.find(": ");
    if (colon != std::string_view::npos) {
        const std::string_view tag = message.substr(0, colon);
        entry.ident = tag.substr(0, tag.find('['));
        message.remove_prefix(colon + 2);
    }
    entry.text = message;
    return entry;
}

class log_catcher {
public:
    log_catcher()
    {
        unlink(socket_path);
        descriptor_ = datagram_socket();
        const sockaddr_un address = socket_address();
        if (bind(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)))
            throw std::runtime_error(std::string("cannot bind ") + socket_path + ": " + strerror(errno));
        std::thread([this] { drain(); }).detach();
    }

    std::vector<log_entry> entries()
    {
        flush();
        const std::lock_guard lock(mutex_);
        return entries_;
    }

    void forget()
    {
        flush();
        const std::lock_guard lock(mutex_);
        entries_.clear();
    }

private:
    void drain()
    {
        std::array<char, 65536> message;
        for (;;) {
            const ssize_t length = recv(descriptor_, message.data(), message.size(), 0);
            if (length < 0) {
                if (errno == EINTR)
                    continue;
                return;
            }
            take({message.data(), static_cast<size_t>(length)});
        }
    }

    void take(std::string_view message)
    {
        const std::lock_guard lock(mutex_);
        if (message.starts_with(marker_start)) {
            markers_seen_++;
            marker_came_.notify_all();
            return;
        }
        // The C library ends each message with a NUL on some versions.
        while (!message.empty() && (message.back() == '\0' || message.back() == '\n'))
            message.remove_suffix(1);
        entries_.push_back(parse_message(message));
    }

    // The socket's queue is first in, first out: once a marker came through, so did all that was sent before
    // it.
    void flush()
    {
        const std::lock_guard one_at_a_time(flush_mutex_);
        const int sender = datagram_socket();
        const sockaddr_un address = socket_address();
        const ssize_t sent = sendto(sender, marker_start.data(), marker_start.size(), 0,
                                    reinterpret_cast<const sockaddr *>(&address), sizeof(address));
        const int error = errno;
        close(sender);
        if (sent < 0)
            throw std::runtime_error(std::string("log socket is gone: ") + strerror(error));
        markers_sent_++;
        std::unique_lock lock(mutex_);
        if (!marker_came_.wait_for(lock, default_deadline, [this] { return markers_seen_ >= markers_sent_; }))
            throw std::runtime_error("the log is not drained");
    }

    int descriptor_ = -1;
    std::mutex flush_mutex_;
    unsigned markers_sent_ = 0; // flush_mutex_
    std::mutex mutex_;          // for all below
    std::condition_variable marker_came_;
    unsigned markers_seen_ = 0;
    std::vector<log_entry> entries_;
};

// Never destroyed: its thread runs until the process ends.
log_catcher &catcher()
{
    static log_catcher *const only = new log_catcher;
    return *only;
}

} // namespace

void log_catcher_restart()
{
    catcher().forget();
}

std::vector<log_entry> log_catcher_entries()
{
    return catcher().entries();
}
