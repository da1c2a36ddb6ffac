// What each method of a bus object is run through.
#pragma once

#include "base/bus_headers.h"
#include "base/stop_signals.h"

// Runs a handler with the stop signals out of its way.
template <ubus_handler_t handler>
int shielded(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
             blob_attr *message)
{
    const stop_signal_mask blocked(stop_signal_mask::block);
    return handler(bus, object, request, method, message);
}
