#ifndef DEVICE_LIBUBOX_BLOB_H
#define DEVICE_LIBUBOX_BLOB_H

#include "utils.h"

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

struct blob_attr_info {
    unsigned int type;
    unsigned int minlen;
    unsigned int maxlen;
};

struct blob_buf {
    struct blob_attr *head;
    bool (*grow)(struct blob_buf *buf, int minlen);
    int buflen;
    void *buf;
};

void *blob_data(const struct blob_attr *attr);
unsigned int blob_id(const struct blob_attr *attr);
bool blob_is_extended(const struct blob_attr *attr);
size_t blob_len(const struct blob_attr *attr);
size_t blob_raw_len(const struct blob_attr *attr);
size_t blob_pad_len(const struct blob_attr *attr);
struct blob_attr *blob_next(const struct blob_attr *attr);
uint8_t blob_get_u8(const struct blob_attr *attr);
uint32_t blob_get_u32(const struct blob_attr *attr);
char *blob_get_string(const struct blob_attr *attr);

int blob_buf_init(struct blob_buf *buf, int id);
void blob_buf_free(struct blob_buf *buf);
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);
int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info, int max);

#endif
