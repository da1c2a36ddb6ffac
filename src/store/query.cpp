#include "store/query.h"

#include "base/heap.h"
#include "base/log.h"
#include "service/policies.h"
#include "service/reply.h"
#include "store/id_list.h"
#include "store/read_config.h"
#include "store/reply_fields.h"
#include "wan/wan_names.h"

#include <span>

namespace {

// The greatest message that the bus takes; its daemon disconnects a client that sends a longer one.
constexpr unsigned most_reply_bytes = 1048576;

bool add_field(const reply_field &row, const wan_config &config)
{
    if (row.type != BLOBMSG_TYPE_STRING)
        return reply_add_number(row.field.name, row.type, field_number(config, row.field));
    const char *const text = field_text(config, row.field);
    return reply_add_text(row.field.name, {text, strnlen(text, row.field.size)});
}

bool add_fields(const wan_config &config, reply_use method)
{
    bool added = true;
    for (const reply_field &row : reply_fields)
        if (row.use & method)
            added = add_field(row, config) && added;
    return added;
}

bool add_tables(std::span<const wan_config> records)
{
    for (const wan_config &record : records) {
        void *const table = blobmsg_open_nested(&reply_buffer, wan_names(record.wanId).id, false);
        if (!table || !add_fields(record, in_all))
            return false;
        blob_nest_end(&reply_buffer, table);
    }
    return blob_pad_len(reply_buffer.head) < most_reply_bytes - 256; // room for the message around it
}

// Reads the listed WANs into the records, from the front. Returns -1 when the list's last WAN cannot be read;
// an earlier one is only logged and keeps what was read of it.
int read_listed(const uci_loaded &network, std::span<wan_config> records)
{
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return 0;
    int result = 0;
    size_t index = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        if (index == records.size())
            break;
        wan_config &record = records[index++];
        record.wanId = static_cast<uint8_t>(text_number(entry->name));
        result = wan_read_config(network, &record);
        if (result != 0)
            log_error("Failed to get wan_%u data: %d", record.wanId, result);
    }
    return result;
}

} // namespace

int wan_handle_get(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *message)
{
    blob_attr *arguments[1];
    parse_request(wan_id_policy.rows, message, arguments);
    blob_attr *const wan_id = arguments[arg_wan_id];
    handler_reply reply;
    if (!wan_id) {
        reply.send_result(bus, request, -1, "korvel get ERR! Invalid WAN ID.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wan_config record = {};
    record.wanId = static_cast<uint8_t>(blobmsg_get_u32(wan_id));
    if (wan_read_config(&record) != 0) {
        reply.send_result(bus, request, -1, "korvel get ERR!");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!add_fields(record, in_get))
        log_error("Failed to allocate a reply");
    reply.send(bus, request);
    return UBUS_STATUS_OK;
}

int wan_handle_all(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    const uci_loaded network("network"); // all of the answer is from this one state
    const size_t wans = wan_listed_count(network);
    if (wans == 0)
        return UBUS_STATUS_OK;
    const heap_ptr<wan_config[]> records(static_cast<wan_config *>(calloc(wans, sizeof(wan_config))));
    const int result = records ? read_listed(network, {records.get(), wans}) : 0;

    handler_reply reply;
    if (result != 0) {
        reply.send_result(bus, request, -1, "korvel read all WAN ERR!");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!records || !add_tables({records.get(), wans})) {
        reply.restart();
        reply.send_result(bus, request, -1, "korvel malloc ERR!");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    reply.send(bus, request);
    return UBUS_STATUS_OK;
}
