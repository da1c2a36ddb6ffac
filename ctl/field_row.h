// The rows of the daemon's tables of fields, with the names in them instead of pointers to them; see
// ctl/packed_texts.h.
#pragma once

#include "base/bus_headers.h"
#include "ctl/output.h"
#include "wan/wan_fields.h"

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

// The fields of a table whose rows have a `field` and a `type`, in its order.
template <typename row_type, size_t count>
consteval std::array<field_row, count> field_rows(const row_type (&rows)[count])
{
    std::array<field_row, count> made = {};
    for (size_t i = 0; i < count; i++) {
        const wan_field &field = rows[i].field;
        made[i] = {{}, field.kind, static_cast<uint8_t>(rows[i].type), field.offset, field.size};
        const std::string_view name(field.name);
        name.copy(made[i].name, sizeof(made[i].name) - 1); // one that is too long
        if (made[i].name != name)                          // does not get past the compiler
            __builtin_unreachable();
    }
    return made;
}
