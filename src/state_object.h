// The bus object `korvel.state` and the event `korvel.wan`: what is going on beside the requests, for people
// and for programs that do not want to ask again and again.
#pragma once

#include "base/bus_headers.h"

// Registers the object and begins to send an event for each outcome (service/outcomes.h), those of the start
// first. What fails is logged, and the daemon does without it. Bus thread, with the event loop initialised.
void state_object_start(ubus_context *bus);
