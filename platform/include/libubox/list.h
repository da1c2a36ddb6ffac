/* The ring that uloop and the bus client link their records into. */
#ifndef LIBUBOX_LIST_H
#define LIBUBOX_LIST_H

#include <libubox/utils.h>

struct list_head {
    struct list_head *next;
    struct list_head *prev;
};

/* Defines an empty list. */
#define LIST_HEAD(name) struct list_head name = {&(name), &(name)}

/* The record of `type` whose `member` is the link at `pointer`. */
#define list_entry(pointer, type, member) container_of(pointer, type, member)

#endif
