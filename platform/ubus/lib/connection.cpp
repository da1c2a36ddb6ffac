// The socket to the bus: connecting, messages in and out, and what happens when it is lost.
#include "client.h"
#include "../../ubox/list_ops.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

// Header and word of the attribute: what must be there before the length of a message is known.
constexpr size_t wire_head = sizeof(ubus_msghdr) + sizeof(blob_attr);

char *wire_bytes(ubus_message *message)
{
    return reinterpret_cast<char *>(&message->header);
}

bool read_up_to(ubus_context *ctx, size_t wanted)
{
    while (ctx->received < wanted) {
        char *const position = wire_bytes(ctx->incoming) + ctx->received;
        const ssize_t count = read(ctx->sock.fd, position, wanted - ctx->received);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return false;
        if (count <= 0) {
            ctx->broken = true;
            return false;
        }
        ctx->received += static_cast<size_t>(count);
    }
    return true;
}

bool resize_incoming(ubus_context *ctx, size_t attr_length)
{
    void *const memory = realloc(ctx->incoming, sizeof(ubus_message) + attr_length);
    if (!memory) {
        ctx->broken = true;
        return false;
    }
    ctx->incoming = static_cast<ubus_message *>(memory);
    return true;
}

// Whether the head describes a message. There is no way to find the next one after a bad head. No upper
// limit: the bus adds the caller's names to a call that may be as large as calls can be.
bool head_is_sound(ubus_message *message)
{
    return message->header.version == UBUS_MSG_VERSION && blob_raw_len(message->body()) >= sizeof(blob_attr);
}

bool read_rest(ubus_context *ctx)
{
    if (!head_is_sound(ctx->incoming)) {
        ctx->broken = true;
        return false;
    }
    const size_t attr_length = blob_raw_len(ctx->incoming->body());
    if (ctx->received == wire_head && !resize_incoming(ctx, attr_length))
        return false;
    return read_up_to(ctx, sizeof(ubus_msghdr) + attr_length);
}

void drop_incoming(ubus_context *ctx)
{
    free(ctx->incoming);
    ctx->incoming = nullptr;
    ctx->received = 0;
}

bool connect_socket(int fd, const char *path)
{
    sockaddr_un address = {};
    const size_t length = strlen(path);
    if (length >= sizeof(address.sun_path))
        return false;
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, length);
    int result;
    do
        result = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    while (result < 0 && errno == EINTR);
    return result == 0;
}

// The bus greets with the id that it has given to this client. The socket still blocks here.
bool receive_greeting(ubus_context *ctx)
{
    ubus_message *const greeting = ubus_receive_message(ctx);
    if (!greeting)
        return false;
    if (greeting->header.type == UBUS_MSG_HELLO)
        ctx->local_id = be32_to_cpu(greeting->header.peer);
    free(greeting);
    return ctx->local_id != 0;
}

void close_socket(ubus_context *ctx)
{
    uloop_fd_delete(&ctx->sock);
    if (ctx->sock.fd >= 0)
        close(ctx->sock.fd);
    ctx->sock.fd = -1;
    ctx->local_id = 0;
    drop_incoming(ctx);
}

bool open_socket(ubus_context *ctx, const char *path)
{
    ctx->sock.eof = ctx->sock.error = false;
    ctx->broken = ctx->loss_reported = false;
    ctx->request_seq = 0;
    ctx->sock.fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (ctx->sock.fd >= 0 && connect_socket(ctx->sock.fd, path ? path : UBUS_DEFAULT_SOCKET) &&
        receive_greeting(ctx) && fcntl(ctx->sock.fd, F_SETFL, O_NONBLOCK) == 0)
        return true;
    close_socket(ctx);
    return false;
}

// What is due when the library is left: queued calls, then the news of a lost connection.
void settle(ubus_context *ctx)
{
    if (ctx->busy > 0)
        return;
    ubus_run_calls(ctx);
    ubus_report_loss(ctx);
}

void on_socket(uloop_fd *sock, unsigned)
{
    ubus_context *const ctx = container_of(sock, ubus_context, sock);
    if (ctx->loss_reported) {
        // Its owner has chosen to live on without a bus; a closed socket would keep the loop busy.
        uloop_fd_delete(sock);
        return;
    }
    ctx->busy++;
    // After a hang-up the loop does not call again: take all that is left.
    while (ubus_take_message(ctx) && sock->error)
        continue;
    ctx->busy--;
    settle(ctx);
}

void on_later(uloop_timeout *timer)
{
    settle(container_of(timer, ubus_context, later));
}

// Deliberate: after a hang-up the loop has dropped the socket before it calls back, so a bus that dies while
// the program is idle does not end the loop; a loss noticed during a call does.
void end_loop_if_registered(ubus_context *ctx)
{
    if (ctx->sock.registered)
        uloop_end();
}

void attach_fd(msghdr *message, cmsghdr *control, size_t control_size, const int *fd)
{
    message->msg_control = control;
    message->msg_controllen = control_size;
    control->cmsg_len = CMSG_LEN(sizeof(*fd));
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    memcpy(CMSG_DATA(control), fd, sizeof(*fd));
}

void wait_for_room(ubus_context *ctx)
{
    pollfd socket = {.fd = ctx->sock.fd, .events = POLLOUT, .revents = 0};
    (void)poll(&socket, 1, -1);
}

// Takes `count` sent bytes off the front of a two-part message.
void advance(iovec (&parts)[2], size_t count)
{
    for (iovec &part : parts) {
        const size_t taken = count < part.iov_len ? count : part.iov_len;
        part.iov_base = static_cast<char *>(part.iov_base) + taken;
        part.iov_len -= taken;
        count -= taken;
    }
}

bool send_parts(ubus_context *ctx, iovec (&parts)[2], int fd)
{
    union {
        cmsghdr header;
        char space[CMSG_SPACE(sizeof(int))];
    } control = {};
    msghdr message = {};
    message.msg_iov = parts;
    message.msg_iovlen = ARRAY_SIZE(parts);
    if (fd >= 0)
        attach_fd(&message, &control.header, sizeof(control), &fd);
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const ssize_t count = sendmsg(ctx->sock.fd, &message, MSG_NOSIGNAL);
        if (count >= 0) {
            advance(parts, static_cast<size_t>(count));
            message.msg_controllen = 0;
        } else if (errno == EAGAIN) {
            wait_for_room(ctx);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

bool ubus_send_message(ubus_context *ctx, ubus_msg_type type, uint16_t seq, uint32_t peer, int fd)
{
    ubus_msghdr header = {.version = UBUS_MSG_VERSION,
                          .type = static_cast<uint8_t>(type),
                          .seq = cpu_to_be16(seq),
                          .peer = cpu_to_be32(peer)};
    iovec parts[2] = {{&header, sizeof(header)}, {ctx->out.head, blob_raw_len(ctx->out.head)}};
    if (!ctx->broken && !send_parts(ctx, parts, fd))
        ctx->broken = true;
    return !ctx->broken;
}

ubus_message *ubus_receive_message(ubus_context *ctx)
{
    if (ctx->broken)
        return nullptr;
    if (!ctx->incoming && !resize_incoming(ctx, sizeof(blob_attr)))
        return nullptr;
    if (!read_up_to(ctx, wire_head) || !read_rest(ctx))
        return nullptr;
    ubus_message *const message = ctx->incoming;
    ctx->incoming = nullptr;
    ctx->received = 0;
    return message;
}

void ubus_wait_for_input(ubus_context *ctx, int timeout)
{
    pollfd socket = {.fd = ctx->sock.fd, .events = POLLIN, .revents = 0};
    (void)poll(&socket, 1, timeout);
}

bool ubus_take_message(ubus_context *ctx)
{
    ubus_message *const message = ubus_receive_message(ctx);
    if (ctx->broken)
        ubus_fail_requests(ctx);
    if (!message)
        return false;
    switch (message->header.type) {
    case UBUS_MSG_INVOKE:
        list_insert_before(&message->list, &ctx->calls);
        return true;
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA:
        ubus_handle_answer(ctx, message);
        break;
    }
    free(message);
    return true;
}

void ubus_report_loss(ubus_context *ctx)
{
    if (!ctx->broken || ctx->loss_reported)
        return;
    ctx->loss_reported = true;
    ctx->busy++;
    ubus_fail_requests(ctx);
    ctx->busy--;
    ctx->connection_lost(ctx);
}

extern "C" {

int ubus_connect_ctx(ubus_context *ctx, const char *path)
{
    *ctx = ubus_context{};
    list_make_empty(&ctx->requests);
    list_make_empty(&ctx->objects);
    list_make_empty(&ctx->calls);
    ctx->sock.cb = on_socket;
    ctx->sock.fd = -1;
    ctx->later.cb = on_later;
    ctx->connection_lost = end_loop_if_registered;
    if (uloop_init() < 0)
        return -1;
    return open_socket(ctx, path) ? 0 : -1;
}

ubus_context *ubus_connect(const char *path)
{
    ubus_context *const ctx = static_cast<ubus_context *>(malloc(sizeof(ubus_context)));
    if (ctx && ubus_connect_ctx(ctx, path) == 0)
        return ctx;
    free(ctx);
    return nullptr;
}

void ubus_shutdown(ubus_context *ctx)
{
    close_socket(ctx);
    uloop_timeout_cancel(&ctx->later);
    ubus_drop_calls(ctx);
    while (!list_is_empty(&ctx->requests))
        ubus_abort_request(ctx, list_entry(ctx->requests.next, ubus_request, list));
    blob_buf_free(&ctx->out);
}

void ubus_free(ubus_context *ctx)
{
    if (!ctx)
        return;
    ubus_shutdown(ctx);
    free(ctx);
}

void ubus_add_uloop(ubus_context *ctx)
{
    (void)uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

void ubus_handle_event(ubus_context *ctx)
{
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

int ubus_reconnect(ubus_context *ctx, const char *path)
{
    close_socket(ctx);
    ubus_drop_calls(ctx);
    ctx->busy++;
    ubus_fail_requests(ctx);
    ctx->busy--;
    if (!open_socket(ctx, path))
        return UBUS_STATUS_CONNECTION_FAILED;
    return ubus_add_objects_again(ctx);
}

} // extern "C"
