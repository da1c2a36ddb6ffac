#include "service/reply.h"

#include "base/log.h"
#include "base/text.h"

#include <cstdarg>
#include <cstdio>

constinit fair_mutex handler_mutex;
constinit blob_buf reply_buffer = {};

handler_reply::handler_reply()
{
    restart();
}

void handler_reply::restart()
{
    if (blob_buf_init(&reply_buffer, 0) != 0)
        log_error("Failed to allocate a reply");
}

handler_reply::~handler_reply()
{
    blob_buf_free(&reply_buffer);
}

int handler_reply::send(ubus_context *bus, ubus_request_data *request)
{
    if (!reply_buffer.head)
        return UBUS_STATUS_UNKNOWN_ERROR;
    const int result = ubus_send_reply(bus, request, reply_buffer.head);
    if (result != UBUS_STATUS_OK)
        log_error("Failed to send a reply: %s", ubus_strerror(result));
    return result;
}

int handler_reply::send_result(ubus_context *bus, ubus_request_data *request, int status, const char *info,
                               ...)
{
    char text[96];
    va_list arguments;
    va_start(arguments, info);
    (void)vsnprintf(text, sizeof(text), info, arguments);
    va_end(arguments);

    if (!reply_add_number("status", BLOBMSG_TYPE_INT32, static_cast<uint32_t>(status)) ||
        !reply_add_text("info", text)) {
        log_error("Failed to allocate a reply");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return send(bus, request);
}

bool reply_add_number(const char *name, enum blobmsg_type type, uint32_t value)
{
    if (!reply_buffer.head)
        return false;
    if (type == BLOBMSG_TYPE_INT8)
        return blobmsg_add_u8(&reply_buffer, name, static_cast<uint8_t>(value)) == 0;
    return blobmsg_add_u32(&reply_buffer, name, value) == 0;
}

bool reply_add_text(const char *name, std::string_view value)
{
    char text[128];
    if (!reply_buffer.head || value.size() >= sizeof(text))
        return false;
    text_ref(text).set(value);
    text[value.size()] = '\0';
    const unsigned length = static_cast<unsigned>(value.size()) + 1;
    return blobmsg_add_field(&reply_buffer, BLOBMSG_TYPE_STRING, name, text, length) == 0;
}
