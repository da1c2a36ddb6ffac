#include "create/add.h"

#include "create/conflicts.h"
#include "create/create.h"
#include "create/parse_args.h"
#include "service/change.h"
#include "service/policies.h"
#include "service/request.h"

namespace {

// Neither a conflict nor a success.
constexpr int creation_failed = -1;

int create(request &self)
{
    int refusal = 0;
    auto create = [&] {
        refusal = wan_create(&self.wan, 0);
        return refusal == 0;
    };
    const operation_work works[] = {work_of(create)};
    if (change_run(works, 0) == operation_result::failed)
        refusal = creation_failed;
    // Deliberate: these replies speak of `get` and `modify`. Clients have matched on them since there was
    // only one text.
    return self.reply.say(refusal, refusal == conflict_none ? "korvel modify OK." : "korvel modify ERR!");
}

int refuse(request &self)
{
    (void)self.reply.say(creation_failed, "korvel modify ERR!");
    return UBUS_STATUS_UNKNOWN_ERROR;
}

constexpr method_kind addition = {.work = create, .refuse = refuse};

} // namespace

int wan_handle_add(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *message)
{
    blob_attr *attributes[add_arg_count];
    parse_request(add_policy.rows, message, attributes);
    if (!attributes[arg_wan_mode]) {
        (void)reply_at_once(bus, request, -1, "korvel get ERR! Invalid WAN mode.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wan_config config = {};
    char refused[display_name_size] = {};
    if (wan_parse_args(attributes, &config, refused) != 0)
        return reply_at_once(bus, request, -1, "korvel add ERR! Invalid %s.", refused);
    return request_defer(addition, lane_name::changes, bus, request, config);
}
