// The growing buffer that messages are built in, and the walk that takes plain attributes apart.
#include "blob_append.h"

#include <errno.h>
#include <stdlib.h>

namespace {

constexpr size_t growth_step = 256;
constexpr size_t greatest_buffer = BLOB_ATTR_LEN_MASK;

bool grow_in_steps(blob_buf *buf, int missing)
{
    const size_t old_size = static_cast<size_t>(buf->buflen);
    const size_t new_size = old_size + (static_cast<size_t>(missing) / growth_step + 1) * growth_step;
    if (new_size > greatest_buffer)
        return false;
    char *const memory = static_cast<char *>(realloc(buf->buf, new_size));
    if (!memory)
        return false;
    memset(memory + old_size, 0, new_size - old_size);
    buf->buf = memory;
    buf->buflen = static_cast<int>(new_size);
    return true;
}

size_t offset_of(const blob_buf *buf, const blob_attr *attr)
{
    return static_cast<size_t>(reinterpret_cast<const char *>(attr) - static_cast<const char *>(buf->buf));
}

blob_attr *attr_at(const blob_buf *buf, size_t offset)
{
    return reinterpret_cast<blob_attr *>(static_cast<char *>(buf->buf) + offset);
}

// Makes room for `size` bytes from the start of the buffer. `head` follows the memory.
bool reserve(blob_buf *buf, size_t size)
{
    const size_t available = static_cast<size_t>(buf->buflen);
    if (size <= available)
        return true;
    if (size > greatest_buffer)
        return false;
    const size_t head = buf->head ? offset_of(buf, buf->head) : 0;
    if (!buf->grow(buf, static_cast<int>(size - available)))
        return false;
    buf->head = attr_at(buf, head);
    return true;
}

void set_word(blob_attr *attr, uint32_t flagged_id, size_t raw_length)
{
    attr->id_len = cpu_to_be32(flagged_id | static_cast<uint32_t>(raw_length));
}

void set_length(blob_attr *attr, size_t raw_length)
{
    blob_set_raw_len(attr, static_cast<unsigned>(raw_length)); // bounded by the buffer's greatest size
}

bool passes(const blob_attr *attr, const blob_attr_info &rule)
{
    const size_t raw = blob_raw_len(attr);
    if (raw < sizeof(blob_attr))
        return false;
    if (rule.minlen && raw < rule.minlen)
        return false;
    if (rule.maxlen && raw > rule.maxlen)
        return false;
    return blob_check_type(blob_data(attr), static_cast<unsigned>(blob_len(attr)),
                           static_cast<int>(rule.type));
}

} // namespace

blob_attr *blob_append(blob_buf *buf, uint32_t flagged_id, size_t payload)
{
    if (!buf->head || payload > greatest_buffer)
        return nullptr;
    const size_t offset = offset_of(buf, buf->head) + blob_pad_len(buf->head);
    const size_t raw = sizeof(blob_attr) + payload;
    const size_t padded = (raw + 3) & ~size_t{3};
    if (!reserve(buf, offset + padded))
        return nullptr;
    blob_attr *const attr = attr_at(buf, offset);
    memset(attr, 0, padded);
    set_word(attr, flagged_id, raw);
    set_length(buf->head, blob_pad_len(buf->head) + padded);
    return attr;
}

void *blob_enter(blob_buf *buf, blob_attr *attr)
{
    // Offset 0 is a root container; a cookie must not be NULL.
    const size_t cookie = offset_of(buf, buf->head) + 1;
    set_length(buf->head, blob_pad_len(buf->head) - blob_pad_len(attr));
    buf->head = attr;
    return reinterpret_cast<void *>(cookie);
}

extern "C" {

int blob_buf_init(blob_buf *buf, int id)
{
    if (!buf->grow)
        buf->grow = grow_in_steps;
    buf->head = static_cast<blob_attr *>(buf->buf);
    if (!reserve(buf, sizeof(blob_attr)))
        return -ENOMEM;
    set_word(buf->head, blob_flagged_id(id, false), sizeof(blob_attr));
    return 0;
}

void blob_buf_free(blob_buf *buf)
{
    free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

blob_attr *blob_new(blob_buf *buf, int id, int payload)
{
    return blob_append(buf, blob_flagged_id(id, false), static_cast<size_t>(payload));
}

blob_attr *blob_put(blob_buf *buf, int id, const void *ptr, unsigned int len)
{
    blob_attr *const attr = blob_append(buf, blob_flagged_id(id, false), len);
    if (attr && len > 0)
        memcpy(blob_data(attr), ptr, len);
    return attr;
}

void *blob_nest_start(blob_buf *buf, int id)
{
    blob_attr *const attr = blob_append(buf, blob_flagged_id(id, false), 0);
    return attr ? blob_enter(buf, attr) : nullptr;
}

void blob_nest_end(blob_buf *buf, void *cookie)
{
    if (!cookie || !buf->head)
        return;
    const size_t nested_length = blob_pad_len(buf->head);
    buf->head = attr_at(buf, reinterpret_cast<size_t>(cookie) - 1);
    set_length(buf->head, blob_pad_len(buf->head) + nested_length);
}

blob_attr *blob_memdup(blob_attr *attr)
{
    auto *const copy = static_cast<blob_attr *>(calloc(1, blob_pad_len(attr)));
    if (copy)
        memcpy(copy, attr, blob_raw_len(attr)); // the original may end there, its padding be out of reach
    return copy;
}

bool blob_check_type(const void *ptr, unsigned int len, int type)
{
    const char *const data = static_cast<const char *>(ptr);
    switch (type) {
    case BLOB_ATTR_INT8:
        return len == sizeof(int8_t);
    case BLOB_ATTR_INT16:
        return len == sizeof(int16_t);
    case BLOB_ATTR_INT32:
        return len == sizeof(int32_t);
    case BLOB_ATTR_INT64:
        return len == sizeof(int64_t);
    case BLOB_ATTR_DOUBLE:
        return len >= sizeof(double);
    case BLOB_ATTR_STRING:
        return len > 0 && data[len - 1] == '\0';
    default:
        return type >= 0 && type < BLOB_ATTR_LAST;
    }
}

int blob_parse(blob_attr *attr, blob_attr **data, const blob_attr_info *info, int max)
{
    int found = 0;
    blob_attr *child;
    size_t rem;
    memset(data, 0, sizeof(*data) * static_cast<size_t>(max));
    blob_for_each_attr(child, attr, rem)
    {
        const int id = static_cast<int>(blob_id(child));
        if (id >= max || !passes(child, info[id]))
            continue;
        if (!data[id])
            found++;
        data[id] = child;
    }
    return found;
}

int blob_parse_untrusted(blob_attr *attr, size_t attr_len, blob_attr **data, const blob_attr_info *info,
                         int max)
{
    if (attr_len < sizeof(blob_attr) || blob_raw_len(attr) > attr_len)
        return 0;
    return blob_parse(attr, data, info, max);
}

} // extern "C"
