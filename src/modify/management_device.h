// Bus method `addDev`: the management device.
#pragma once

#include "base/bus_headers.h"

// Creates the VLAN device pon.4094 in the LAN bridge with an identifier of its own; refused when none is
// left. Does not look for one that exists, and reloads nothing. It does not wait for the
// reloads of the change before it.
int wan_handle_add_dev(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                       blob_attr *message);
