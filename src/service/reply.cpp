#include "service/reply.h"

#include "base/log.h"
#include "base/text.h"

#include <cstdio>

method_reply::~method_reply()
{
    blob_buf_free(&buffer_);
}

bool method_reply::begin()
{
    if (blob_buf_init(&buffer_, 0) == 0)
        return true;
    log_error("Failed to allocate a reply");
    return false;
}

bool method_reply::add_number(const char *name, enum blobmsg_type type, uint32_t value)
{
    if (!buffer_.head)
        return false;
    if (type == BLOBMSG_TYPE_INT8)
        return blobmsg_add_u8(&buffer_, name, static_cast<uint8_t>(value)) == 0;
    return blobmsg_add_u32(&buffer_, name, value) == 0;
}

bool method_reply::add_text(const char *name, std::string_view value)
{
    char text[128];
    if (!buffer_.head || value.size() >= sizeof(text))
        return false;
    text_ref(text).set(value);
    text[value.size()] = '\0';
    const unsigned length = static_cast<unsigned>(value.size()) + 1;
    return blobmsg_add_field(&buffer_, BLOBMSG_TYPE_STRING, name, text, length) == 0;
}

int method_reply::say_by_list(int status, const char *info, va_list arguments)
{
    char text[96];
    (void)vsnprintf(text, sizeof(text), info, arguments);
    if (!begin())
        return UBUS_STATUS_UNKNOWN_ERROR;
    if (add_number("status", BLOBMSG_TYPE_INT32, static_cast<uint32_t>(status)) && add_text("info", text))
        return UBUS_STATUS_OK;
    log_error("Failed to allocate a reply");
    return UBUS_STATUS_UNKNOWN_ERROR;
}

int method_reply::say(int status, const char *info, ...)
{
    va_list arguments;
    va_start(arguments, info);
    const int result = say_by_list(status, info, arguments);
    va_end(arguments);
    return result;
}

int method_reply::send(ubus_context *bus, ubus_request_data *request) const
{
    if (!buffer_.head)
        return UBUS_STATUS_UNKNOWN_ERROR;
    const int result = ubus_send_reply(bus, request, buffer_.head);
    if (result != UBUS_STATUS_OK)
        log_error("Failed to send a reply: %s", ubus_strerror(result));
    return result;
}

int reply_at_once(ubus_context *bus, ubus_request_data *request, int status, const char *info, ...)
{
    method_reply reply;
    va_list arguments;
    va_start(arguments, info);
    const int result = reply.say_by_list(status, info, arguments);
    va_end(arguments);
    return result == UBUS_STATUS_OK ? reply.send(bus, request) : result;
}
