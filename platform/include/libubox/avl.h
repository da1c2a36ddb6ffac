/* The link by which an object belongs to its bus connection. A process has a handful of objects, so the link
 * is a ring and not the balanced tree that the name promises; programs never touch it. */
#ifndef LIBUBOX_AVL_H
#define LIBUBOX_AVL_H

#include <libubox/list.h>

struct avl_node {
    struct list_head list;
};

#endif
