// Frames: reading the header, cutting the stream, finding the fields.
#include "frame.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace ubusd {

namespace {

constexpr size_t prefix_size = header_size + sizeof(blob_attr); // enough to know a frame's length
constexpr size_t kept_capacity = 65536;                         // a buffer grown beyond this is given back

frame_header decode_header(const uint8_t *bytes)
{
    ubus_msghdr raw;
    memcpy(&raw, bytes, sizeof(raw));
    return {raw.version, raw.type, be16_to_cpu(raw.seq), be32_to_cpu(raw.peer)};
}

// The head's raw length, or 0 if no frame may have it. The head's id and its marker bit are not looked at.
size_t body_size(const uint8_t *prefix)
{
    blob_attr head;
    memcpy(&head, prefix + header_size, sizeof(head));
    const size_t size = blob_raw_len(&head);
    return size < sizeof(head) || blob_pad_len(&head) > UBUS_MSG_LIMIT ? 0 : size;
}

} // namespace

std::array<uint8_t, header_size> encode_header(const frame_header &header)
{
    const ubus_msghdr raw{
        .version = header.version,
        .type = header.type,
        .seq = cpu_to_be16(header.seq),
        .peer = cpu_to_be32(header.peer),
    };
    return std::bit_cast<std::array<uint8_t, header_size>>(raw);
}

frame_fields read_fields(const frame &message)
{
    frame_fields fields{};
    blob_attr *const head = reinterpret_cast<blob_attr *>(message.body.data());
    blob_parse_untrusted(head, message.body.size(), fields.data(), ubus_attr_rules, UBUS_ATTR_MAX);
    return fields;
}

std::span<const uint8_t> body_of(const blob_buf &buffer)
{
    return {reinterpret_cast<const uint8_t *>(buffer.head), blob_raw_len(buffer.head)};
}

frame_reader::outcome frame_reader::next(std::span<uint8_t> &input, frame &message_out)
{
    drop_handed_out();
    const bool whole_prefix = pending_.empty() && input.size() >= prefix_size;
    if (!whole_prefix && !collect(input, prefix_size))
        return outcome::incomplete;

    uint8_t *const prefix = whole_prefix ? input.data() : pending_.data();
    const size_t size = body_size(prefix);
    if (size == 0)
        return outcome::broken;
    message_out.header = decode_header(prefix);

    const size_t frame_size = header_size + size;
    if (whole_prefix && input.size() >= frame_size) {
        message_out.body = input.subspan(header_size, size);
        input = input.subspan(frame_size);
        return outcome::complete;
    }
    if (!collect(input, frame_size))
        return outcome::incomplete;
    handed_out_ = true;
    message_out.body = std::span(pending_).subspan(header_size);
    return outcome::complete;
}

void frame_reader::drop_handed_out()
{
    if (!handed_out_)
        return;
    handed_out_ = false;
    pending_.clear();
    if (pending_.capacity() > kept_capacity)
        pending_.shrink_to_fit();
}

// Moves input to pending_ until it has `size` bytes; false if the input ends before.
bool frame_reader::collect(std::span<uint8_t> &input, size_t size)
{
    const size_t taken = std::min(size - std::min(size, pending_.size()), input.size());
    pending_.insert(pending_.end(), input.begin(), input.begin() + static_cast<std::ptrdiff_t>(taken));
    input = input.subspan(taken);
    return pending_.size() >= size;
}

} // namespace ubusd
