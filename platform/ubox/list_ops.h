// What the libraries here do with the rings of list.h.
#pragma once

#include <libubox/list.h>

inline void list_make_empty(list_head *list)
{
    list->next = list->prev = list;
}

inline bool list_is_empty(const list_head *list)
{
    return list->next == list;
}

// Puts `link` in front of `position`; the head itself as position means the end of the list.
inline void list_insert_before(list_head *link, list_head *position)
{
    link->prev = position->prev;
    link->next = position;
    position->prev->next = link;
    position->prev = link;
}

// Leaves `link` as a ring of its own, so that a second removal is harmless.
inline void list_remove(list_head *link)
{
    link->prev->next = link->next;
    link->next->prev = link->prev;
    list_make_empty(link);
}
