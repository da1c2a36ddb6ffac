// A message from a client while it is being handled.
#pragma once

#include <optional>
#include <string>

#include "client.h"
#include "frame.h"

namespace ubusd {

// Handlers return the status for the sender, or this when the bus has nothing to say (any more).
constexpr int no_status = -1;

struct request {
    client &sender;
    const frame &message;
    frame_fields fields;

    const frame_header &header() const { return message.header; }
    bool has(int field) const { return fields[static_cast<size_t>(field)]; }

    // For fields that are there only.
    blob_attr *field(int field) const { return fields[static_cast<size_t>(field)]; }
    uint32_t number(int id) const { return blob_get_u32(field(id)); }
    const char *text(int id) const { return static_cast<const char *>(blob_data(field(id))); }
    std::span<const uint8_t> bytes(int id) const
    {
        return {static_cast<const uint8_t *>(blob_data(field(id))), blob_len(field(id))};
    }
    bool flag(int id) const { return has(id) && blob_get_u8(field(id)); }

    // Sends one DATA message as a part of the answer.
    void answer(std::span<const uint8_t> body) const
    {
        sender.send({.type = UBUS_MSG_DATA, .seq = header().seq, .peer = header().peer}, body);
    }
};

} // namespace ubusd
