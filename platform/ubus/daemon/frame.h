// A bus message on the wire: an 8-byte header, then one attribute (the head) whose children are the message's
// fields. Cuts a byte stream into such frames and reads their fields.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "bus_headers.h"

namespace ubusd {

constexpr size_t header_size = sizeof(ubus_msghdr);

// In host byte order.
struct frame_header {
    uint8_t version = 0;
    uint8_t type = 0;
    uint16_t seq = 0;
    uint32_t peer = 0;
};

struct frame {
    frame_header header;
    std::span<uint8_t> body; // the head attribute, raw length bytes
};

// The fields of a message by attribute id; nullptr where absent or malformed. They point into the frame.
using frame_fields = std::array<blob_attr *, UBUS_ATTR_MAX>;

std::array<uint8_t, header_size> encode_header(const frame_header &header);

// A malformed field counts as absent; of a repeated one the last valid counts.
frame_fields read_fields(const frame &message);

// The head of a finished buffer as bytes to send. They stay valid until the buffer is used again.
std::span<const uint8_t> body_of(const blob_buf &buffer);

// Cuts a stream that arrives in pieces of any size into frames. Memory is taken as bytes arrive, never by
// what a header announces.
class frame_reader {
public:
    enum class outcome {
        incomplete, // all input is taken; more is needed
        complete,   // message_out holds a frame, input the bytes after it
        broken,     // the head has an impossible length: nothing sensible can follow
    };

    // Takes bytes from the front of input. A frame is valid until the next call, and as long as the input's
    // memory.
    outcome next(std::span<uint8_t> &input, frame &message_out);

    // Whether the next byte taken begins a frame.
    bool at_boundary() const { return pending_.empty() || handed_out_; }

private:
    void drop_handed_out();
    bool collect(std::span<uint8_t> &input, size_t size);

    std::vector<uint8_t> pending_; // the beginning of a frame, empty between frames
    bool handed_out_ = false;      // pending_ is the frame that the last call returned
};

} // namespace ubusd
