// The bus's status codes as text, and the payload kinds of its attributes.
#include <libubus.h>

#include <stdio.h>

extern "C" {

// In the order of the attribute ids.
const blob_attr_info ubus_attr_rules[UBUS_ATTR_MAX] = {
    {.type = BLOB_ATTR_UNSPEC}, // no attribute
    {.type = BLOB_ATTR_INT32},  // STATUS
    {.type = BLOB_ATTR_STRING}, // OBJPATH
    {.type = BLOB_ATTR_INT32},  // OBJID
    {.type = BLOB_ATTR_STRING}, // METHOD
    {.type = BLOB_ATTR_INT32},  // OBJTYPE
    {.type = BLOB_ATTR_NESTED}, // SIGNATURE
    {.type = BLOB_ATTR_NESTED}, // DATA
    {.type = BLOB_ATTR_INT32},  // TARGET
    {.type = BLOB_ATTR_INT8},   // ACTIVE
    {.type = BLOB_ATTR_INT8},   // NO_REPLY
    {.type = BLOB_ATTR_NESTED}, // SUBSCRIBERS
    {.type = BLOB_ATTR_STRING}, // USER
    {.type = BLOB_ATTR_STRING}, // GROUP
};

const char *ubus_strerror(int error)
{
    static constexpr const char *texts[] = {
        "Success",
        "Invalid command",
        "Invalid argument",
        "Method not found",
        "Not found",
        "No response",
        "Permission denied",
        "Request timed out",
        "Operation not supported",
        "Unknown error",
        "Connection failed",
        "Out of memory",
        "Parsing message data failed",
        "System error",
    };
    static char unknown[sizeof("Unknown error: -2147483648")];
    if (error >= 0 && error < static_cast<int>(ARRAY_SIZE(texts)))
        return texts[error];
    snprintf(unknown, sizeof(unknown), "Unknown error: %d", error);
    return unknown;
}

} // extern "C"
