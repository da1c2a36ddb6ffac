// The reply of the object network.device about a device.
#pragma once

#include "netd/bus_headers.h"
#include "netd/network_config.h"

// Adds the members to the open container: what the configuration makes of the device (`section` is nullptr
// when it says nothing) and, of one that the kernel has, its MTU and address.
void add_device_status(blob_buf *reply, const std::string &device, const config_section *section,
                       bool present);
