// What the parts of the bus client share: messages off the wire, and how requests and calls pass through a
// connection.
#pragma once

#include <libubus.h>

// One message; its attribute follows in the same memory, as it does on the wire.
struct ubus_message {
    list_head list;
    ubus_msghdr header;

    blob_attr *body() { return reinterpret_cast<blob_attr *>(this + 1); }
};
static_assert(sizeof(ubus_message) == offsetof(ubus_message, header) + sizeof(ubus_msghdr),
              "header and attribute are read as one piece");

// The attributes of a message by id; NULL where absent or malformed.
struct ubus_attrs {
    blob_attr *by_id[UBUS_ATTR_MAX];

    explicit ubus_attrs(blob_attr *body) { blob_parse(body, by_id, ubus_attr_rules, UBUS_ATTR_MAX); }
    blob_attr *operator[](ubus_msg_attr id) const { return by_id[id]; }
};

// connection.cpp

// Sends ctx->out as the attribute of a message and waits until the socket has taken it. `fd`, unless -1, is
// passed along. False when the connection is broken.
bool ubus_send_message(ubus_context *ctx, ubus_msg_type type, uint16_t seq, uint32_t peer, int fd = -1);
// The next message if all of it has arrived, the caller's to free(). NULL and ctx->broken at end of stream
// and when what arrives is no message.
ubus_message *ubus_receive_message(ubus_context *ctx);
// Waits until there is something to receive; `timeout` in milliseconds, -1 for ever.
void ubus_wait_for_input(ubus_context *ctx, int timeout);
// Tells the owner, once, that the connection is gone. The context may be freed afterwards.
void ubus_report_loss(ubus_context *ctx);
// Takes in one message: an answer goes to its request, a call into the queue. False if there was none.
bool ubus_take_message(ubus_context *ctx);

// request.cpp

// Clears *req and sends ctx->out as a request. UBUS_STATUS_INVALID_ARGUMENT if it is too large or cannot be
// sent.
int ubus_start_request(ubus_context *ctx, ubus_request *req, ubus_msg_type type, uint32_t peer, int fd = -1);
// The rest of a synchronous request: waits for its answer if ubus_start_request() returned 0 for it. The
// status.
int ubus_await_answer(ubus_context *ctx, ubus_request *req, int start_status, int timeout);
void ubus_handle_answer(ubus_context *ctx, ubus_message *message);
// Completes every request: with "connection failed" where a call waits for it, else with "timed out".
void ubus_fail_requests(ubus_context *ctx);

// service.cpp

// Serves the queued calls. A call that arrives meanwhile joins the queue, so handlers never nest.
void ubus_run_calls(ubus_context *ctx);
void ubus_drop_calls(ubus_context *ctx);

// objects.cpp

// Gives all objects anew to a bus that knows none of them. 0 or the first status that was none.
int ubus_add_objects_again(ubus_context *ctx);
