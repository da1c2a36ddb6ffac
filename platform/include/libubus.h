/* Client side of the message bus: connect, offer objects with methods, call methods of others, send and
 * receive events. A connection belongs to one thread. Subscriptions and the taking of passed descriptors are
 * not part of this version: `subscribe_cb` and `fd_cb` are never called. */
#ifndef LIBUBUS_H
#define LIBUBUS_H

#include <libubox/avl.h>
#include <libubox/list.h>
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include <ubusmsg.h>
#include <ubus_common.h>

#ifdef __cplusplus
extern "C" {
#endif

struct ubus_context;
struct ubus_object;
struct ubus_object_data;
struct ubus_request;
struct ubus_request_data;
struct ubus_event_handler;
struct ubus_message;

/* Runs a method. `method`, `msg` and `req` live until it returns; its result is the status that the caller
 * gets. */
typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);
typedef void (*ubus_fd_handler_t)(struct ubus_request *req, int fd);
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);
typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj, void *priv);
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);

/* A NULL name stands for every method. `mask` has a bit per policy row that is shown to others; 0 shows all.
 */
struct ubus_method {
    const char *name;
    ubus_handler_t handler;
    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy *policy;
    int n_policy;
};

/* `policy_` and `methods_` must be arrays, not pointers. */
#define UBUS_METHOD_NOARG(name_, handler_)                                                                   \
    {                                                                                                        \
        .name = name_, .handler = handler_                                                                   \
    }
#define UBUS_METHOD(name_, handler_, policy_)                                                                \
    {                                                                                                        \
        .name = name_, .handler = handler_, .policy = policy_, .n_policy = ARRAY_SIZE(policy_)               \
    }
#define UBUS_METHOD_MASK(name_, handler_, policy_, mask_)                                                    \
    {                                                                                                        \
        .name = name_, .handler = handler_, .mask = mask_, .policy = policy_,                                \
        .n_policy = ARRAY_SIZE(policy_)                                                                      \
    }
#define UBUS_METHOD_TAG(name_, handler_, policy_, tags_)                                                     \
    {                                                                                                        \
        .name = name_, .handler = handler_, .tags = tags_, .policy = policy_,                                \
        .n_policy = ARRAY_SIZE(policy_)                                                                      \
    }
#define UBUS_OBJECT_TYPE(name_, methods_)                                                                    \
    {                                                                                                        \
        .name = name_, .id = 0, .methods = methods_, .n_methods = ARRAY_SIZE(methods_)                       \
    }

/* What an object offers. The bus gives the id with the first object of the type; the name stays at home. */
struct ubus_object_type {
    const char *name;
    uint32_t id;
    const struct ubus_method *methods;
    int n_methods;
};

/* Lives from ubus_add_object() until it is removed or its context freed. `name` is the path on the bus;
 * without name or type the object is anonymous. */
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

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

/* One object as found by ubus_lookup(). */
struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature;
};

/* The caller's user and group name and the name of the called object. */
struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

/* A call that is being served. */
struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;
    struct ubus_acl_key acl;
    bool deferred;
    int fd;
    int req_fd;
};

/* A call that was made. Lives until its completion; callbacks and `priv` are the caller's to set.
 * `raw_data_cb` gets whole answers and takes the place of `data_cb`, which gets the reply in them. */
struct ubus_request {
    struct list_head list;
    bool pending;
    int status_code;
    bool status_msg;
    bool blocked;
    bool cancelled;
    bool notify;
    uint32_t peer;
    uint16_t seq;
    ubus_data_handler_t raw_data_cb;
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;
    int fd;
    struct ubus_context *ctx;
    void *priv;
};

/* A connection. Programs use `sock`, `connection_lost` and `local_id` (not 0 while connected).
 * `connection_lost` is called once per connection, as the library's last act on it: it may free the context.
 */
struct ubus_context {
    struct list_head requests;
    struct list_head objects;
    struct list_head calls;
    struct uloop_fd sock;
    struct uloop_timeout later;
    uint32_t local_id;
    uint16_t request_seq;
    bool broken;
    bool loss_reported;
    int busy;
    void (*connection_lost)(struct ubus_context *ctx);
    struct blob_buf out;
    struct ubus_message *incoming;
    size_t received;
};

/* NULL path: the default socket. Calls uloop_init(), but does not register with the loop. NULL on failure. */
struct ubus_context *ubus_connect(const char *path);
/* Closes and frees; the bus drops the objects by itself. NULL is accepted. */
void ubus_free(struct ubus_context *ctx);
/* The same two on a structure of the caller's. 0 or -1. */
int ubus_connect_ctx(struct ubus_context *ctx, const char *path);
void ubus_shutdown(struct ubus_context *ctx);
/* Connects anew and adds all objects again; event patterns and the loop registration are lost. Open requests
 * fail. 0 or a status; objects that could not be added are tried again the next time. */
int ubus_reconnect(struct ubus_context *ctx, const char *path);

/* Serve this connection from the loop. */
void ubus_add_uloop(struct ubus_context *ctx);
/* Serves what can be read now, at least one message; for programs with a loop of their own, which poll
 * ctx->sock.fd. */
void ubus_handle_event(struct ubus_context *ctx);

const char *ubus_strerror(int error);

/* These two and the next two wait for the bus without limit. 0 or a status. */
int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);
/* Calls back for every object found; a NULL path finds all, a trailing * many. */
int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);
/* Deliberate: an object that is hidden or has no type gives 0 and leaves *id as it was, as the bus answers
 * so. */
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);

/* Calls a method and waits for its status: what the handler returned, UBUS_STATUS_TIMEOUT after `timeout`
 * milliseconds (0: no limit; below: at once), UBUS_STATUS_CONNECTION_FAILED, or UBUS_STATUS_INVALID_ARGUMENT
 * when the call could not be sent. `cb` (may be NULL) gets each reply. NULL `msg`: no arguments. `fd`, unless
 * -1, goes along and is closed. */
int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd);

static inline int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method,
                              struct blob_attr *msg, ubus_data_handler_t cb, void *priv, int timeout)
{
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

/* Clears *req and sends the call; then set the callbacks and complete it one way or the other. */
int ubus_invoke_async(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                      struct ubus_request *req);
void ubus_complete_request_async(struct ubus_context *ctx, struct ubus_request *req);
int ubus_complete_request(struct ubus_context *ctx, struct ubus_request *req, int timeout);
/* No more callbacks; an answer that still comes is ignored. */
void ubus_abort_request(struct ubus_context *ctx, struct ubus_request *req);

/* Sends one reply at once; may be repeated. NULL `msg`: an empty one. 0, or UBUS_STATUS_NO_DATA when the
 * connection broke. A reply above UBUS_MSG_LIMIT makes the bus close the connection. */
int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);
/* Lets the handler return without a status: *new_req is answered later, from the loop's thread. */
void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req,
                        struct ubus_request_data *new_req);
void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req, int ret);

int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);
/* The first call adds an object for the handler, further ones add patterns to it. */
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern);
int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev);

#ifdef __cplusplus
}
#endif

#endif
