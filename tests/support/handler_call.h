// Request handlers called without a bus. What they send is caught in place of the bus library's call, so a
// test sees each field with its type and length, which a client that prints JSON does not. A deferred request
// has gone through its lane when the call returns.
//
// A program that uses this links korvel_handler_call.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "base/bus_headers.h"

// One field of a reply.
struct reply_part {
    std::string name;
    int type = 0;                  // BLOBMSG_TYPE_...
    size_t length = 0;             // bytes of the value, a text's terminator included
    uint32_t number = 0;           // of an INT8 or INT32
    std::string text;              // of a STRING
    std::vector<reply_part> parts; // of a TABLE

    // The part of that name; throws std::out_of_range with the name when there is none.
    const reply_part &at(const std::string &part_name) const;
    std::vector<std::string> names() const;
};

struct handled {
    int status = 0;       // what the handler returned, or what came of it when it was deferred
    unsigned replies = 0; // how often it replied
    reply_part reply;     // the last reply, as a table

    // "status" and "info" of the reply of an operation.
    int result() const { return static_cast<int>(reply.at("status").number); }
    const std::string &info() const { return reply.at("info").text; }
};
void PrintTo(const handled &outcome, std::ostream *out);

// The handler's answer to a request with these arguments. Whole numbers travel as INT32, true and false as
// INT8.
handled call_handler(ubus_handler_t handler, const std::string &json = "{}");
// The answer to any message at all.
handled call_handler(ubus_handler_t handler, blob_attr *message);
