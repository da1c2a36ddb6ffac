// Calls on the bus.
#pragma once

#include "base/bus_headers.h"
#include "base/heap.h"
#include "ctl/exit_status.h"

// A message that is built.
class bus_message {
public:
    bus_message() { (void)blob_buf_init(&buffer_, 0); }
    ~bus_message() { blob_buf_free(&buffer_); }
    bus_message(const bus_message &) = delete;
    bus_message &operator=(const bus_message &) = delete;

    blob_buf *buffer() { return &buffer_; }
    blob_attr *head() const { return buffer_.head; }

private:
    blob_buf buffer_ = {};
};

// What an object replied: its first reply, null when there was none.
using bus_answer = heap_ptr<blob_attr>;

// A member of a table or of a reply by name and type; null when it is missing, malformed or of another type,
// or when `table` is null.
blob_attr *bus_member(blob_attr *table, const char *name, enum blobmsg_type type);
// The same as a text and as a number; the fallback when it is missing.
const char *bus_text(blob_attr *table, const char *name, const char *fallback = "");
int64_t bus_number(blob_attr *table, const char *name, int64_t fallback = 0);
// The entry of a list, table or reply that stands behind `before` and has a type, the first one behind null;
// null when there is none, or when `list` is null.
blob_attr *bus_next(blob_attr *list, blob_attr *before, enum blobmsg_type type);

// Connects, and leaves the signals that end a program at a prompt to do so, which the library takes over.
// Null when there is no bus.
ubus_context *connect_to_bus();

// A connection; closed when it goes. The first call connects.
class bus_connection {
public:
    bus_connection() = default;
    ~bus_connection() { ubus_free(bus_); }
    bus_connection(const bus_connection &) = delete;
    bus_connection &operator=(const bus_connection &) = delete;

    // Whether the object is on the bus and this user may see it.
    bool has(const char *object);
    // Calls a method and waits as long as call_timeout() says. A null message has no arguments. Returns the
    // bus status: UBUS_STATUS_CONNECTION_FAILED also when there is no bus, UBUS_STATUS_NOT_FOUND when the
    // object is not there. reply_out is what was replied, whatever the status.
    int call(const char *object, const char *method, blob_attr *message, bus_answer &reply_out);

private:
    bool connect();

    ubus_context *bus_ = nullptr;
};

// Tells in words why a call failed that has no reply of its own. The result is never `done`.
exit_status fail_call(int bus_status, const char *object, const char *method);
