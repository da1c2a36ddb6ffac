// The reply convention, the one reply buffer and the handler mutex.
#pragma once

#include <string_view>

#include "base/bus_headers.h"
#include "base/lock.h"

// Serialises every change of the WANs: `add`, `del`, `delAll`, the immediate `modify` and the deferred
// workers. Taken after the arguments are validated, released before the reply is sent, never taken twice.
extern fair_mutex handler_mutex;

// The buffer of all replies. Handlers run on the bus thread one at a time, so one is enough.
extern blob_buf reply_buffer;

// A handler's reply. The constructor empties the shared buffer, send() sends it, the destructor frees it.
class handler_reply {
public:
    handler_reply();
    ~handler_reply();
    handler_reply(const handler_reply &) = delete;
    handler_reply &operator=(const handler_reply &) = delete;

    // Drops what was added so far.
    void restart();
    // Sends what handlers put into reply_buffer. Returns the bus status: that the client got nothing when it
    // fails, which is logged.
    int send(ubus_context *bus, ubus_request_data *request);
    // Sends the reply of an operation: "status", then "info". Returns as send() does.
    int send_result(ubus_context *bus, ubus_request_data *request, int status, const char *info, ...)
        __attribute__((format(printf, 5, 6)));
};

// Adds one field to the reply buffer. Returns whether there was room.
bool reply_add_number(const char *name, enum blobmsg_type type, uint32_t value);
bool reply_add_text(const char *name, std::string_view value);
