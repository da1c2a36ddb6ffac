#include "support/handler_call.h"

#include <poll.h>
#include <stdexcept>

#include <libubox/blobmsg_json.h>

#include "service/lanes.h"

namespace {

handled *caught_by = nullptr;

reply_part read_part(blob_attr *attribute)
{
    reply_part part;
    part.name = blobmsg_name(attribute);
    part.type = blobmsg_type(attribute);
    part.length = blobmsg_data_len(attribute);
    switch (part.type) {
    case BLOBMSG_TYPE_INT8:
        part.number = blobmsg_get_u8(attribute);
        break;
    case BLOBMSG_TYPE_INT32:
        part.number = blobmsg_get_u32(attribute);
        break;
    case BLOBMSG_TYPE_STRING:
        part.text = blobmsg_get_string(attribute);
        break;
    default: {
        blob_attr *entry = nullptr;
        size_t rest = 0;
        blobmsg_for_each_attr(entry, attribute, rest) part.parts.push_back(read_part(entry));
    }
    }
    return part;
}

bool deferred = false;
bool completed = false;

// Does what the event loop would do, until a deferred request is answered.
void wait_for_answer()
{
    while (!completed) {
        pollfd bell = {lanes_bell(), POLLIN, 0};
        constexpr int longest = 60000;
        if (poll(&bell, 1, longest) != 1)
            throw std::runtime_error("a deferred request is not answered");
        lanes_attend();
    }
}

void start_lanes()
{
    static const int error = lanes_start();
    if (error != 0)
        throw std::runtime_error("there are no lanes");
}

} // namespace

extern "C" int __wrap_ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *message)
{
    if (!caught_by)
        throw std::logic_error("a reply outside call_handler()");
    caught_by->replies++;
    caught_by->reply = {};
    blob_attr *entry = nullptr;
    size_t rest = 0;
    blob_for_each_attr(entry, message, rest) caught_by->reply.parts.push_back(read_part(entry));
    return UBUS_STATUS_OK;
}

extern "C" void __wrap_ubus_defer_request(ubus_context *, ubus_request_data *request,
                                          ubus_request_data *deferred_out)
{
    *deferred_out = *request;
    deferred = true;
}

extern "C" void __wrap_ubus_complete_deferred_request(ubus_context *, ubus_request_data *, int status)
{
    if (!caught_by)
        throw std::logic_error("an answer outside call_handler()");
    caught_by->status = status;
    completed = true;
}

const reply_part &reply_part::at(const std::string &part_name) const
{
    for (const reply_part &part : parts)
        if (part.name == part_name)
            return part;
    throw std::out_of_range("the reply has no " + part_name);
}

std::vector<std::string> reply_part::names() const
{
    std::vector<std::string> all;
    for (const reply_part &part : parts)
        all.push_back(part.name);
    return all;
}

void PrintTo(const handled &outcome, std::ostream *out)
{
    *out << "status " << outcome.status << ", " << outcome.replies << " replies:";
    for (const reply_part &part : outcome.reply.parts)
        *out << ' ' << part.name << '=' << (part.text.empty() ? std::to_string(part.number) : part.text);
}

handled call_handler(ubus_handler_t handler, blob_attr *message)
{
    handled outcome;
    caught_by = &outcome;
    start_lanes();
    deferred = completed = false;
    ubus_request_data request = {};
    outcome.status = handler(nullptr, nullptr, &request, "", message);
    if (deferred)
        wait_for_answer();
    caught_by = nullptr;
    return outcome;
}

handled call_handler(ubus_handler_t handler, const std::string &json)
{
    blob_buf message = {};
    blob_buf_init(&message, 0);
    if (!blobmsg_add_json_from_string(&message, json.c_str()))
        throw std::invalid_argument("no JSON: " + json);
    handled outcome = call_handler(handler, message.head);
    blob_buf_free(&message);
    return outcome;
}
