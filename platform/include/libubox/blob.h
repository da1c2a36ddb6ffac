/* The binary attribute format of the message bus, and the buffer that messages are built in.
 *
 * An attribute is a big-endian word, its payload, and zero bytes up to a multiple of four. The word holds,
 * from the top: the "extended" mark (a blobmsg header opens the payload), seven bits of id, and in 24 bits
 * the length of word plus payload without the trailing zeros. A nested attribute's payload is the row of its
 * padded children. */
#ifndef LIBUBOX_BLOB_H
#define LIBUBOX_BLOB_H

#include <libubox/utils.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The parts of the word. */
#define BLOB_ATTR_EXTENDED 0x80000000u
#define BLOB_ATTR_ID_MASK 0x7f000000u
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffffu

/* Payload kinds of plain attributes. They exist in parse rules only; the id of a plain attribute is a field
 * number. */
enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

struct blob_attr {
    uint32_t id_len;
    char data[];
} __packed;

/* One row per id for blob_parse(). The limits count the attribute's word too; 0 means no limit. */
struct blob_attr_info {
    unsigned int type;
    unsigned int minlen;
    unsigned int maxlen;
};

/* A message under construction; all zero before first use. `head` is the container that is open at the
 * moment. Adding may move the memory: pointers into it die, `head` and the cookies of open containers stay
 * good. */
struct blob_buf {
    struct blob_attr *head;
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

static inline bool blob_is_extended(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

static inline unsigned int blob_id(const struct blob_attr *attr)
{
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

/* Bytes of word and payload, without padding. */
static inline size_t blob_raw_len(const struct blob_attr *attr)
{
    return be32_to_cpu(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

/* Bytes from this attribute to its next sibling. */
static inline size_t blob_pad_len(const struct blob_attr *attr)
{
    return (blob_raw_len(attr) + 3) & ~(size_t)3;
}

/* Bytes of payload; 0 for an attribute that claims to be shorter than its own word. */
static inline size_t blob_len(const struct blob_attr *attr)
{
    const size_t raw = blob_raw_len(attr);
    return raw < sizeof(struct blob_attr) ? 0 : raw - sizeof(struct blob_attr);
}

/* Changes the length of word and payload; nothing is moved. */
static inline void blob_set_raw_len(struct blob_attr *attr, unsigned int len)
{
    const uint32_t rest = be32_to_cpu(attr->id_len) & ~BLOB_ATTR_LEN_MASK;
    attr->id_len = cpu_to_be32(rest | (len & BLOB_ATTR_LEN_MASK));
}

static inline void *blob_data(const struct blob_attr *attr)
{
    return (void *)attr->data;
}

static inline struct blob_attr *blob_next(const struct blob_attr *attr)
{
    return (struct blob_attr *)(void *)((char *)attr + blob_pad_len(attr));
}

/* The values of plain attributes. The payload must have the size of the value: blob_check_type() tells. */
static inline uint8_t blob_get_u8(const struct blob_attr *attr)
{
    return (uint8_t)attr->data[0];
}

static inline uint16_t blob_get_u16(const struct blob_attr *attr)
{
    uint16_t value;
    memcpy(&value, attr->data, sizeof(value));
    return be16_to_cpu(value);
}

static inline uint32_t blob_get_u32(const struct blob_attr *attr)
{
    uint32_t value;
    memcpy(&value, attr->data, sizeof(value));
    return be32_to_cpu(value);
}

static inline uint64_t blob_get_u64(const struct blob_attr *attr)
{
    uint64_t value;
    memcpy(&value, attr->data, sizeof(value));
    return be64_to_cpu(value);
}

static inline int8_t blob_get_int8(const struct blob_attr *attr)
{
    return (int8_t)blob_get_u8(attr);
}

static inline int16_t blob_get_int16(const struct blob_attr *attr)
{
    return (int16_t)blob_get_u16(attr);
}

static inline int32_t blob_get_int32(const struct blob_attr *attr)
{
    return (int32_t)blob_get_u32(attr);
}

static inline int64_t blob_get_int64(const struct blob_attr *attr)
{
    return (int64_t)blob_get_u64(attr);
}

static inline const char *blob_get_string(const struct blob_attr *attr)
{
    return attr->data;
}

/* Empties the buffer and opens its root container with this id; memory of earlier use is kept. 0, or -ENOMEM.
 */
int blob_buf_init(struct blob_buf *buf, int id);
/* Gives the memory back. May be repeated; blob_buf_init() makes the buffer usable again. */
void blob_buf_free(struct blob_buf *buf);

/* Append one attribute to the open container; the first leaves filling the payload to the caller. NULL when
 * the buffer cannot grow, which ends below 16 MiB. */
struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload);
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);

static inline struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *text)
{
    return blob_put(buf, id, text, (unsigned int)strlen(text) + 1);
}

static inline struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t value)
{
    return blob_put(buf, id, &value, sizeof(value));
}

static inline struct blob_attr *blob_put_u16(struct blob_buf *buf, int id, uint16_t value)
{
    value = cpu_to_be16(value);
    return blob_put(buf, id, &value, sizeof(value));
}

static inline struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t value)
{
    value = cpu_to_be32(value);
    return blob_put(buf, id, &value, sizeof(value));
}

static inline struct blob_attr *blob_put_u64(struct blob_buf *buf, int id, uint64_t value)
{
    value = cpu_to_be64(value);
    return blob_put(buf, id, &value, sizeof(value));
}

static inline struct blob_attr *blob_put_int8(struct blob_buf *buf, int id, int8_t value)
{
    return blob_put_u8(buf, id, (uint8_t)value);
}

static inline struct blob_attr *blob_put_int16(struct blob_buf *buf, int id, int16_t value)
{
    return blob_put_u16(buf, id, (uint16_t)value);
}

static inline struct blob_attr *blob_put_int32(struct blob_buf *buf, int id, int32_t value)
{
    return blob_put_u32(buf, id, (uint32_t)value);
}

static inline struct blob_attr *blob_put_int64(struct blob_buf *buf, int id, int64_t value)
{
    return blob_put_u64(buf, id, (uint64_t)value);
}

/* Opens a plain container in the open one; blob_nest_end() closes it and every container opened with the
 * blobmsg calls. The cookie is no pointer; NULL when the buffer cannot grow, and then must not be closed. */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

/* A copy of an attribute with its padding, which the caller frees; NULL when memory ran out. */
struct blob_attr *blob_memdup(struct blob_attr *attr);

/* Whether `len` bytes at `ptr` are a payload of BLOB_ATTR_* kind `type`. */
bool blob_check_type(const void *ptr, unsigned int len, int type);

/* Clears data[0..max) and points each entry at the last child of that id which passes its row of `info`.
 * Returns how many different ids were found. The walk ends silently at a child that is cut off. */
int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info, int max);
/* The same on `attr_len` bytes of unknown origin: 0 and `data` untouched when the attribute claims to be
 * longer. */
int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **data,
                         const struct blob_attr_info *info, int max);

/* Whether an attribute begins at `attr` and lies, padding included, within `rem` bytes. */
static inline bool blob_fits(const struct blob_attr *attr, size_t rem)
{
    return rem >= sizeof(struct blob_attr) && blob_pad_len(attr) >= sizeof(struct blob_attr) &&
           blob_pad_len(attr) <= rem;
}

/* Visits attributes in a row, the first of which is at `attr`. `rem` is a size_t of the caller's and holds
 * the bytes of the row; while an attribute is visited, those from it on. */
#define __blob_for_each_attr(pos, attr, rem)                                                                 \
    for ((pos) = (struct blob_attr *)(attr); blob_fits(pos, rem);                                            \
         (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

/* Visits the children of `attr`, which may be NULL. `rem` is a size_t of the caller's. */
#define blob_for_each_attr(pos, attr, rem)                                                                   \
    for ((rem) = (attr) ? blob_len(attr) : 0,                                                                \
        (pos) = (attr) ? (struct blob_attr *)blob_data(attr) : (struct blob_attr *)NULL;                     \
         blob_fits(pos, rem); (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
