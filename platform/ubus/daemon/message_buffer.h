// Builds the body of one outgoing message, field by field.
#pragma once

#include <span>

#include "frame.h"

namespace ubusd {

class message_buffer {
public:
    message_buffer() { blob_buf_init(&buffer_, 0); }
    ~message_buffer() { blob_buf_free(&buffer_); }
    message_buffer(const message_buffer &) = delete;
    message_buffer &operator=(const message_buffer &) = delete;

    message_buffer &number(int field, uint32_t value)
    {
        blob_put_u32(&buffer_, field, value);
        return *this;
    }
    message_buffer &flag(int field, bool value)
    {
        blob_put_u8(&buffer_, field, value ? 1 : 0);
        return *this;
    }
    message_buffer &text(int field, const char *value)
    {
        blob_put_string(&buffer_, field, value);
        return *this;
    }
    message_buffer &bytes(int field, std::span<const uint8_t> value)
    {
        blob_put(&buffer_, field, value.data(), static_cast<unsigned>(value.size()));
        return *this;
    }

    // The finished message; valid until the next change.
    std::span<const uint8_t> body() const { return body_of(buffer_); }

private:
    blob_buf buffer_{};
};

} // namespace ubusd
