// Requests to the bus and calls of other programs' methods: sent, matched with their answers, waited for.
#include "client.h"
#include "../../ubox/list_ops.h"

#include <time.h>

namespace {

ubus_request *find_request(ubus_context *ctx, uint16_t seq, uint32_t peer)
{
    for (list_head *link = ctx->requests.next; link != &ctx->requests; link = link->next) {
        ubus_request *const req = list_entry(link, ubus_request, list);
        if (req->seq == seq && req->peer == peer)
            return req;
    }
    return nullptr;
}

void track(ubus_context *ctx, ubus_request *req)
{
    if (req->pending)
        return;
    list_insert_before(&req->list, &ctx->requests);
    req->pending = true;
}

void untrack(ubus_request *req)
{
    if (!req->pending)
        return;
    list_remove(&req->list);
    req->pending = false;
}

// The owner of *req may release it in its callback, unless a call waits for it.
void complete(ubus_request *req, int status)
{
    untrack(req);
    req->status_msg = true;
    req->status_code = status;
    if (req->complete_cb)
        req->complete_cb(req, status);
}

int status_in(const ubus_attrs &attrs)
{
    return attrs[UBUS_ATTR_STATUS] ? blob_get_int32(attrs[UBUS_ATTR_STATUS]) : UBUS_STATUS_INVALID_ARGUMENT;
}

void hand_over_data(ubus_request *req, ubus_message *message, const ubus_attrs &attrs)
{
    if (req->raw_data_cb)
        req->raw_data_cb(req, UBUS_MSG_DATA, message->body());
    else if (req->data_cb && attrs[UBUS_ATTR_DATA])
        req->data_cb(req, UBUS_MSG_DATA, attrs[UBUS_ATTR_DATA]);
}

int64_t now_ms()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Serves the connection until *req is answered, the connection breaks or `timeout` milliseconds are over; 0:
// without limit. Below zero they are over before any answer is looked for. Only the bus is looked at
// meanwhile: no timers and no other descriptors.
void wait_for_answer(ubus_context *ctx, ubus_request *req, int timeout)
{
    const int64_t deadline = now_ms() + timeout;
    while (req->pending) {
        const int64_t left = timeout != 0 ? deadline - now_ms() : -1;
        if (timeout != 0 && left <= 0)
            return complete(req, UBUS_STATUS_TIMEOUT);
        if (!ubus_take_message(ctx) && req->pending)
            ubus_wait_for_input(ctx, static_cast<int>(left));
    }
}

bool build_call(blob_buf *out, uint32_t obj, const char *method, blob_attr *msg)
{
    return blob_buf_init(out, 0) == 0 && blob_put_u32(out, UBUS_ATTR_OBJID, obj) &&
           blob_put_string(out, UBUS_ATTR_METHOD, method) &&
           blob_put(out, UBUS_ATTR_DATA, msg ? blob_data(msg) : nullptr,
                    msg ? static_cast<unsigned>(blob_len(msg)) : 0);
}

int start_call(ubus_context *ctx, ubus_request *req, uint32_t obj, const char *method, blob_attr *msg, int fd)
{
    if (!build_call(&ctx->out, obj, method, msg))
        return UBUS_STATUS_INVALID_ARGUMENT;
    return ubus_start_request(ctx, req, UBUS_MSG_INVOKE, obj, fd);
}

} // namespace

int ubus_start_request(ubus_context *ctx, ubus_request *req, ubus_msg_type type, uint32_t peer, int fd)
{
    *req = ubus_request{};
    req->ctx = ctx;
    req->fd = -1;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    if (blob_pad_len(ctx->out.head) > UBUS_MSG_LIMIT)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return ubus_send_message(ctx, type, req->seq, peer, fd) ? UBUS_STATUS_OK : UBUS_STATUS_INVALID_ARGUMENT;
}

int ubus_await_answer(ubus_context *ctx, ubus_request *req, int start_status, int timeout)
{
    if (start_status == UBUS_STATUS_OK)
        return ubus_complete_request(ctx, req, timeout);
    if (ctx->busy == 0)
        ubus_report_loss(ctx);
    return start_status;
}

void ubus_handle_answer(ubus_context *ctx, ubus_message *message)
{
    ubus_request *const req =
        find_request(ctx, be16_to_cpu(message->header.seq), be32_to_cpu(message->header.peer));
    if (!req)
        return;
    const ubus_attrs attrs(message->body());
    if (message->header.type == UBUS_MSG_STATUS)
        complete(req, status_in(attrs));
    else
        hand_over_data(req, message, attrs);
}

void ubus_fail_requests(ubus_context *ctx)
{
    while (!list_is_empty(&ctx->requests)) {
        ubus_request *const req = list_entry(ctx->requests.next, ubus_request, list);
        complete(req, req->blocked ? UBUS_STATUS_CONNECTION_FAILED : UBUS_STATUS_TIMEOUT);
    }
}

extern "C" {

int ubus_invoke_async(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg, ubus_request *req)
{
    return start_call(ctx, req, obj, method, msg, -1);
}

void ubus_complete_request_async(ubus_context *ctx, ubus_request *req)
{
    track(ctx, req);
}

int ubus_complete_request(ubus_context *ctx, ubus_request *req, int timeout)
{
    if (req->status_msg)
        return req->status_code;
    track(ctx, req);
    req->blocked = true;
    ctx->busy++;
    wait_for_answer(ctx, req, timeout);
    ctx->busy--;
    const int status = req->status_code;
    // Calls that came in are served from the loop; within a handler, after that has returned.
    if (ctx->busy == 0 && !list_is_empty(&ctx->calls))
        uloop_timeout_set(&ctx->later, 0);
    if (ctx->busy == 0)
        ubus_report_loss(ctx);
    return status;
}

void ubus_abort_request(ubus_context *, ubus_request *req)
{
    untrack(req);
    req->cancelled = true;
}

int ubus_invoke_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd)
{
    ubus_request req;
    const int status = start_call(ctx, &req, obj, method, msg, fd);
    if (fd >= 0)
        close(fd);
    req.data_cb = cb;
    req.priv = priv;
    return ubus_await_answer(ctx, &req, status, timeout);
}

} // extern "C"
