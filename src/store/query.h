// Bus methods `get` and `all`.
#pragma once

#include "base/bus_headers.h"

// Replies with one WAN's fields, when the lane of queries has read them.
int wan_handle_get(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                   blob_attr *message);

// Replies with a table of fields for every WAN on the list, or with nothing at all when the list is empty.
// Takes no lock; waits for the network daemon once or twice per WAN.
int wan_handle_all(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                   blob_attr *message);
