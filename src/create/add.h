// Bus method `add`.
#pragma once

#include "base/bus_headers.h"

// Judges the arguments, has the lane of changes create the WAN, and replies once. Clients read the outcome
// from the reply's status; the result is UBUS_STATUS_INVALID_ARGUMENT only when wanMode is missing.
int wan_handle_add(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                   blob_attr *message);
