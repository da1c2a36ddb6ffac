#include "store/query.h"

#include "base/heap.h"
#include "base/log.h"
#include "service/policies.h"
#include "service/request.h"
#include "status/ifstatus.h"
#include "store/id_list.h"
#include "store/read_config.h"
#include "store/reply_fields.h"
#include "store/section_index.h"
#include "wan/wan_names.h"

#include <span>

namespace {

// The greatest message that the bus takes; its daemon disconnects a client that sends a longer one.
constexpr unsigned most_reply_bytes = 1048576;

bool add_field(method_reply &reply, const reply_field &row, const wan_config &config)
{
    if (row.type != BLOBMSG_TYPE_STRING)
        return reply.add_number(row.field.name, row.type, field_number(config, row.field));
    const char *const text = field_text(config, row.field);
    return reply.add_text(row.field.name, {text, strnlen(text, row.field.size)});
}

bool add_fields(method_reply &reply, const wan_config &config, reply_use method)
{
    bool added = true;
    for (const reply_field &row : reply_fields)
        if (row.use & method)
            added = add_field(reply, row, config) && added;
    return added;
}

bool add_tables(method_reply &reply, std::span<const wan_config> records)
{
    for (const wan_config &record : records) {
        void *const table = blobmsg_open_nested(reply.buffer(), wan_names(record.wanId).id, false);
        if (!table || !add_fields(reply, record, in_all))
            return false;
        blob_nest_end(reply.buffer(), table);
    }
    return blob_pad_len(reply.buffer()->head) < most_reply_bytes - 256; // room for the message around it
}

// The WANs of an `all`. Their records are in the order of the list and its length, and so are the readings.
struct listed_wans {
    size_t count = 0;
    heap_ptr<wan_config[]> records;
    heap_ptr<wan_reading[]> readings;
    size_t listed = 0; // how many readings there are: none, where the list is a plain option, which counts
                       // as one all the same

    bool has_memory() const { return records && readings; }
};

// Reads what is configured of the listed WANs, all of it from one state, and has their states asked for.
listed_wans read_configured(ifstatus_reader &states)
{
    const config_snapshot snapshot;
    const uci_loaded network("network");
    listed_wans wans;
    wans.count = wan_listed_count(network);
    wans.records.reset(static_cast<wan_config *>(calloc(wans.count, sizeof(wan_config))));
    wans.readings.reset(static_cast<wan_reading *>(calloc(wans.count, sizeof(wan_reading))));
    uci_list *const entries = wan_listed_ids(network);
    if (!entries || !wans.has_memory())
        return wans;
    const wan_section_index sections(network);
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        wan_reading &reading = wans.readings[wans.listed];
        reading.record = &wans.records[wans.listed++];
        reading.record->wanId = static_cast<uint8_t>(text_number(entry->name));
        wan_read_configured(network, sections.of(reading.record->wanId), &reading);
    }
    states.ask({wans.readings.get(), wans.listed}); // giving back what was loaded takes a while
    return wans;
}

// Returns -1 when the last WAN cannot be read; an earlier one is only logged and keeps what was read of it.
int finish_readings(std::span<const wan_reading> readings, ifstatus_reader &states)
{
    int result = 0;
    for (const wan_reading &reading : readings) {
        result = wan_finish_reading(states, reading);
        if (result != 0)
            log_error("Failed to get wan_%u data: %d", reading.record->wanId, result);
    }
    return result;
}

int say_get_failed(request &self, int bus_status)
{
    (void)self.reply.say(-1, "korvel get ERR!");
    return bus_status;
}

int get_one(request &self)
{
    if (wan_read_config(&self.wan, self.asked) != 0)
        return say_get_failed(self, UBUS_STATUS_INVALID_ARGUMENT);
    if (self.reply.begin() && add_fields(self.reply, self.wan, in_get))
        return UBUS_STATUS_OK;
    log_error("Failed to allocate a reply");
    return say_get_failed(self, UBUS_STATUS_UNKNOWN_ERROR);
}

int refuse_get(request &self)
{
    return say_get_failed(self, UBUS_STATUS_UNKNOWN_ERROR);
}

int say_no_memory(request &self)
{
    (void)self.reply.say(-1, "korvel malloc ERR!");
    return UBUS_STATUS_UNKNOWN_ERROR;
}

int get_all(request &self)
{
    ifstatus_reader states(self.asked);
    const listed_wans wans = read_configured(states);
    if (wans.count == 0)
        return UBUS_STATUS_OK;
    if (finish_readings({wans.readings.get(), wans.listed}, states) != 0) {
        (void)self.reply.say(-1, "korvel read all WAN ERR!");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!wans.has_memory() || !self.reply.begin() ||
        !add_tables(self.reply, {wans.records.get(), wans.count}))
        return say_no_memory(self);
    return UBUS_STATUS_OK;
}

constexpr method_kind query_of_one = {.work = get_one, .refuse = refuse_get};
constexpr method_kind query_of_all = {.work = get_all, .refuse = say_no_memory};

} // namespace

int wan_handle_get(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *message)
{
    blob_attr *arguments[1];
    parse_request(wan_id_policy.rows, message, arguments);
    if (!arguments[arg_wan_id]) {
        (void)reply_at_once(bus, request, -1, "korvel get ERR! Invalid WAN ID.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wan_config asked = {};
    asked.wanId = static_cast<uint8_t>(blobmsg_get_u32(arguments[arg_wan_id]));
    return request_defer(query_of_one, lane_name::queries, bus, request, asked);
}

int wan_handle_all(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    return request_defer(query_of_all, lane_name::queries, bus, request, {});
}
