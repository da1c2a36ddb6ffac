// One connection: who it is, what it may still store here, and the messages that its socket has not taken
// yet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "access.h"
#include "frame.h"
#include "unique_fd.h"

namespace ubusd {

class client;
struct object;

// A client's output is queued up to this many bytes beside what the kernel holds.
constexpr size_t output_limit = 1048576;
// What the objects, patterns and subscriptions of one client may take in all, in bytes. Bounds the daemon's
// memory; the network daemon with a hundred interfaces stays below a tenth of it.
constexpr size_t storage_limit = 4194304;
// Descriptors waiting in one client's queue; a message with one more is dropped.
constexpr size_t waiting_fd_limit = 8;

// A lookup whose answer waits until the client has read what is queued for it.
struct parked_lookup {
    frame_header request;
    std::optional<std::string> pattern; // none: all objects
    std::optional<std::string> next;    // the path to go on with; none: not begun
    bool found = false;
};

// What the event loop knows of a client. A struct of its own because the loop hands back the address of `fd`.
struct watch {
    uloop_fd fd{};
    client *owner = nullptr;
};

class client {
public:
    client(uint32_t id, unique_fd socket, caller who);
    ~client();
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    uint32_t id() const { return id_; }
    const caller &who() const { return who_; }
    int socket() const { return socket_.get(); }

    // Sends now what the socket takes and queues the rest. A message for which the queue has no room is
    // dropped silently. `fd`, unless -1, travels with the first byte; the caller keeps it.
    void send(const frame_header &header, std::span<const uint8_t> body, int fd = -1);
    // Answers a request: a STATUS message with the request's sequence number and peer.
    void send_status(const frame_header &request, int status);
    // Goes on sending what is queued, as far as the socket takes it.
    void flush();
    // Whether something is queued.
    bool backed_up() const { return !output_.empty(); }

    // Parks a lookup, which takes room in the output queue; without room it is dropped like a message.
    void park(parked_lookup lookup);
    // Puts back, in front, what take_parked() returned; never dropped.
    void park_again(parked_lookup lookup);
    bool has_parked() const { return !parked_.empty(); }
    parked_lookup take_parked();

    // Accounts for storage; false, and nothing changed, when the limit would be exceeded.
    bool reserve(size_t bytes);
    void release(size_t bytes) { stored_ -= bytes; }

    watch event;
    frame_reader input;
    unique_fd received_fd;         // came with the message that is being received
    std::vector<object *> objects; // in order of registration

private:
    struct queued {
        std::vector<uint8_t> bytes;
        unique_fd fd;
    };

    void enqueue(std::span<const uint8_t> header, std::span<const uint8_t> body, size_t sent, int fd);
    void watch_socket(bool writable);

    uint32_t id_;
    unique_fd socket_;
    caller who_;
    std::deque<queued> output_;
    std::deque<parked_lookup> parked_;
    size_t front_sent_ = 0;  // bytes of the first queued message that the socket took
    size_t output_size_ = 0; // bytes queued, those of parked lookups included
    size_t waiting_fds_ = 0;
    size_t stored_ = 0;
};

} // namespace ubusd
