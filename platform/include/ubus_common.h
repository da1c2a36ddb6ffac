/* Where the bus daemon listens and its clients connect unless told otherwise. */
#ifndef UBUS_COMMON_H
#define UBUS_COMMON_H

#define UBUS_DEFAULT_SOCKET "/var/run/ubus/ubus.sock"

#endif
