// Messages from and to JSON text.
#include "command.h"

#include <cstdio>
#include <cstdlib>

#include <libubox/blobmsg_json.h>

int message::add_json(const char *text)
{
    return blobmsg_add_json_from_string(&buffer_, text) ? UBUS_STATUS_OK : UBUS_STATUS_PARSE_ERROR;
}

void print_message(blob_attr *content, bool compact)
{
    char *const text =
        compact ? blobmsg_format_json(content, true) : blobmsg_format_json_indent(content, true, 0);
    if (!text)
        return;
    fputs(text, stdout);
    free(text);
}
