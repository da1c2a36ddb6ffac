/* The message bus on the wire: header, message types, attribute ids and status codes. Every message is this
 * header and one blob attribute of id 0, whose children carry the ids below. */
#ifndef UBUSMSG_H
#define UBUSMSG_H

#include <libubox/blob.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Version of the protocol; clients reject any other. */
#define UBUS_MSG_VERSION 0
/* Greatest padded length of a message's attribute, in bytes. */
#define UBUS_MSG_LIMIT 1048576

/* Ids of the bus's own objects; those of clients, types and their objects begin above. */
#define UBUS_OBJECT_EVENT 1
#define UBUS_OBJECT_ACL 2
#define UBUS_OBJECT_MONITOR 3
#define UBUS_FIRST_CLIENT_ID 1024

/* `seq` and `peer` are big endian. An answer repeats both from its request. */
struct ubus_msghdr {
    uint8_t version;
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
} __packed;

enum ubus_msg_type {
    UBUS_MSG_HELLO,
    UBUS_MSG_STATUS,
    UBUS_MSG_DATA,
    UBUS_MSG_PING,
    UBUS_MSG_LOOKUP,
    UBUS_MSG_INVOKE,
    UBUS_MSG_ADD_OBJECT,
    UBUS_MSG_REMOVE_OBJECT,
    UBUS_MSG_SUBSCRIBE,
    UBUS_MSG_UNSUBSCRIBE,
    UBUS_MSG_NOTIFY,
    UBUS_MSG_MONITOR
};

enum ubus_msg_attr {
    UBUS_ATTR_UNSPEC,
    UBUS_ATTR_STATUS,
    UBUS_ATTR_OBJPATH,
    UBUS_ATTR_OBJID,
    UBUS_ATTR_METHOD,
    UBUS_ATTR_OBJTYPE,
    UBUS_ATTR_SIGNATURE,
    UBUS_ATTR_DATA,
    UBUS_ATTR_TARGET,
    UBUS_ATTR_ACTIVE,
    UBUS_ATTR_NO_REPLY,
    UBUS_ATTR_SUBSCRIBERS,
    UBUS_ATTR_USER,
    UBUS_ATTR_GROUP,
    UBUS_ATTR_MAX
};

enum ubus_msg_status {
    UBUS_STATUS_OK,
    UBUS_STATUS_INVALID_COMMAND,
    UBUS_STATUS_INVALID_ARGUMENT,
    UBUS_STATUS_METHOD_NOT_FOUND,
    UBUS_STATUS_NOT_FOUND,
    UBUS_STATUS_NO_DATA,
    UBUS_STATUS_PERMISSION_DENIED,
    UBUS_STATUS_TIMEOUT,
    UBUS_STATUS_NOT_SUPPORTED,
    UBUS_STATUS_UNKNOWN_ERROR,
    UBUS_STATUS_CONNECTION_FAILED,
    UBUS_STATUS_NO_MEMORY,
    UBUS_STATUS_PARSE_ERROR,
    UBUS_STATUS_SYSTEM_ERROR
};

/* The kind of payload that each attribute id has, for blob_parse() with UBUS_ATTR_MAX rows. */
extern const struct blob_attr_info ubus_attr_rules[UBUS_ATTR_MAX];

#ifdef __cplusplus
}
#endif

#endif
