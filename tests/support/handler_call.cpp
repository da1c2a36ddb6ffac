#include "support/handler_call.h"

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

#include <libubox/blobmsg_json.h>

#include "service/reply.h"

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

// Asks from another thread: this one may hold it.
bool is_free(fair_mutex &lock)
{
    const auto taken = std::make_shared<std::promise<void>>();
    std::thread([&lock, taken] {
        const scoped_lock hold(lock);
        taken->set_value();
    }).detach();
    return taken->get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
}

} // namespace

extern "C" int __wrap_ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *message)
{
    if (!caught_by)
        throw std::logic_error("a reply outside call_handler()");
    caught_by->replies++;
    caught_by->lock_free = is_free(handler_mutex);
    caught_by->reply = {};
    blob_attr *entry = nullptr;
    size_t rest = 0;
    blob_for_each_attr(entry, message, rest) caught_by->reply.parts.push_back(read_part(entry));
    return UBUS_STATUS_OK;
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
    ubus_request_data request = {};
    outcome.status = handler(nullptr, nullptr, &request, "", message);
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
