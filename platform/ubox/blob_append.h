// How attributes get into a blob_buf; shared by plain and blobmsg attributes.
#pragma once

#include <libubox/blob.h>

// Appends an attribute with `payload` zeroed bytes to the open container. NULL when the buffer cannot grow.
blob_attr *blob_append(blob_buf *buf, uint32_t flagged_id, size_t payload);

// Makes the attribute that was appended last the open container, and returns the cookie that closes it.
void *blob_enter(blob_buf *buf, blob_attr *attr);

// The upper byte of an attribute's word: the id, cut to its seven bits, and the mark of a blobmsg attribute.
constexpr uint32_t blob_flagged_id(int id, bool extended)
{
    return (static_cast<uint32_t>(id) << BLOB_ATTR_ID_SHIFT & BLOB_ATTR_ID_MASK) |
           (extended ? BLOB_ATTR_EXTENDED : 0);
}
