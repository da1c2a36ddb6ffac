#include "ctl/field_row.h"

uint32_t field_row::number(const wan_config &record) const
{
    return field_number(record, {{}, kind, offset, size});
}

void field_row::set_number(wan_config &record, uint32_t value) const
{
    set_field_number(record, {{}, kind, offset, size}, value);
}

std::string_view field_row::text(const wan_config &record) const
{
    const char *const begin = reinterpret_cast<const char *>(&record) + offset;
    return {begin, strnlen(begin, size)};
}

void field_row::set_text(wan_config &record, std::string_view value) const
{
    text_ref(reinterpret_cast<char *>(&record) + offset, size).set(value);
}

void field_row::copy(const wan_config &from, wan_config &to) const
{
    memcpy(reinterpret_cast<char *>(&to) + offset, reinterpret_cast<const char *>(&from) + offset, size);
}

void field_row::write(json_writer &json, const wan_config &record) const
{
    if (is_text())
        json.text(name, text(record));
    else if (type == BLOBMSG_TYPE_INT8)
        json.flag(name, number(record) != 0);
    else
        json.number(name, number(record));
}
