// Output of a client: straight to the socket while it takes everything, through a bounded queue otherwise.
#include "client.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "message_buffer.h"

namespace ubusd {

namespace {

size_t total_size(std::span<const iovec> parts)
{
    size_t size = 0;
    for (const iovec &part : parts)
        size += part.iov_len;
    return size;
}

// Sends without waiting. Returns the bytes taken, or 0 if the socket is full. A broken connection is shut
// down, for the event loop to notice, and takes everything.
size_t send_now(int socket, std::span<iovec> parts, int fd)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    if (fd >= 0) {
        message.msg_control = control;
        message.msg_controllen = sizeof(control);
        cmsghdr *const rights = CMSG_FIRSTHDR(&message);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(rights), &fd, sizeof(fd));
    }
    for (;;) {
        const ssize_t sent = sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent >= 0)
            return static_cast<size_t>(sent);
        if (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM)
            return 0;
        if (errno == ETOOMANYREFS && message.msg_control) {
            // Too many descriptors are under way in the system: the message matters more than its descriptor.
            message.msg_control = nullptr;
            message.msg_controllen = 0;
        } else if (errno != EINTR) {
            shutdown(socket, SHUT_RDWR);
            return total_size(parts);
        }
    }
}

iovec part(std::span<const uint8_t> bytes)
{
    return {const_cast<uint8_t *>(bytes.data()), bytes.size()};
}

size_t footprint(const parked_lookup &lookup)
{
    return sizeof(lookup) + (lookup.pattern ? lookup.pattern->size() : 0) +
           (lookup.next ? lookup.next->size() : 0);
}

} // namespace

client::client(uint32_t id, unique_fd socket, caller who)
    : id_(id), socket_(std::move(socket)), who_(std::move(who))
{
    event.fd.fd = socket_.get();
    event.owner = this;
}

client::~client()
{
    if (event.fd.registered)
        uloop_fd_delete(&event.fd);
}

void client::send(const frame_header &header, std::span<const uint8_t> body, int fd)
{
    const auto prefix = encode_header(header);
    const size_t size = prefix.size() + body.size();
    if (backed_up()) {
        if (output_size_ + size <= output_limit)
            enqueue(prefix, body, 0, fd);
        return;
    }
    std::array<iovec, 2> parts{part(prefix), part(body)};
    const size_t sent = send_now(socket(), parts, fd);
    if (sent == size)
        return;
    enqueue(prefix, body, sent, sent == 0 ? fd : -1);
    if (backed_up())
        watch_socket(true);
}

void client::send_status(const frame_header &request, int status)
{
    message_buffer body;
    body.number(UBUS_ATTR_STATUS, static_cast<uint32_t>(status));
    send({.type = UBUS_MSG_STATUS, .seq = request.seq, .peer = request.peer}, body.body());
}

void client::flush()
{
    while (!output_.empty()) {
        queued &first = output_.front();
        std::array<iovec, 1> parts{part(std::span(first.bytes).subspan(front_sent_))};
        const size_t sent = send_now(socket(), parts, front_sent_ == 0 ? first.fd.get() : -1);
        if (sent == 0)
            return;
        front_sent_ += sent;
        output_size_ -= sent;
        if (front_sent_ < first.bytes.size())
            continue;
        waiting_fds_ -= first.fd ? 1 : 0;
        output_.pop_front();
        front_sent_ = 0;
    }
    watch_socket(false);
}

void client::park(parked_lookup lookup)
{
    const size_t size = footprint(lookup);
    if (output_size_ + size > output_limit)
        return;
    output_size_ += size;
    parked_.push_back(std::move(lookup));
}

void client::park_again(parked_lookup lookup)
{
    output_size_ += footprint(lookup);
    parked_.push_front(std::move(lookup));
}

parked_lookup client::take_parked()
{
    parked_lookup lookup = std::move(parked_.front());
    parked_.pop_front();
    output_size_ -= footprint(lookup);
    return lookup;
}

bool client::reserve(size_t bytes)
{
    if (bytes > storage_limit - stored_)
        return false;
    stored_ += bytes;
    return true;
}

void client::enqueue(std::span<const uint8_t> header, std::span<const uint8_t> body, size_t sent, int fd)
{
    queued message;
    if (fd >= 0) {
        if (waiting_fds_ == waiting_fd_limit)
            return;
        message.fd = unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
        if (!message.fd)
            return;
        waiting_fds_++;
    }
    message.bytes.reserve(header.size() + body.size() - sent);
    for (const auto piece : {header, body}) {
        const size_t skipped = std::min(sent, piece.size());
        message.bytes.insert(message.bytes.end(), piece.begin() + static_cast<std::ptrdiff_t>(skipped),
                             piece.end());
        sent -= skipped;
    }
    output_size_ += message.bytes.size();
    output_.push_back(std::move(message));
}

void client::watch_socket(bool writable)
{
    // After a hang-up the loop has let go of the socket; registering it again would bring the hang-up back
    // for ever.
    if (event.fd.registered)
        uloop_fd_add(&event.fd, writable ? ULOOP_READ | ULOOP_WRITE : ULOOP_READ);
}

} // namespace ubusd
