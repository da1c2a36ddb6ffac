// The bus library's headers in the order that works from C++: libubus.h declares C linkage for itself and for
// what it includes, the libubox headers alone do not.
#pragma once

#include <libubus.h>

extern "C" {
#include <libubox/blobmsg_json.h>
}
