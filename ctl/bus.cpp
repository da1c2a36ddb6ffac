#include "ctl/bus.h"

#include "ctl/option_reader.h"
#include "ctl/output.h"

#include <csignal>
#include <cstring>
#include <iterator>

namespace {

void keep_first_reply(ubus_request *request, int, blob_attr *message)
{
    bus_answer &reply = *static_cast<bus_answer *>(request->priv);
    if (!reply && message)
        reply.reset(blob_memdup(message));
}

} // namespace

blob_attr *bus_member(blob_attr *table, const char *name, enum blobmsg_type type)
{
    if (!table)
        return nullptr;
    const blobmsg_policy policy[] = {{name, type}};
    blob_attr *found = nullptr;
    (void)blobmsg_parse(policy, 1, &found, blobmsg_data(table),
                        static_cast<unsigned>(blobmsg_data_len(table)));
    return found;
}

const char *bus_text(blob_attr *table, const char *name, const char *fallback)
{
    blob_attr *const member = bus_member(table, name, BLOBMSG_TYPE_STRING);
    return member ? blobmsg_get_string(member) : fallback;
}

int64_t bus_number(blob_attr *table, const char *name, int64_t fallback)
{
    for (const enum blobmsg_type type :
         {BLOBMSG_TYPE_INT32, BLOBMSG_TYPE_INT64, BLOBMSG_TYPE_INT16, BLOBMSG_TYPE_INT8})
        if (blob_attr *const member = bus_member(table, name, type))
            return blobmsg_cast_s64(member);
    return fallback;
}

blob_attr *bus_next(blob_attr *list, blob_attr *before, enum blobmsg_type type)
{
    blob_attr *entry = nullptr;
    size_t left = 0;
    blobmsg_for_each_attr(entry, list, left)
    {
        if (before)
            before = entry == before ? nullptr : before;
        else if (blobmsg_check_attr(entry, false) && blobmsg_type(entry) == type)
            return entry;
    }
    return nullptr;
}

ubus_context *connect_to_bus()
{
    constexpr int ending[] = {SIGINT, SIGTERM};
    struct sigaction before[std::size(ending)] = {};
    for (size_t i = 0; i < std::size(ending); i++)
        (void)sigaction(ending[i], nullptr, &before[i]);
    uloop_handle_sigchld = false; // children are waited for where they are started
    ubus_context *const bus = ubus_connect(nullptr);
    for (size_t i = 0; i < std::size(ending); i++)
        (void)sigaction(ending[i], &before[i], nullptr);
    return bus;
}

bool bus_connection::connect()
{
    if (!bus_)
        bus_ = connect_to_bus();
    return bus_ != nullptr;
}

bool bus_connection::has(const char *object)
{
    uint32_t id = 0; // an object that this user may not see is found without one
    return connect() && ubus_lookup_id(bus_, object, &id) == UBUS_STATUS_OK && id != 0;
}

int bus_connection::call(const char *object, const char *method, blob_attr *message, bus_answer &reply_out)
{
    reply_out.reset();
    if (!connect())
        return UBUS_STATUS_CONNECTION_FAILED;
    uint32_t id = 0;
    const int found = ubus_lookup_id(bus_, object, &id);
    if (found != UBUS_STATUS_OK)
        return found;
    if (id == 0)
        return UBUS_STATUS_PERMISSION_DENIED;
    const bus_message empty;
    return ubus_invoke(bus_, id, method, message ? message : empty.head(), keep_first_reply, &reply_out,
                       call_timeout());
}

exit_status fail_call(int bus_status, const char *object, const char *method)
{
    switch (bus_status) {
    case UBUS_STATUS_CONNECTION_FAILED:
        return fail(exit_status::no_daemon,
                    "there is no bus, or it went away; is this a gateway, and does ubusd run?");
    case UBUS_STATUS_NOT_FOUND:
        return fail(exit_status::no_daemon, "%s is not on the bus; start it: /etc/init.d/korvel start",
                    object);
    case UBUS_STATUS_PERMISSION_DENIED:
        return fail(
            exit_status::denied,
            "this user may not call %s %s; be root, or of the group korvel-operator or korvel-provisioning",
            object, method);
    case UBUS_STATUS_TIMEOUT:
        return fail(exit_status::no_answer, "%s %s did not answer within %d s", object, method,
                    call_timeout() / 1000);
    default:
        return fail(exit_status::refused, "%s %s failed: %s", object, method, ubus_strerror(bus_status));
    }
}
