// What a program in C does with the message library.
#pragma once

#include <libubox/blobmsg.h>

#ifdef __cplusplus
extern "C" {
#endif

// A copy of a root without its children of an id; the caller frees it.
struct blob_attr *without_id_in_c(struct blob_attr *attr, unsigned int id);

// The bytes of a message of numbers with a name each.
size_t size_of_numbers_in_c(const char *const *names, size_t count);

#ifdef __cplusplus
}
#endif
