#include "create/parse_args.h"

#include "service/policies.h"

#include <cstring>

static_assert(record_arg_count <= 64, "one bit each");

namespace {

bool store_text(const arg_rule &rule, blob_attr *attribute, wan_config *config)
{
    const char *const value = blobmsg_get_string(attribute);
    if (strlen(value) >= rule.field.size)
        return false;
    set_field_text(*config, rule.field, value);
    return true;
}

bool store_number(const arg_rule &rule, uint32_t value, wan_config *config)
{
    wan_config cut = {};
    set_field_number(cut, rule.field, value);
    const uint32_t kept = field_number(cut, rule.field);
    if (kept < rule.low || kept > rule.high)
        return false;
    set_field_number(*config, rule.field, kept);
    return true;
}

bool store_arg(const arg_rule &rule, blob_attr *attribute, wan_config *config)
{
    switch (rule.type) {
    case BLOBMSG_TYPE_STRING:
        return store_text(rule, attribute, config);
    case BLOBMSG_TYPE_INT8:
        return store_number(rule, blobmsg_get_u8(attribute), config);
    default:
        return store_number(rule, blobmsg_get_u32(attribute), config);
    }
}

} // namespace

int wan_parse_args(blob_attr *const attributes[], wan_config *config, text_ref name_out)
{
    for (size_t i = 0; i < record_arg_count; i++) {
        blob_attr *const attribute = attributes[first_record_arg + i];
        if (attribute && !store_arg(arg_rules[i], attribute, config)) {
            name_out.set(arg_rules[i].display);
            return -1;
        }
    }
    return 0;
}

uint64_t wan_given_args(blob_attr *const attributes[])
{
    uint64_t given = 0;
    for (size_t i = 0; i < record_arg_count; i++)
        if (attributes[first_record_arg + i])
            given |= uint64_t{1} << i;
    return given;
}

void wan_overlay_args(uint64_t arguments, const wan_config &from, wan_config *config)
{
    for (size_t i = 0; i < record_arg_count; i++) {
        const wan_field &field = arg_rules[i].field;
        if (arguments >> i & 1)
            memcpy(reinterpret_cast<char *>(config) + field.offset,
                   reinterpret_cast<const char *>(&from) + field.offset, field.size);
    }
}
