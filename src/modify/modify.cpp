#include "modify/modify.h"

#include "base/text.h"
#include "create/conflicts.h"
#include "create/parse_args.h"
#include "modify/apply.h"
#include "modify/pending.h"
#include "service/policies.h"
#include "service/reply.h"

namespace {

int apply_at_once(ubus_context *bus, ubus_request_data *request, blob_attr *const attributes[],
                  uint8_t wan_id, handler_reply &reply)
{
    wan_config config = {};
    config.wanId = wan_id;
    char refused[display_name_size] = {};
    if (wan_parse_args(attributes, &config, refused) != 0)
        return reply.send_result(bus, request, -1, "korvel modify ERR! Invalid %s.", refused);
    int result = 0;
    {
        const scoped_lock lock(handler_mutex);
        result = wan_modify_apply(&config);
    }
    // Deliberate: only conflicts are reported; clients have never been told of other failures.
    if (result == conflict_vlan || result == conflict_port_bound || result == conflict_port_required)
        return reply.send_result(bus, request, result, "korvel modify ERR!");
    return reply.send_result(bus, request, 0, "korvel modify OK.");
}

int queue(ubus_context *bus, ubus_request_data *request, blob_attr *const attributes[], uint8_t wan_id,
          uint32_t wait, handler_reply &reply)
{
    char refused[display_name_size] = {};
    switch (wan_modify_later(wan_id, wait, attributes, refused)) {
    case modify_queued:
        return reply.send_result(bus, request, 0, "korvel modify OK.");
    case modify_invalid:
        return reply.send_result(bus, request, -1, "korvel modify ERR! Invalid %s.", refused);
    case modify_table_full:
        reply.send_result(bus, request, -1, "korvel modify ERR! Too many WAN instances.");
        return UBUS_STATUS_UNKNOWN_ERROR;
    default:
        reply.send_result(bus, request, -1, "korvel modify ERR! Memory allocate failed.");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
}

} // namespace

int wan_handle_modify(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                      blob_attr *message)
{
    blob_attr *attributes[modify_arg_count];
    parse_request(modify_policy.rows, message, attributes);
    handler_reply reply;
    if (!attributes[arg_wan_id]) {
        reply.send_result(bus, request, -1, "korvel modify ERR! Invalid WAN ID.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const uint8_t wan_id = static_cast<uint8_t>(blobmsg_get_u32(attributes[arg_wan_id]));
    const uint32_t wait = attributes[arg_wait] ? blobmsg_get_u32(attributes[arg_wait]) : 0;
    if (wait == 0)
        return apply_at_once(bus, request, attributes, wan_id, reply);
    if (static_cast<int32_t>(wait) < 0)
        return reply.send_result(bus, request, -1, "korvel modify ERR! Invalid %s.", "WAIT");
    return queue(bus, request, attributes, wan_id, wait, reply);
}
