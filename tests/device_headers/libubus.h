#ifndef DEVICE_LIBUBUS_H
#define DEVICE_LIBUBUS_H

#ifdef __cplusplus
extern "C" {
#endif

#include <libubox/avl.h>
#include <libubox/list.h>
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include "ubusmsg.h"

struct ubus_context;
struct ubus_object;
struct ubus_request_data;

typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);

struct ubus_method {
    const char *name;
    ubus_handler_t handler;
    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy *policy;
    int n_policy;
};

#define UBUS_METHOD(method_name, method_handler, method_policy)                                              \
    {                                                                                                        \
        .name = method_name, .handler = method_handler, .policy = method_policy,                             \
        .n_policy = ARRAY_SIZE(method_policy)                                                                \
    }
#define UBUS_METHOD_NOARG(method_name, method_handler)                                                       \
    {                                                                                                        \
        .name = method_name, .handler = method_handler                                                       \
    }

struct ubus_object_type {
    const char *name;
    uint32_t id;
    const struct ubus_method *methods;
    int n_methods;
};

#define UBUS_OBJECT_TYPE(type_name, type_methods)                                                            \
    {                                                                                                        \
        .name = type_name, .id = 0, .methods = type_methods, .n_methods = ARRAY_SIZE(type_methods)           \
    }

struct ubus_object {
    struct avl_node avl;
    const char *name;
    uint32_t id;
    const char *path;
    struct ubus_object_type *type;
    ubus_state_handler_t subscribe_cb;
    bool has_subscribers;
    const struct ubus_method *methods;
    int n_methods;
};

struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;
    struct ubus_acl_key acl;
};

struct ubus_context {
    struct uloop_fd sock;
    uint32_t local_id;
    void (*connection_lost)(struct ubus_context *ctx);
};

struct ubus_context *ubus_connect(const char *path);
void ubus_free(struct ubus_context *ctx);
void ubus_add_uloop(struct ubus_context *ctx);
int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);
void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req,
                        struct ubus_request_data *new_req);
void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req, int ret);
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);
const char *ubus_strerror(int error);

#ifdef __cplusplus
}
#endif

#endif
