// The bus object `korvel`.
#pragma once

#include "base/bus_headers.h"

// Registers the object with its seven methods. Returns a bus status.
int bus_object_register(ubus_context *bus);
