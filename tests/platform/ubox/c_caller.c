/* No other header comes first: those of the library bring what they and their callers need. */
#include "platform/ubox/c_caller.h"

struct blob_attr *without_id_in_c(struct blob_attr *attr, unsigned int id)
{
    struct blob_buf buf = {0};
    struct blob_attr *child, *copy;
    size_t rem = blob_len(attr);

    blob_buf_init(&buf, (int)((be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT));
    __blob_for_each_attr(child, blob_data(attr), rem)
    {
        if (blob_id(child) == id)
            continue;
        struct blob_attr *const added = blob_new(&buf, (int)blob_id(child), (int)blob_len(child));
        if (added)
            memcpy(blob_data(added), blob_data(child), blob_len(child));
    }
    copy = blob_memdup(buf.head);
    blob_buf_free(&buf);
    return copy;
}

size_t size_of_numbers_in_c(const char *const *names, size_t count)
{
    struct blob_buf buf = {0};
    size_t size, i;
    void *memory;

    blobmsg_buf_init(&buf);
    for (i = 0; i < count; i++)
        blobmsg_add_u32(&buf, names[i], (uint32_t)i);
    size = blob_raw_len(buf.head);
    memory = buf.buf;
    buf.buf = NULL;
    blob_buf_free(&buf);
    free(memory);
    return size;
}
