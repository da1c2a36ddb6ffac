// Calls of this program's own methods: finding the method, running it, and sending its replies and its
// status.
#include "client.h"
#include "../../ubox/list_ops.h"

#include <stdlib.h>

namespace {

ubus_object *find_object(ubus_context *ctx, uint32_t id)
{
    for (list_head *link = ctx->objects.next; link != &ctx->objects; link = link->next) {
        ubus_object *const obj = list_entry(link, ubus_object, avl.list);
        if (obj->id == id)
            return obj;
    }
    return nullptr;
}

const ubus_method *find_method(const ubus_object *obj, const char *name)
{
    for (int i = 0; i < obj->n_methods; i++) {
        const ubus_method &method = obj->methods[i];
        if (!method.name || strcmp(method.name, name) == 0)
            return &method;
    }
    return nullptr;
}

int run_method(ubus_context *ctx, ubus_request_data *req, const ubus_attrs &attrs)
{
    ubus_object *const obj = find_object(ctx, req->object);
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (!attrs[UBUS_ATTR_METHOD])
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *const name = blob_get_string(attrs[UBUS_ATTR_METHOD]);
    const ubus_method *const method = find_method(obj, name);
    if (!method)
        return UBUS_STATUS_METHOD_NOT_FOUND;
    if (!attrs[UBUS_ATTR_DATA])
        return UBUS_STATUS_INVALID_ARGUMENT;
    req->acl.object = obj->name;
    return method->handler(ctx, obj, req, name, attrs[UBUS_ATTR_DATA]);
}

void send_status(ubus_context *ctx, const ubus_request_data *req, int status)
{
    if (blob_buf_init(&ctx->out, 0) != 0 || !blob_put_int32(&ctx->out, UBUS_ATTR_STATUS, status) ||
        !blob_put_u32(&ctx->out, UBUS_ATTR_OBJID, req->object))
        return;
    (void)ubus_send_message(ctx, UBUS_MSG_STATUS, req->seq, req->peer);
}

const char *text_of(const blob_attr *attr)
{
    return attr ? blob_get_string(attr) : nullptr;
}

void serve_call(ubus_context *ctx, ubus_message *call)
{
    const ubus_attrs attrs(call->body());
    if (!attrs[UBUS_ATTR_OBJID])
        return;
    ubus_request_data req = {.object = blob_get_u32(attrs[UBUS_ATTR_OBJID]),
                             .peer = be32_to_cpu(call->header.peer),
                             .seq = be16_to_cpu(call->header.seq),
                             .acl = {.user = text_of(attrs[UBUS_ATTR_USER]),
                                     .group = text_of(attrs[UBUS_ATTR_GROUP]),
                                     .object = nullptr},
                             .deferred = false,
                             .fd = -1,
                             .req_fd = -1};
    const int status = run_method(ctx, &req, attrs);
    const bool wants_status = !attrs[UBUS_ATTR_NO_REPLY] || blob_get_u8(attrs[UBUS_ATTR_NO_REPLY]) == 0;
    if (wants_status && !req.deferred)
        send_status(ctx, &req, status);
}

ubus_message *take_first(list_head *calls)
{
    ubus_message *const call = list_entry(calls->next, ubus_message, list);
    list_remove(&call->list);
    return call;
}

} // namespace

void ubus_run_calls(ubus_context *ctx)
{
    ctx->busy++;
    while (!list_is_empty(&ctx->calls)) {
        ubus_message *const call = take_first(&ctx->calls);
        serve_call(ctx, call);
        free(call);
    }
    ctx->busy--;
}

void ubus_drop_calls(ubus_context *ctx)
{
    while (!list_is_empty(&ctx->calls))
        free(take_first(&ctx->calls));
}

extern "C" {

int ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *msg)
{
    if (blob_buf_init(&ctx->out, 0) != 0 || !blob_put_u32(&ctx->out, UBUS_ATTR_OBJID, req->object) ||
        !blob_put(&ctx->out, UBUS_ATTR_DATA, msg ? blob_data(msg) : nullptr,
                  msg ? static_cast<unsigned>(blob_len(msg)) : 0))
        return UBUS_STATUS_NO_MEMORY;
    return ubus_send_message(ctx, UBUS_MSG_DATA, req->seq, req->peer) ? UBUS_STATUS_OK : UBUS_STATUS_NO_DATA;
}

void ubus_defer_request(ubus_context *, ubus_request_data *req, ubus_request_data *new_req)
{
    *new_req = *req;
    // The names are part of the message, which does not outlive the handler.
    new_req->acl = {};
    req->deferred = true;
}

void ubus_complete_deferred_request(ubus_context *ctx, ubus_request_data *req, int ret)
{
    send_status(ctx, req, ret);
}

} // extern "C"
