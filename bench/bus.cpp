#include "bus.h"

#include <libubox/blobmsg_json.h>

#include <stdexcept>
#include <unistd.h>

namespace {

constexpr int most_tries = 60000; // a millisecond apart
constexpr int call_timeout_ms = 60000;

} // namespace

bus::bus()
{
    for (int i = 0; i < most_tries && !context_; i++) {
        context_ = ubus_connect(nullptr);
        if (!context_)
            (void)usleep(1000);
    }
    if (!context_)
        throw std::runtime_error("there is no bus");
}

bus::~bus()
{
    blob_buf_free(&arguments_);
    ubus_free(context_);
}

bool bus::has(const char *object) const
{
    uint32_t id = 0;
    return ubus_lookup_id(context_, object, &id) == UBUS_STATUS_OK;
}

void bus::await(const char *object, bool there) const
{
    for (int i = 0; i < most_tries; i++) {
        if (has(object) == there)
            return;
        (void)usleep(1000);
    }
    throw std::runtime_error(std::string(object) + (there ? " does not come" : " does not go"));
}

uint32_t bus::lookup(const char *object)
{
    const auto found = known_.find(object);
    if (found != known_.end())
        return found->second;
    uint32_t id = 0;
    if (ubus_lookup_id(context_, object, &id) != UBUS_STATUS_OK)
        throw std::runtime_error(std::string(object) + " is not on the bus");
    known_.emplace(object, id);
    return id;
}

namespace {

// Keeps the "info" of a reply that tells of a failure by its "status".
void note_failure(ubus_request *request, int, blob_attr *message)
{
    enum { status, info, count };
    constexpr blobmsg_policy policy[count] = {{"status", BLOBMSG_TYPE_INT32}, {"info", BLOBMSG_TYPE_STRING}};
    blob_attr *found[count];
    blobmsg_parse(policy, count, found, blob_data(message), static_cast<unsigned>(blob_len(message)));
    if (found[status] && found[info] && static_cast<int>(blobmsg_get_u32(found[status])) < 0)
        *static_cast<std::string *>(request->priv) = blobmsg_get_string(found[info]);
}

} // namespace

int bus::call(const char *object, const char *method, const std::string &json, std::string *failure_out)
{
    blob_buf_init(&arguments_, 0);
    if (!blobmsg_add_json_from_string(&arguments_, json.c_str()))
        throw std::runtime_error("no arguments: " + json);
    return ubus_invoke(context_, lookup(object), method, arguments_.head,
                       failure_out ? note_failure : nullptr, failure_out, call_timeout_ms);
}

void bus::must_call(const char *object, const char *method, const std::string &json)
{
    std::string failure;
    const int status = call(object, method, json, &failure);
    if (status != UBUS_STATUS_OK || !failure.empty())
        throw std::runtime_error(std::string(object) + " " + method + " " + json + ": " +
                                 ubus_strerror(status) + " " + failure);
}
