#include "modify/modify.h"

#include "create/conflicts.h"
#include "create/parse_args.h"
#include "modify/apply.h"
#include "modify/pending.h"
#include "service/policies.h"
#include "service/request.h"
#include "store/read_config.h"

namespace {

int say_no_memory(request &self)
{
    (void)self.reply.say(-1, "korvel modify ERR! Memory allocate failed.");
    return UBUS_STATUS_UNKNOWN_ERROR;
}

int apply_now(request &self)
{
    const int result = wan_modify_apply(&self.wan);
    // Deliberate: only conflicts are reported; clients have never been told of other failures.
    if (result == conflict_vlan || result == conflict_port_bound || result == conflict_port_required)
        return self.reply.say(result, "korvel modify ERR!");
    return self.reply.say(0, "korvel modify OK.");
}

constexpr method_kind change_now = {.work = apply_now, .refuse = say_no_memory};

// Says what becomes of a change that is to wait. Returns the bus status.
int say_pending(method_reply &reply, pending_result result)
{
    switch (result) {
    case pending_result::queued:
        return reply.say(0, "korvel modify OK.");
    case pending_result::table_full:
        (void)reply.say(-1, "korvel modify ERR! Too many WAN instances.");
        return UBUS_STATUS_UNKNOWN_ERROR;
    default:
        (void)reply.say(-1, "korvel modify ERR! Memory allocate failed.");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
}

// Has a change wait, over what waits for its WAN or is about to become of it. `unknown`: there is neither.
pending_result join(const asked_change &asked)
{
    // A change at once that is not through yet: what is stored is not what the client has asked for.
    if (const wan_config *const next = request_find(change_now, asked.wan.wanId)) {
        const pending_result waiting = wan_pending_join(asked);
        if (waiting != pending_result::unknown)
            return waiting;
        wan_config wan = *next;
        wan_overlay_args(asked.arguments, asked.wan, &wan);
        return wan_pending_add({wan, asked.arguments, asked.wait});
    }
    return wan_pending_join(asked);
}

// Reads what is stored of the WAN and lays the request over it. A WAN that does not exist is refused when the
// change is applied.
int read_base(request &self)
{
    wan_config stored = {};
    stored.wanId = self.wan.wanId;
    if (wan_read_stored(uci_loaded("network"), &stored) == configuration_unreadable)
        return UBUS_STATUS_UNKNOWN_ERROR;
    wan_overlay_args(self.arguments, self.wan, &stored);
    self.wan = stored;
    return UBUS_STATUS_OK;
}

bool answer_later(request &self)
{
    const asked_change asked = {self.wan, self.arguments, self.wait};
    if (self.status != UBUS_STATUS_OK) {
        self.status = say_no_memory(self);
        return true;
    }
    pending_result result = join(asked);
    if (result == pending_result::unknown) {
        // What was read may be from before a change that has ended since.
        const uint64_t ended = lane_ended(lane_name::changes);
        if (self.lane == lane_name::queries && ended != self.changes_before) {
            self.changes_before = ended;
            return false;
        }
        result = wan_pending_add(asked);
    }
    self.status = say_pending(self.reply, result);
    return true;
}

constexpr method_kind change_later = {.work = read_base, .refuse = say_no_memory, .answer = answer_later};

int change_at_once(ubus_context *bus, ubus_request_data *request, blob_attr *const attributes[],
                   uint8_t wan_id)
{
    wan_config config = {};
    config.wanId = wan_id;
    char refused[display_name_size] = {};
    if (wan_parse_args(attributes, &config, refused) != 0)
        return reply_at_once(bus, request, -1, "korvel modify ERR! Invalid %s.", refused);
    return request_defer(change_now, lane_name::changes, bus, request, config);
}

int send_pending(ubus_context *bus, ubus_request_data *request, pending_result result)
{
    method_reply reply;
    const int status = say_pending(reply, result);
    const int sent = reply.send(bus, request);
    return status == UBUS_STATUS_OK ? sent : status;
}

int queue(ubus_context *bus, ubus_request_data *request, blob_attr *const attributes[], uint8_t wan_id,
          uint32_t wait)
{
    if (!wan_pending_begin(wan_id, wait))
        return send_pending(bus, request, pending_result::table_full);
    wan_config config = {};
    config.wanId = wan_id;
    char refused[display_name_size] = {};
    if (wan_parse_args(attributes, &config, refused) != 0)
        return reply_at_once(bus, request, -1, "korvel modify ERR! Invalid %s.", refused);
    const uint64_t arguments = wan_given_args(attributes);
    const pending_result result = join({config, arguments, wait});
    if (result != pending_result::unknown)
        return send_pending(bus, request, result);
    // The lane of changes is the quicker one when it has nothing to do: a query may wait for an answer.
    const lane_name lane = lane_is_idle(lane_name::changes) ? lane_name::changes : lane_name::queries;
    return request_defer(change_later, lane, bus, request, config, arguments, wait);
}

} // namespace

int wan_handle_modify(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                      blob_attr *message)
{
    blob_attr *attributes[modify_arg_count];
    parse_request(modify_policy.rows, message, attributes);
    if (!attributes[arg_wan_id]) {
        (void)reply_at_once(bus, request, -1, "korvel modify ERR! Invalid WAN ID.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const uint8_t wan_id = static_cast<uint8_t>(blobmsg_get_u32(attributes[arg_wan_id]));
    const uint32_t wait = attributes[arg_wait] ? blobmsg_get_u32(attributes[arg_wait]) : 0;
    if (wait == 0)
        return change_at_once(bus, request, attributes, wan_id);
    if (static_cast<int32_t>(wait) < 0)
        return reply_at_once(bus, request, -1, "korvel modify ERR! Invalid %s.", "WAIT");
    return queue(bus, request, attributes, wan_id, wait);
}
