/* Messages from and to JSON text. */
#ifndef LIBUBOX_BLOBMSG_JSON_H
#define LIBUBOX_BLOBMSG_JSON_H

#include <libubox/blobmsg.h>

#ifdef __cplusplus
extern "C" {
#endif

struct json_object;

/* May give the text to print instead of an attribute's value; NULL leaves the value alone. */
typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

/* Add the members of a JSON object to the open container, in their order. False when there is no such object
 * (text that does not parse, another kind of value) and then nothing was added, or when the buffer cannot
 * grow. The text is judged by json-c, with its leniency. */
bool blobmsg_add_json_from_string(struct blob_buf *buf, const char *text);
bool blobmsg_add_json_from_file(struct blob_buf *buf, const char *file);
bool blobmsg_add_object(struct blob_buf *buf, struct json_object *object);
/* Adds one value of any kind; NULL is the JSON null. */
bool blobmsg_add_json_element(struct blob_buf *buf, const char *name, struct json_object *value);

/* Print an attribute. `list` true: its children, in braces or, for an extended array, in brackets. `list`
 * false: the attribute itself, "name":value. The _value calls leave the name out. `indent` -1 is compact; 0
 * and more put every member on a line of its own, that many tabs further in. The text is malloc'd; NULL when
 * memory ran out. What is malformed prints as nothing. */
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent);
char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb, void *priv,
                                        int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

static inline char *blobmsg_format_json_value(struct blob_attr *attr)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_value_indent(struct blob_attr *attr, int indent)
{
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, indent);
}

#ifdef __cplusplus
}
#endif

#endif
