// Deletes every WAN.
#pragma once

#include "base/bus_headers.h"

// Deletes every WAN on the list, then the scripts that concern all of them and what belongs to no WAN
// (remove/orphans.h), and reloads the services. Sweeps the configuration by force when the list cannot be
// read or a deletion failed. Outcomes are logged. Returns false when there was nothing to be deleted or it
// cannot be told. Within an operation.
bool wan_delete_all();

// The sweep. Takes away, without looking at the WANs one by one: the scripts of every identifier on the list,
// every device section but br-lan's, every interface whose name contains "wan_", and the list itself. Returns
// how many list entries and sections that were; 0 when `network` cannot be loaded. Same locking.
unsigned wan_force_clear();

// Bus method `delAll`. Sends no reply.
int wan_handle_del_all(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *method,
                       blob_attr *message);
