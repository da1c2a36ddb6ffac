// Requests that are answered when a lane has done their work.
//
// A handler judges the arguments and puts what it understood into a record; then the request is deferred. On
// its lane the method's work makes a reply of the record, and the bus thread sends it. Requests that wait are
// held in memory, most_requests of them; a client has room for as many as there is room left, so that one
// alone cannot keep out the others.
#pragma once

#include "base/bus_headers.h"
#include "service/lanes.h"
#include "service/reply.h"
#include "wan/wan_config.h"

struct request;

// Does a request's work on its lane: fills the reply and returns the bus status that is sent behind it.
using request_work = int (*)(request &self);

// What a method does with its requests.
struct method_kind {
    request_work work;
    request_work refuse;           // says that there is no room or no memory; on the bus thread
    bool (*answer)(request &self); // says what becomes of what the work found, on the bus thread, and sets
                                   // the status; null: the work does. False: the work is to be done again
    bool reloads_nothing;          // as of a job
};

struct request {
    lane_job job;
    const method_kind *kind;
    lane_name lane;
    ubus_context *bus;
    ubus_request_data origin; // deferred
    int status;
    uint64_t asked;          // steady_milliseconds() when it came in
    uint64_t arguments;      // for the method: which ones were given
    uint32_t wait;           // for the method
    uint64_t changes_before; // lane_ended() of the changes when it came in
    wan_config wan;
    method_reply reply;
};

// Held at once, on all lanes together: what is held stays below 1 MB.
inline constexpr size_t most_requests = 1024;

// Takes the work of a request on: `asked` is what its record is to be. Returns the bus status of a handler.
// Without room or memory it is refused at once, and logged. Bus thread.
int request_defer(const method_kind &kind, lane_name lane, ubus_context *bus, ubus_request_data *origin,
                  const wan_config &asked, uint64_t arguments = 0, uint32_t wait = 0);

// The record of the last request of a kind for a WAN that is at work or waits in the lane of changes; null:
// there is none. Bus thread.
const wan_config *request_find(const method_kind &kind, uint8_t wan_id);
