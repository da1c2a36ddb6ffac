// A field of the record described once, from the struct itself, so that name, width and limit cannot drift
// apart.
#pragma once

#include "base/text.h"
#include "wan/wan_config.h"

#include <cstddef>
#include <type_traits>

enum class field_kind : uint8_t { number8, number16, number32, text };

// In tables names are arrays: a pointer takes as much again, and a relocation three times as much.
struct wan_field {
    char name[16];
    field_kind kind;
    uint16_t offset;
    uint16_t size; // bytes in the record
};

template <typename member_type> consteval field_kind kind_of()
{
    if (std::is_array_v<member_type>)
        return field_kind::text;
    return sizeof(member_type) == 1   ? field_kind::number8
           : sizeof(member_type) == 2 ? field_kind::number16
                                      : field_kind::number32;
}

#define WAN_FIELD(member)                                                                                    \
    wan_field                                                                                                \
    {                                                                                                        \
#member, kind_of < decltype(wan_config::member)>(), offsetof(wan_config, member),                    \
            sizeof(wan_config::member)                                                                       \
    }

// A number field's value, widened without sign.
uint32_t field_number(const wan_config &config, const wan_field &field);
// Stores the low bits that the field holds.
void set_field_number(wan_config &config, const wan_field &field, uint32_t value);
// A text field's bytes; field.size of them, possibly without a terminator.
const char *field_text(const wan_config &config, const wan_field &field);
// The text field itself, for writing.
text_ref field_ref(wan_config &config, const wan_field &field);
// Stores a text as strncpy does: padded with NULs, cut at the field's size.
void set_field_text(wan_config &config, const wan_field &field, const char *value);
