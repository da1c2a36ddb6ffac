// Named, typed values: adding them to a message, judging those of others, and sorting them by a policy.
#include "blob_append.h"

#include <libubox/blobmsg.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

namespace {

constexpr size_t longest_name = UINT16_MAX;

// Appends header and zeroed data; NULL when the buffer cannot grow or the name does not fit its length field.
blob_attr *append_named(blob_buf *buf, int type, const char *name, size_t data_length)
{
    const size_t name_length = name ? strlen(name) : 0;
    if (name_length > longest_name)
        return nullptr;
    const size_t header = blobmsg_hdrlen(static_cast<unsigned>(name_length));
    blob_attr *const attr = blob_append(buf, blob_flagged_id(type, true), header + data_length);
    if (!attr)
        return nullptr;
    const uint16_t length_field = cpu_to_be16(static_cast<uint16_t>(name_length));
    memcpy(attr->data, &length_field, sizeof(length_field));
    if (name_length > 0)
        memcpy(attr->data + sizeof(blobmsg_hdr), name, name_length);
    return attr;
}

// Of an extended attribute with room for its length field.
size_t name_length(const blob_attr *attr)
{
    uint16_t length_field;
    memcpy(&length_field, attr->data, sizeof(length_field));
    return be16_to_cpu(length_field);
}

bool header_is_complete(const blob_attr *attr, bool want_name)
{
    if (!blob_is_extended(attr))
        return !want_name;
    if (blob_len(attr) < sizeof(blobmsg_hdr))
        return false;
    const size_t length = name_length(attr);
    if (want_name && length == 0)
        return false;
    if (blobmsg_hdrlen(static_cast<unsigned>(length)) > blob_len(attr))
        return false;
    return attr->data[sizeof(blobmsg_hdr) + length] == '\0';
}

bool data_suits_type(const blob_attr *attr)
{
    constexpr int kind_of_type[] = {BLOB_ATTR_UNSPEC, BLOB_ATTR_NESTED, BLOB_ATTR_NESTED,
                                    BLOB_ATTR_STRING, BLOB_ATTR_INT64,  BLOB_ATTR_INT32,
                                    BLOB_ATTR_INT16,  BLOB_ATTR_INT8,   BLOB_ATTR_DOUBLE};
    static_assert(ARRAY_SIZE(kind_of_type) == BLOBMSG_TYPE_LAST + 1);
    if (blobmsg_type(attr) > BLOBMSG_TYPE_LAST)
        return false;
    return blob_check_type(blobmsg_data(attr), static_cast<unsigned>(blobmsg_data_len(attr)),
                           kind_of_type[blobmsg_type(attr)]);
}

bool type_suits_policy(const blob_attr *attr, enum blobmsg_type wanted)
{
    const int type = blobmsg_type(attr);
    if (wanted == BLOBMSG_TYPE_UNSPEC)
        return true;
    if (wanted == BLOBMSG_CAST_INT64)
        return type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
    return type == static_cast<int>(wanted);
}

bool has_name(const blob_attr *attr, const char *name)
{
    const size_t length = strlen(name);
    return length == name_length(attr) && memcmp(name, blobmsg_name(attr), length) == 0;
}

void file_by_name(const blobmsg_policy *policy, int policy_len, blob_attr **tb, blob_attr *attr)
{
    for (int i = 0; i < policy_len; i++) {
        if (tb[i] || !policy[i].name)
            continue;
        if (type_suits_policy(attr, policy[i].type) && has_name(attr, policy[i].name))
            tb[i] = attr;
    }
}

void clear_table(blob_attr **tb, int length)
{
    for (int i = 0; i < length; i++)
        tb[i] = nullptr;
}

} // namespace

extern "C" {

bool blobmsg_check_attr_len(const blob_attr *attr, bool name, size_t len)
{
    if (len < sizeof(blob_attr))
        return false;
    if (blob_raw_len(attr) < sizeof(blob_attr) || blob_raw_len(attr) > len)
        return false;
    return header_is_complete(attr, name) && data_suits_type(attr);
}

bool blobmsg_check_attr(const blob_attr *attr, bool name)
{
    return blobmsg_check_attr_len(attr, name, BLOB_ATTR_LEN_MASK);
}

int blobmsg_check_array(const blob_attr *attr, int type)
{
    const bool table = blobmsg_type(attr) == BLOBMSG_TYPE_TABLE;
    if (type > BLOBMSG_TYPE_LAST || !blobmsg_check_attr(attr, false) ||
        (!table && blobmsg_type(attr) != BLOBMSG_TYPE_ARRAY))
        return -1;
    int count = 0;
    blob_attr *member;
    size_t rem;
    blobmsg_for_each_attr(member, attr, rem)
    {
        if (!blobmsg_check_attr_len(member, table, rem))
            return -1;
        if (type != BLOBMSG_TYPE_UNSPEC && blobmsg_type(member) != type)
            return -1;
        count++;
    }
    return count;
}

int blobmsg_parse(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data, unsigned int len)
{
    clear_table(tb, policy_len);
    if (!data || len == 0)
        return -EINVAL;
    size_t rem = len;
    blob_attr *attr;
    __blob_for_each_attr(attr, data, rem)
    {
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        if (blob_is_extended(attr))
            file_by_name(policy, policy_len, tb, attr);
    }
    return 0;
}

int blobmsg_parse_array(const blobmsg_policy *policy, int policy_len, blob_attr **tb, void *data,
                        unsigned int len)
{
    clear_table(tb, policy_len);
    if (!data && len > 0)
        return -EINVAL;
    size_t rem = len;
    int row = 0;
    blob_attr *attr;
    __blob_for_each_attr(attr, data, rem)
    {
        if (row == policy_len)
            break;
        const int wanted = policy[row].type;
        if (wanted != BLOBMSG_TYPE_UNSPEC && blobmsg_type(attr) != wanted)
            continue;
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        tb[row++] = attr;
    }
    return 0;
}

int blobmsg_add_field(blob_buf *buf, int type, const char *name, const void *data, unsigned int len)
{
    blob_attr *const attr = append_named(buf, type, name, len);
    if (!attr)
        return -1;
    if (len > 0)
        memcpy(blobmsg_data(attr), data, len);
    return 0;
}

int blobmsg_add_blob(blob_buf *buf, blob_attr *attr)
{
    return blobmsg_add_field(buf, blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             static_cast<unsigned>(blobmsg_data_len(attr)));
}

int blobmsg_printf(blob_buf *buf, const char *name, const char *format, ...)
{
    char *text = nullptr;
    va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&text, format, arguments);
    va_end(arguments);
    if (length < 0)
        return -1;
    const int result = blobmsg_add_string(buf, name, text);
    free(text);
    return result;
}

void *blobmsg_open_nested(blob_buf *buf, const char *name, bool array)
{
    blob_attr *const attr = append_named(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    return attr ? blob_enter(buf, attr) : nullptr;
}

} // extern "C"
