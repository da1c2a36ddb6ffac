// This program's objects on the bus, and the search for those of others.
#include "client.h"
#include "../../ubox/list_ops.h"

#include <limits.h>

namespace {

bool is_listed(const ubus_context *ctx, const ubus_object *obj)
{
    for (const list_head *link = ctx->objects.next; link != &ctx->objects; link = link->next) {
        if (link == &obj->avl.list)
            return true;
    }
    return false;
}

bool is_shown(const ubus_method &method, int argument)
{
    constexpr int mask_bits = sizeof(method.mask) * CHAR_BIT;
    return method.mask == 0 || (argument < mask_bits && (method.mask >> argument & 1) != 0);
}

bool add_arguments(blob_buf *out, const ubus_method &method)
{
    for (int i = 0; i < method.n_policy; i++) {
        if (!is_shown(method, i))
            continue;
        if (blobmsg_add_u32(out, method.policy[i].name, method.policy[i].type) != 0)
            return false;
    }
    return true;
}

bool add_signature(blob_buf *out, const ubus_object_type *type)
{
    void *const signature = blob_nest_start(out, UBUS_ATTR_SIGNATURE);
    if (!signature)
        return false;
    for (int i = 0; i < type->n_methods; i++) {
        void *const method = blobmsg_open_table(out, type->methods[i].name);
        if (!method || !add_arguments(out, type->methods[i]))
            return false;
        blobmsg_close_table(out, method);
    }
    blob_nest_end(out, signature);
    return true;
}

bool describe(blob_buf *out, const ubus_object *obj)
{
    if (blob_buf_init(out, 0) != 0)
        return false;
    if (!obj->name || !obj->type)
        return true;
    if (!blob_put_string(out, UBUS_ATTR_OBJPATH, obj->name))
        return false;
    return obj->type->id ? blob_put_u32(out, UBUS_ATTR_OBJTYPE, obj->type->id) != nullptr
                         : add_signature(out, obj->type);
}

void note_ids(ubus_request *req, int, blob_attr *msg)
{
    ubus_object *const obj = static_cast<ubus_object *>(req->priv);
    const ubus_attrs attrs(msg);
    if (attrs[UBUS_ATTR_OBJID])
        obj->id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    if (attrs[UBUS_ATTR_OBJTYPE] && obj->type)
        obj->type->id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]);
}

void clear_ids(ubus_request *req, int, blob_attr *msg)
{
    ubus_object *const obj = static_cast<ubus_object *>(req->priv);
    const ubus_attrs attrs(msg);
    if (attrs[UBUS_ATTR_OBJID])
        obj->id = 0;
    // Named only when no other object of the type is left.
    if (attrs[UBUS_ATTR_OBJTYPE] && obj->type)
        obj->type->id = 0;
}

// Sends ctx->out, waits for the status, and hands each answer to `cb`.
int ask_bus(ubus_context *ctx, ubus_msg_type type, ubus_data_handler_t cb, void *priv)
{
    ubus_request req;
    const int status = ubus_start_request(ctx, &req, type, 0);
    req.raw_data_cb = cb;
    req.priv = priv;
    return ubus_await_answer(ctx, &req, status, 0);
}

int announce(ubus_context *ctx, ubus_object *obj)
{
    if (!describe(&ctx->out, obj))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const int status = ask_bus(ctx, UBUS_MSG_ADD_OBJECT, note_ids, obj);
    if (status == UBUS_STATUS_OK && obj->id == 0)
        return UBUS_STATUS_NO_DATA;
    return status;
}

struct search {
    ubus_lookup_handler_t cb;
    void *priv;
};

void report_found(ubus_request *req, int, blob_attr *msg)
{
    const search *const wanted = static_cast<const search *>(req->priv);
    const ubus_attrs attrs(msg);
    if (!wanted->cb || !attrs[UBUS_ATTR_OBJID] || !attrs[UBUS_ATTR_OBJPATH] || !attrs[UBUS_ATTR_OBJTYPE])
        return;
    ubus_object_data found = {.id = blob_get_u32(attrs[UBUS_ATTR_OBJID]),
                              .type_id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]),
                              .path = blob_get_string(attrs[UBUS_ATTR_OBJPATH]),
                              .signature = attrs[UBUS_ATTR_SIGNATURE]};
    wanted->cb(req->ctx, &found, wanted->priv);
}

void note_found_id(ubus_request *req, int, blob_attr *msg)
{
    const ubus_attrs attrs(msg);
    if (attrs[UBUS_ATTR_OBJID])
        *static_cast<uint32_t *>(req->priv) = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
}

int search_path(ubus_context *ctx, const char *path, ubus_data_handler_t cb, void *priv)
{
    if (blob_buf_init(&ctx->out, 0) != 0 || (path && !blob_put_string(&ctx->out, UBUS_ATTR_OBJPATH, path)))
        return UBUS_STATUS_INVALID_ARGUMENT;
    return ask_bus(ctx, UBUS_MSG_LOOKUP, cb, priv);
}

} // namespace

int ubus_add_objects_again(ubus_context *ctx)
{
    int result = UBUS_STATUS_OK;
    for (list_head *link = ctx->objects.next; link != &ctx->objects; link = link->next) {
        ubus_object *const obj = list_entry(link, ubus_object, avl.list);
        obj->id = 0;
        if (obj->type)
            obj->type->id = 0;
    }
    for (list_head *link = ctx->objects.next; link != &ctx->objects; link = link->next) {
        const int status = announce(ctx, list_entry(link, ubus_object, avl.list));
        if (result == UBUS_STATUS_OK)
            result = status;
    }
    return result;
}

extern "C" {

int ubus_add_object(ubus_context *ctx, ubus_object *obj)
{
    if (is_listed(ctx, obj))
        return UBUS_STATUS_INVALID_ARGUMENT;
    obj->id = 0;
    const int status = announce(ctx, obj);
    if (status == UBUS_STATUS_OK)
        list_insert_before(&obj->avl.list, &ctx->objects);
    return status;
}

int ubus_remove_object(ubus_context *ctx, ubus_object *obj)
{
    if (blob_buf_init(&ctx->out, 0) != 0 || !blob_put_u32(&ctx->out, UBUS_ATTR_OBJID, obj->id))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const int status = ask_bus(ctx, UBUS_MSG_REMOVE_OBJECT, clear_ids, obj);
    if (status == UBUS_STATUS_OK && is_listed(ctx, obj))
        list_remove(&obj->avl.list);
    return status;
}

int ubus_lookup(ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv)
{
    search wanted = {cb, priv};
    return search_path(ctx, path, report_found, &wanted);
}

int ubus_lookup_id(ubus_context *ctx, const char *path, uint32_t *id)
{
    return search_path(ctx, path, note_found_id, id);
}

} // extern "C"
