// The reply convention.
#pragma once

#include <cstdarg>
#include <string_view>

#include "base/bus_headers.h"

// A reply on its way to a client: fields that handlers add one after the other. Zeroes are an empty one.
class method_reply {
public:
    method_reply() = default;
    ~method_reply();
    method_reply(const method_reply &) = delete;
    method_reply &operator=(const method_reply &) = delete;

    // Begins anew. Returns whether there is memory for a reply; if not, that is logged.
    bool begin();
    // What begin() began, for the bus library's own calls; its head is null when there is nothing.
    blob_buf *buffer() { return &buffer_; }

    // Each adds one field. Returns whether there was room.
    bool add_number(const char *name, enum blobmsg_type type, uint32_t value);
    bool add_text(const char *name, std::string_view value);

    // Begins anew and adds what the reply of an operation has: "status", then "info". Returns a bus status: a
    // failure, which is logged, when there is no room.
    int say(int status, const char *info, ...) __attribute__((format(printf, 3, 4)));
    int say_by_list(int status, const char *info, va_list arguments);

    // Sends what was added, from the bus thread. Returns the bus status: that the client got nothing when it
    // fails, which is logged.
    int send(ubus_context *bus, ubus_request_data *request) const;

private:
    blob_buf buffer_ = {};
};

// Says and sends at once, from the bus thread. Returns a bus status as both do.
int reply_at_once(ubus_context *bus, ubus_request_data *request, int status, const char *info, ...)
    __attribute__((format(printf, 4, 5)));
