// Events reach their listeners as calls with peer 0, whose method is the event's name.
#include "events.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "message_buffer.h"

namespace ubusd {

namespace {

constexpr std::string_view reserved_prefix = "ubus.";
// What a pattern is charged beside its text.
constexpr size_t pattern_overhead = 64;

enum { pattern_object, pattern_text, pattern_fields };
constexpr blobmsg_policy pattern_policy[pattern_fields] = {
    {.name = "object", .type = BLOBMSG_TYPE_INT32},
    {.name = "pattern", .type = BLOBMSG_TYPE_STRING},
};

enum { send_id, send_data, send_fields };
constexpr blobmsg_policy send_policy[send_fields] = {
    {.name = "id", .type = BLOBMSG_TYPE_STRING},
    {.name = "data", .type = BLOBMSG_TYPE_TABLE},
};

// The arguments of a call by policy; false unless all of them are there.
template <size_t N>
bool read_arguments(const request &request, const blobmsg_policy (&policy)[N],
                    std::array<blob_attr *, N> &found)
{
    if (!request.has(UBUS_ATTR_DATA))
        return false;
    blob_attr *const data = request.field(UBUS_ATTR_DATA);
    (void)blobmsg_parse(policy, static_cast<int>(N), found.data(), blob_data(data),
                        static_cast<unsigned>(blob_len(data)));
    return std::all_of(found.begin(), found.end(), [](const blob_attr *attr) { return attr; });
}

bool wants(const object &listener, std::string_view event)
{
    return std::any_of(listener.patterns.begin(), listener.patterns.end(),
                       [event](const std::string &pattern) { return matches(pattern, event); });
}

} // namespace

int events::handle(const request &request)
{
    const std::string_view method = request.text(UBUS_ATTR_METHOD);
    if (method == "register")
        return add_pattern(request);
    if (method == "send")
        return send(request);
    return UBUS_STATUS_INVALID_COMMAND;
}

int events::add_pattern(const request &request)
{
    std::array<blob_attr *, pattern_fields> arguments{};
    if (!read_arguments(request, pattern_policy, arguments))
        return UBUS_STATUS_INVALID_ARGUMENT;

    const uint32_t id = blobmsg_get_u32(arguments[pattern_object]);
    if (id < UBUS_FIRST_CLIENT_ID)
        return UBUS_STATUS_PERMISSION_DENIED;
    object *const listener = objects_.find(id);
    if (!listener)
        return UBUS_STATUS_NOT_FOUND;
    if (listener->owner != &request.sender)
        return UBUS_STATUS_PERMISSION_DENIED;

    const std::string_view pattern = blobmsg_get_string(arguments[pattern_text]);
    if (pattern.empty() || !access_.may_listen(request.sender.who(), pattern))
        return UBUS_STATUS_PERMISSION_DENIED;
    const size_t footprint = pattern_overhead + pattern.size();
    if (!request.sender.reserve(footprint))
        return UBUS_STATUS_NO_MEMORY;
    listener->footprint += footprint;
    if (listener->patterns.empty())
        listeners_.push_back(listener);
    listener->patterns.emplace_back(pattern);
    return UBUS_STATUS_OK;
}

int events::send(const request &request)
{
    std::array<blob_attr *, send_fields> arguments{};
    if (!read_arguments(request, send_policy, arguments))
        return UBUS_STATUS_INVALID_ARGUMENT;

    const char *const id = blobmsg_get_string(arguments[send_id]);
    if (std::string_view(id).starts_with(reserved_prefix) || !access_.may_send(request.sender.who(), id))
        return UBUS_STATUS_PERMISSION_DENIED;
    blob_attr *const data = arguments[send_data];
    deliver(id, {static_cast<const uint8_t *>(blobmsg_data(data)), blobmsg_data_len(data)}, &request.sender);
    return UBUS_STATUS_OK;
}

void events::announce(const char *event, const object &subject)
{
    if (!subject.path || listeners_.empty())
        return;
    blob_buf data{};
    blob_buf_init(&data, 0);
    blobmsg_add_u32(&data, "id", subject.id);
    blobmsg_add_string(&data, "path", subject.path->c_str());
    deliver(event, body_of(data).subspan(sizeof(blob_attr)), nullptr);
    blob_buf_free(&data);
}

void events::forget(object &gone)
{
    if (!gone.patterns.empty())
        std::erase(listeners_, &gone);
}

void events::deliver(const char *event, std::span<const uint8_t> data, const client *except)
{
    const uint16_t sequence = sequence_++;
    for (const object *listener : listeners_) {
        if (listener->owner == except || !wants(*listener, event))
            continue;
        message_buffer call;
        call.number(UBUS_ATTR_OBJID, listener->id).text(UBUS_ATTR_METHOD, event).bytes(UBUS_ATTR_DATA, data);
        listener->owner->send({.type = UBUS_MSG_INVOKE, .seq = sequence, .peer = 0}, call.body());
    }
}

} // namespace ubusd
