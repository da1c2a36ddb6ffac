// Messages as the tests of the message library write and read them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>

// The bytes of an attribute, padding left out, in groups of four as they appear on the wire.
inline std::string wire_text(const void *data, size_t length)
{
    std::string text;
    for (size_t i = 0; i < length; i++) {
        char digits[3];
        std::snprintf(digits, sizeof(digits), "%02x", static_cast<const unsigned char *>(data)[i]);
        text += i > 0 && i % 4 == 0 ? " " : "";
        text += digits;
    }
    return text;
}

inline std::string wire_text(const blob_attr *attr)
{
    return wire_text(attr, blob_raw_len(attr));
}

// A text of the library, which the caller owns.
inline std::string taken(char *text)
{
    const std::unique_ptr<char, void (*)(void *)> owner(text, std::free);
    return text ? text : "(none)";
}

// A message buffer that frees itself; made empty or from JSON.
class blob_message {
public:
    blob_message() { EXPECT_EQ(blob_buf_init(&buffer_, 0), 0); }
    explicit blob_message(const char *json) : blob_message()
    {
        EXPECT_TRUE(blobmsg_add_json_from_string(&buffer_, json)) << json;
    }
    blob_message(const blob_message &) = delete;
    blob_message &operator=(const blob_message &) = delete;
    ~blob_message() { blob_buf_free(&buffer_); }

    blob_buf *buf() { return &buffer_; }
    blob_attr *head() { return buffer_.head; }
    void *payload() { return blob_data(buffer_.head); }
    unsigned length() { return static_cast<unsigned>(blob_len(buffer_.head)); }
    std::string json() { return taken(blobmsg_format_json(buffer_.head, true)); }
    std::string pretty() { return taken(blobmsg_format_json_indent(buffer_.head, true, 0)); }
    std::string wire() { return wire_text(buffer_.head); }

private:
    blob_buf buffer_ = {};
};

// An attribute made of bytes that no builder would write. The copy ends exactly where the attribute does.
class raw_attr {
public:
    explicit raw_attr(std::vector<unsigned char> bytes) : bytes_(std::move(bytes)) {}
    // The word from its parts, then the payload.
    raw_attr(bool extended, unsigned id, size_t raw_length, const std::string &payload)
    {
        const uint32_t word = (extended ? 0x80000000u : 0) | id << 24 | static_cast<uint32_t>(raw_length);
        for (int shift = 24; shift >= 0; shift -= 8)
            bytes_.push_back(static_cast<unsigned char>(word >> shift));
        bytes_.insert(bytes_.end(), payload.begin(), payload.end());
    }

    blob_attr *attr() { return reinterpret_cast<blob_attr *>(bytes_.data()); }
    size_t size() const { return bytes_.size(); }
    std::string text() const { return {bytes_.begin(), bytes_.end()}; }

private:
    std::vector<unsigned char> bytes_;
};
