// Changes a WAN: deletes its configuration and writes it again under the same identifier.
#pragma once

#include "base/bus_headers.h"
#include "store/wan_config.h"

// Applies a record to the WAN that its wanId names, and tells the hotplug system. Returns 0; a conflict
// (conflicts.h, -2 to -4, logged), upon which nothing was changed; or the deletion's result when that failed,
// upon which nothing was written. Afterwards the identifier stands last in the list. Call with the handler
// mutex held. Waits for reloads.
int wan_modify_apply(const wan_config *config);

// Bus method `modify`: applies at once, or queues the change when the request has a `wait` (seconds).
//
// Deliberate: applied at once, a WAN is rebuilt from the request alone; queued, from what is stored with the
// request laid over it.
int wan_handle_modify(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                      blob_attr *message);
