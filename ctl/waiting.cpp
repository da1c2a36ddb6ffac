#include "ctl/waiting.h"

#include "base/text.h"

namespace {

template <typename callable> void each_change(blob_attr *entry, callable body)
{
    blob_attr *const list = bus_member(entry, "changes", BLOBMSG_TYPE_ARRAY);
    for (blob_attr *change = nullptr; (change = bus_next(list, change, BLOBMSG_TYPE_STRING)) != nullptr;)
        body(blobmsg_get_string(change));
}

} // namespace

bool waiting_changes::ask(bus_connection &bus)
{
    return bus.has("korvel.state") && bus.call("korvel.state", "pending", nullptr, reply_) == UBUS_STATUS_OK;
}

changed_words::changed_words(blob_attr *entry)
{
    size_t used = 0;
    text[0] = '\0';
    each_change(entry, [&](const char *change) {
        const text_ref rest(text + used, sizeof(text) - used);
        (void)rest.format("%s%s", used > 0 ? ", " : "", change);
        used += strlen(rest.data);
    });
    if (used + 1 == sizeof(text))
        memcpy(text + used - 3, "...", 3);
}

void write_waiting(json_writer &json, blob_attr *entry)
{
    json.open_object();
    json.number("wanId", bus_number(entry, "wanId"));
    json.text("wanName", bus_text(entry, "wanName"));
    json.number("seconds", bus_number(entry, "seconds"));
    json.text("asked", bus_text(entry, "asked"));
    json.open_array("changes");
    each_change(entry, [&](const char *change) { json.text(nullptr, change); });
    json.close_array();
    json.close_object();
}
