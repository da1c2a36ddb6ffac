// Sockets. The daemon never waits for a client: reads and writes take what is there.
#include "server.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace ubusd {

namespace {

// How much one client is read before the others have their turn.
constexpr size_t read_size = 65536;
// How many clients are accepted before those connected have their turn.
constexpr int accept_burst = 16;
// When the system has no descriptor or memory for another client, the next try comes after this many
// milliseconds.
constexpr int accept_pause = 100;

constinit server *only_server = nullptr;

// Reads what is there. 0 at the end, -1 with errno.
ssize_t receive_some(int socket, std::span<uint8_t> buffer, unique_fd &fd_out)
{
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t size = recvmsg(socket, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0)
        return size;
    // The buffer has room for one descriptor; the kernel closes any more.
    const cmsghdr *const rights = CMSG_FIRSTHDR(&message);
    if (rights && rights->cmsg_level == SOL_SOCKET && rights->cmsg_type == SCM_RIGHTS &&
        rights->cmsg_len == CMSG_LEN(sizeof(int))) {
        int fd;
        memcpy(&fd, CMSG_DATA(rights), sizeof(fd));
        fd_out = unique_fd(fd);
    }
    return size;
}

unique_fd spare_descriptor()
{
    return unique_fd(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

} // namespace

unique_fd listen_at(const char *path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return {};
    }
    memcpy(address.sun_path, path, strlen(path));

    unlink(path);
    unique_fd listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener)
        return {};
    const mode_t old_mask = umask(0111);
    const int bound = bind(listener.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    umask(old_mask);
    if (bound != 0 || listen(listener.get(), SOMAXCONN) != 0)
        return {};
    return listener;
}

server::server(bus &bus, unique_fd listener)
    : bus_(bus), listener_(std::move(listener)), spare_(spare_descriptor())
{
    only_server = this;
    place_.fd.fd = listener_.get();
    place_.fd.cb = [](uloop_fd *, unsigned) { only_server->accept_clients(); };
    place_.retry.cb = [](uloop_timeout *) { uloop_fd_add(&only_server->place_.fd, ULOOP_READ); };
    uloop_fd_add(&place_.fd, ULOOP_READ);
}

server::~server()
{
    uloop_timeout_cancel(&place_.retry);
    uloop_fd_delete(&place_.fd);
    only_server = nullptr;
}

void server::accept_clients()
{
    for (int i = 0; i < accept_burst; i++) {
        unique_fd socket(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (socket) {
            adopt(std::move(socket));
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN) {
            // The waiting client would wake the loop again at once, and for nothing.
            uloop_fd_delete(&place_.fd);
            uloop_timeout_set(&place_.retry, accept_pause);
        }
        return;
    }
}

void server::adopt(unique_fd socket)
{
    spare_ = unique_fd();
    auto who = identify_peer(socket.get());
    spare_ = spare_descriptor();
    if (!who)
        return;
    client &added = bus_.connect(std::move(socket), std::move(*who));
    added.event.fd.cb = [](uloop_fd *fd, unsigned events) {
        only_server->serve(*container_of(fd, watch, fd)->owner, events);
    };
    if (uloop_fd_add(&added.event.fd, ULOOP_READ) != 0)
        bus_.disconnect(added);
}

void server::serve(client &served, unsigned events)
{
    if (events & ULOOP_WRITE)
        bus_.flush(served);
    // The loop has let go of a socket that is hung up, so what it still holds is read now or never.
    bool connected = read_some(served);
    while (connected && !served.event.fd.registered)
        connected = read_some(served);
    if (!connected)
        bus_.disconnect(served);
}

// False when the connection has ended or must end.
bool server::read_some(client &sender)
{
    static std::array<uint8_t, read_size> buffer;
    unique_fd fd;
    const ssize_t size = receive_some(sender.socket(), buffer, fd);
    if (size > 0)
        return bus_.receive(sender, std::span(buffer).first(static_cast<size_t>(size)), std::move(fd));
    return size < 0 && (errno == EINTR || (errno == EAGAIN && sender.event.fd.registered));
}

} // namespace ubusd
