// Bus method `modify`.
#pragma once

#include "base/bus_headers.h"

// Applies a change of a WAN at once, or queues the change when the request has a `wait` (seconds).
//
// Deliberate: applied at once, a WAN is rebuilt from the request alone; queued, from what is stored with the
// request laid over it.
int wan_handle_modify(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                      blob_attr *message);
