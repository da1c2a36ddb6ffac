#include "ctl/wan_list.h"

#include "store/reply_fields.h"

#include <iterator>

namespace {

constexpr size_t field_count = std::size(reply_fields);

struct field_policy {
    blobmsg_policy rows[field_count];
};

consteval field_policy make_policy()
{
    field_policy policy = {};
    for (size_t i = 0; i < field_count; i++)
        policy.rows[i] = {reply_fields[i].field.name, reply_fields[i].type};
    return policy;
}
constexpr field_policy policy = make_policy();

wan_config read_wan(blob_attr *table)
{
    wan_config record = {};
    blob_attr *values[field_count] = {};
    (void)blobmsg_parse(policy.rows, field_count, values, blobmsg_data(table),
                        static_cast<unsigned>(blobmsg_data_len(table)));
    for (size_t i = 0; i < field_count; i++) {
        if (!values[i])
            continue;
        const wan_field &field = reply_fields[i].field;
        if (field.kind == field_kind::text)
            set_field_text(record, field, blobmsg_get_string(values[i]));
        else
            set_field_number(record, field, static_cast<uint32_t>(blobmsg_cast_u64(values[i])));
    }
    return record;
}

} // namespace

bool wan_list::add(const wan_config &record)
{
    wan_config *const grown = static_cast<wan_config *>(realloc(rows_, (size_ + 1) * sizeof(wan_config)));
    if (!grown)
        return false;
    rows_ = grown;
    rows_[size_++] = record;
    return true;
}

int wan_list::ask(bus_connection &bus)
{
    size_ = 0;
    bus_answer reply;
    const int status = bus.call("korvel", "all", nullptr, reply);
    if (status != UBUS_STATUS_OK)
        return status;
    for (blob_attr *wan = nullptr; (wan = bus_next(reply.get(), wan, BLOBMSG_TYPE_TABLE)) != nullptr;)
        if (!add(read_wan(wan)))
            return UBUS_STATUS_UNKNOWN_ERROR;
    return UBUS_STATUS_OK;
}

exit_status wan_list::read(bus_connection &bus)
{
    const int status = ask(bus);
    if (status == UBUS_STATUS_OK)
        return exit_status::done;
    if (status == UBUS_STATUS_INVALID_ARGUMENT)
        return fail(exit_status::refused, "the daemon cannot read the WAN that stands last in wanList");
    return fail_call(status, "korvel", "all");
}

const wan_config *wan_list::find(uint8_t id) const
{
    for (const wan_config &record : *this)
        if (record.wanId == id)
            return &record;
    return nullptr;
}

void write_wan(json_writer &json, const wan_config &record, secrets which)
{
    constexpr wan_field password = WAN_FIELD(pppPwd);
    for (const reply_field &row : reply_fields) {
        if (which == secrets::hidden && row.field.offset == password.offset)
            continue;
        if (row.field.kind == field_kind::text) {
            const char *const text = field_text(record, row.field);
            json.text(row.field.name, {text, strnlen(text, row.field.size)});
        } else if (row.type == BLOBMSG_TYPE_INT8) {
            json.flag(row.field.name, field_number(record, row.field) != 0);
        } else {
            json.number(row.field.name, field_number(record, row.field));
        }
    }
}
