#include "ctl/wan_list.h"

#include "ctl/field_row.h"

namespace {

wan_config read_wan(blob_attr *table)
{
    wan_config record = {};
    for (const field_row &row : field_rows) {
        blob_attr *const value = bus_member(table, row.name, static_cast<enum blobmsg_type>(row.type));
        if (value && row.is_text())
            row.set_text(record, blobmsg_get_string(value));
        else if (value)
            row.set_number(record, static_cast<uint32_t>(blobmsg_cast_u64(value)));
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
    constexpr size_t password = offsetof(wan_config, pppPwd);
    for (const field_row &row : field_rows)
        if (which == secrets::shown || row.offset != password)
            row.write(json, record);
}
