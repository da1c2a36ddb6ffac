// The daemon's table of a WAN's fields, with the names in it instead of pointers to them; see
// ctl/packed_texts.h.
#pragma once

#include "base/bus_headers.h"
#include "ctl/output.h"
#include "store/reply_fields.h"

#include <array>
#include <string_view>

struct field_row {
    char name[16];
    field_kind kind;
    uint8_t type; // on the bus: a blobmsg_type
    uint16_t offset, size;

    bool is_text() const { return kind == field_kind::text; }
    uint32_t number(const wan_config &record) const;
    void set_number(wan_config &record, uint32_t value) const;
    // Up to its terminator or its end.
    std::string_view text(const wan_config &record) const;
    // Cut at the field's size.
    void set_text(wan_config &record, std::string_view value) const;
    void copy(const wan_config &from, wan_config &to) const;
    // As a member of the object that is open.
    void write(json_writer &json, const wan_config &record) const;
};

// Of every field of a WAN its row, in the order in which replies have them.
inline constexpr auto field_rows = [] {
    std::array<field_row, std::size(reply_fields)> made = {};
    for (size_t i = 0; i < made.size(); i++) {
        const wan_field &field = reply_fields[i].field;
        made[i] = {{}, field.kind, static_cast<uint8_t>(reply_fields[i].type), field.offset, field.size};
        const std::string_view name(field.name);
        name.copy(made[i].name, sizeof(made[i].name) - 1); // one that is too long
        if (made[i].name != name)                          // does not get past the compiler
            __builtin_unreachable();
    }
    return made;
}();

// Where in it the row of a field is that has this type on the bus.
constexpr uint8_t field_position(const wan_field &field, enum blobmsg_type type)
{
    for (size_t i = 0; i < field_rows.size(); i++)
        if (field_rows[i].offset == field.offset && field_rows[i].type == type)
            return static_cast<uint8_t>(i);
    __builtin_unreachable(); // replies have no such field
}
