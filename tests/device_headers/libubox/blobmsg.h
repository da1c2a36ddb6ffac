#ifndef DEVICE_LIBUBOX_BLOBMSG_H
#define DEVICE_LIBUBOX_BLOBMSG_H

#include "blob.h"

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
    BLOBMSG_TYPE_LAST = BLOBMSG_TYPE_DOUBLE
};

struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

int blobmsg_type(const struct blob_attr *attr);
const char *blobmsg_name(const struct blob_attr *attr);
void *blobmsg_data(const struct blob_attr *attr);
size_t blobmsg_data_len(const struct blob_attr *attr);
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len);
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);
int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val);
int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val);
int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val);
int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val);
int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string);
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);
void *blobmsg_open_table(struct blob_buf *buf, const char *name);
void *blobmsg_open_array(struct blob_buf *buf, const char *name);
void blobmsg_close_table(struct blob_buf *buf, void *cookie);
void blobmsg_close_array(struct blob_buf *buf, void *cookie);
uint8_t blobmsg_get_u8(struct blob_attr *attr);
bool blobmsg_get_bool(struct blob_attr *attr);
uint16_t blobmsg_get_u16(struct blob_attr *attr);
uint32_t blobmsg_get_u32(struct blob_attr *attr);
uint64_t blobmsg_get_u64(struct blob_attr *attr);
char *blobmsg_get_string(struct blob_attr *attr);

#endif
