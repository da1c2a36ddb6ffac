#ifndef DEVICE_LIBUBOX_LIST_H
#define DEVICE_LIBUBOX_LIST_H

#include "utils.h"

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

#define LIST_HEAD(name) struct list_head name = {&(name), &(name)}
#define list_entry(pointer, type, field) container_of(pointer, type, field)

#endif
