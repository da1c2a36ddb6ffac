// Events: calls to the bus's own event object, and calls from it to the objects that listen.
#include "client.h"

namespace {

int deliver_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *type, blob_attr *msg)
{
    ubus_event_handler *const ev = container_of(obj, ubus_event_handler, obj);
    ev->cb(ctx, ev, type, msg);
    return UBUS_STATUS_OK;
}

// The type of an event arrives as the name of the called method, so one row must take them all.
constexpr ubus_method every_event[] = {{.name = nullptr, .handler = deliver_event}};

int call_event_object(ubus_context *ctx, const char *method, blob_buf *arguments)
{
    const int status = ubus_invoke(ctx, UBUS_OBJECT_EVENT, method, arguments->head, nullptr, nullptr, 0);
    blob_buf_free(arguments);
    return status;
}

} // namespace

extern "C" {

int ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data)
{
    blob_buf arguments = {};
    if (blob_buf_init(&arguments, 0) != 0 || blobmsg_add_string(&arguments, "id", id) != 0 ||
        blobmsg_add_field(&arguments, BLOBMSG_TYPE_TABLE, "data", data ? blob_data(data) : nullptr,
                          data ? static_cast<unsigned>(blob_len(data)) : 0) != 0) {
        blob_buf_free(&arguments);
        return UBUS_STATUS_NO_MEMORY;
    }
    return call_event_object(ctx, "send", &arguments);
}

int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *pattern)
{
    if (ev->obj.id == 0) {
        ev->obj.methods = every_event;
        ev->obj.n_methods = ARRAY_SIZE(every_event);
        const int status = ubus_add_object(ctx, &ev->obj);
        if (status != UBUS_STATUS_OK)
            return status;
    }
    blob_buf arguments = {};
    if (blob_buf_init(&arguments, 0) != 0 || blobmsg_add_u32(&arguments, "object", ev->obj.id) != 0 ||
        blobmsg_add_string(&arguments, "pattern", pattern) != 0) {
        blob_buf_free(&arguments);
        return UBUS_STATUS_NO_MEMORY;
    }
    return call_event_object(ctx, "register", &arguments);
}

int ubus_unregister_event_handler(ubus_context *ctx, ubus_event_handler *ev)
{
    return ubus_remove_object(ctx, &ev->obj);
}

} // extern "C"
