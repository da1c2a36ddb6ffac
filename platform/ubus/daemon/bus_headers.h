// The C headers of the bus and its libraries. They carry no linkage of their own on every platform.
#pragma once

#include <cstddef>
#include <cstdint>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include <ubus_common.h>
#include <ubusmsg.h>
}
