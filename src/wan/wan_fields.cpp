#include "wan/wan_fields.h"

namespace {

char *bytes(wan_config &config, const wan_field &field)
{
    return reinterpret_cast<char *>(&config) + field.offset;
}

const char *bytes(const wan_config &config, const wan_field &field)
{
    return reinterpret_cast<const char *>(&config) + field.offset;
}

template <typename number> number load(const char *from)
{
    number value;
    memcpy(&value, from, sizeof(value));
    return value;
}

template <typename number> void store(char *to, uint32_t value)
{
    const number narrow = static_cast<number>(value);
    memcpy(to, &narrow, sizeof(narrow));
}

} // namespace

uint32_t field_number(const wan_config &config, const wan_field &field)
{
    const char *const from = bytes(config, field);
    switch (field.kind) {
    case field_kind::number8:
        return load<uint8_t>(from);
    case field_kind::number16:
        return load<uint16_t>(from);
    default:
        return load<uint32_t>(from);
    }
}

void set_field_number(wan_config &config, const wan_field &field, uint32_t value)
{
    char *const to = bytes(config, field);
    switch (field.kind) {
    case field_kind::number8:
        return store<uint8_t>(to, value);
    case field_kind::number16:
        return store<uint16_t>(to, value);
    default:
        return store<uint32_t>(to, value);
    }
}

const char *field_text(const wan_config &config, const wan_field &field)
{
    return bytes(config, field);
}

text_ref field_ref(wan_config &config, const wan_field &field)
{
    return {bytes(config, field), field.size};
}

void set_field_text(wan_config &config, const wan_field &field, const char *value)
{
    field_ref(config, field).set(value);
}
