#ifndef DEVICE_LIBUBOX_AVL_H
#define DEVICE_LIBUBOX_AVL_H

#include "list.h"

struct avl_node {
    struct list_head list;
    struct avl_node *parent, *left, *right;
    const void *key;
    signed char balance;
    bool leader;
};

#endif
