/* Named and typed values on top of blob attributes: what the methods of bus objects take and answer.
 *
 * A blobmsg attribute is an extended blob attribute whose id is the type. Its payload opens with a big-endian
 * 16-bit name length, the name, a NUL, and zeros up to a multiple of four; then follow the data. The root of
 * a message is a plain attribute, so blobmsg_data() and blob_data() agree on it. */
#ifndef LIBUBOX_BLOBMSG_H
#define LIBUBOX_BLOBMSG_H

#include <libubox/blob.h>

#ifdef __cplusplus
extern "C" {
#endif

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC,
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    BLOBMSG_TYPE_LAST = BLOBMSG_TYPE_DOUBLE,
    /* For policies only, never sent: any of the four integer types. */
    BLOBMSG_CAST_INT64
};

/* The start of an extended attribute's payload. */
struct blobmsg_hdr {
    uint16_t namelen;
    uint8_t name[];
} __packed;

struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

/* Bytes of a header whose name has `namelen` bytes: length field, name, NUL, padding. */
static inline size_t blobmsg_hdrlen(unsigned int namelen)
{
    return (sizeof(struct blobmsg_hdr) + namelen + 1 + 3) & ~(size_t)3;
}

/* Bytes of payload before the data: the header of an extended attribute, never more than the payload. */
static inline size_t blobmsg_data_offset(const struct blob_attr *attr)
{
    const size_t len = blob_len(attr);
    uint16_t namelen;
    if (!blob_is_extended(attr))
        return 0;
    if (len < sizeof(namelen))
        return len;
    memcpy(&namelen, attr->data, sizeof(namelen));
    const size_t header = blobmsg_hdrlen(be16_to_cpu(namelen));
    return header < len ? header : len;
}

static inline int blobmsg_type(const struct blob_attr *attr)
{
    return (int)blob_id(attr);
}

/* The name, empty for an attribute without one. */
static inline const char *blobmsg_name(const struct blob_attr *attr)
{
    return blob_is_extended(attr) ? attr->data + sizeof(struct blobmsg_hdr) : "";
}

/* The data; NULL for NULL. */
static inline void *blobmsg_data(const struct blob_attr *attr)
{
    return attr ? (char *)blob_data(attr) + blobmsg_data_offset(attr) : NULL;
}

static inline size_t blobmsg_data_len(const struct blob_attr *attr)
{
    return blob_len(attr) - blobmsg_data_offset(attr);
}

static inline size_t blobmsg_len(const struct blob_attr *attr)
{
    return blobmsg_data_len(attr);
}

/* Whether the attribute is well formed: in bounds, header complete, type known, data of the type's size. With
 * `name` it must be extended and have a name. Arrays and tables are not looked into. The plain call trusts
 * the length that the attribute states; the other knows how many bytes there are. */
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);
/* The number of members of an array or table, or -1: it is neither, a member is malformed or of another type
 * than `type` (UNSPEC: any), or a table's member has no name. */
int blobmsg_check_array(const struct blob_attr *attr, int type);

static inline bool blobmsg_check_attr_list(const struct blob_attr *attr, int type)
{
    return blobmsg_check_array(attr, type) >= 0;
}

/* Clears tb[0..n) and points each entry at the first attribute of the row's name and type. `data` is the
 * payload of a message. Returns 0; -1 when an attribute is malformed, with the entries found before it set;
 * -EINVAL when there is no payload at all, which is no error of the sender. No value is ever converted to a
 * row's type. */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len);
/* The same by position instead of by name: an attribute of another type than the next row wants is passed
 * over, malformed or not. Here no payload is no error, and BLOBMSG_CAST_INT64 is nobody's type. */
int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                        void *data, unsigned int len);

/* Opens the root container of a message of values. 0, or -ENOMEM. */
static inline int blobmsg_buf_init(struct blob_buf *buf)
{
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

/* Append one value to the open container. 0, or -1 when the buffer cannot grow. Nothing is validated: the
 * caller of blobmsg_add_field() brings big-endian integers and counts the NUL of a string. A NULL name is an
 * empty one. */
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);
/* A copy of another message's attribute, name included. */
int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr);
/* A string made as by printf(). */
int blobmsg_printf(struct blob_buf *buf, const char *name, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

static inline int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t value)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &value, sizeof(value));
}

static inline int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t value)
{
    value = cpu_to_be16(value);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &value, sizeof(value));
}

static inline int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t value)
{
    value = cpu_to_be32(value);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &value, sizeof(value));
}

static inline int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t value)
{
    value = cpu_to_be64(value);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &value, sizeof(value));
}

static inline int blobmsg_add_double(struct blob_buf *buf, const char *name, double value)
{
    uint64_t bits;
    memcpy(&bits, &value, sizeof(bits));
    bits = cpu_to_be64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

static inline int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *text)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, text, (unsigned int)strlen(text) + 1);
}

/* Open a container in the open one; the cookie is as with blob_nest_start(). */
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, false);
}

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name)
{
    return blobmsg_open_nested(buf, name, true);
}

static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

/* The values of attributes which are known to have the type: none of these looks. */
static inline uint8_t blobmsg_get_u8(const struct blob_attr *attr)
{
    return *(const uint8_t *)blobmsg_data(attr);
}

static inline bool blobmsg_get_bool(const struct blob_attr *attr)
{
    return blobmsg_get_u8(attr) != 0;
}

static inline uint16_t blobmsg_get_u16(const struct blob_attr *attr)
{
    uint16_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be16_to_cpu(value);
}

static inline uint32_t blobmsg_get_u32(const struct blob_attr *attr)
{
    uint32_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be32_to_cpu(value);
}

static inline uint64_t blobmsg_get_u64(const struct blob_attr *attr)
{
    uint64_t value;
    memcpy(&value, blobmsg_data(attr), sizeof(value));
    return be64_to_cpu(value);
}

static inline double blobmsg_get_double(const struct blob_attr *attr)
{
    const uint64_t bits = blobmsg_get_u64(attr);
    double value;
    memcpy(&value, &bits, sizeof(value));
    return value;
}

/* The text; NULL for NULL. */
static inline char *blobmsg_get_string(const struct blob_attr *attr)
{
    return (char *)blobmsg_data(attr);
}

/* The value of any integer type, without and with its sign extended; 0 for another type. */
static inline uint64_t blobmsg_cast_u64(const struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

static inline int64_t blobmsg_cast_s64(const struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return (int64_t)blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return (int32_t)blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return (int16_t)blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return (int8_t)blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

/* Visits the members of `attr`, which may be NULL. `rem` is a size_t of the caller's. */
#define blobmsg_for_each_attr(pos, attr, rem)                                                                \
    for ((rem) = (attr) ? blobmsg_data_len(attr) : 0, (pos) = (struct blob_attr *)blobmsg_data(attr);        \
         blob_fits(pos, rem); (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
