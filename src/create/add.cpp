#include "create/add.h"

#include "create/conflicts.h"
#include "create/create.h"
#include "create/parse_args.h"
#include "service/change.h"
#include "service/policies.h"
#include "service/reply.h"

namespace {

// Neither a conflict nor a success.
constexpr int creation_failed = -1;

// Returns 0, or why there is no new WAN: a conflict (create/conflicts.h) or -1.
int create_locked(const wan_config *config)
{
    const scoped_lock lock(handler_mutex);
    int refusal = 0;
    auto create = [&] {
        refusal = wan_create(config, 0);
        return refusal == 0;
    };
    const operation_work works[] = {work_of(create)};
    return change_run(works, 0) == operation_result::failed ? creation_failed : refusal;
}

} // namespace

int wan_handle_add(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *message)
{
    blob_attr *attributes[add_arg_count];
    parse_request(add_policy.rows, message, attributes);
    handler_reply reply;
    // Deliberate: these replies speak of `get` and `modify`. Clients have matched on them since there was
    // only one text.
    if (!attributes[arg_wan_mode]) {
        reply.send_result(bus, request, -1, "korvel get ERR! Invalid WAN mode.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }

    wan_config config = {};
    char refused[display_name_size] = {};
    if (wan_parse_args(attributes, &config, refused) != 0)
        return reply.send_result(bus, request, -1, "korvel add ERR! Invalid %s.", refused);
    const int conflict = create_locked(&config);
    if (conflict != conflict_none)
        return reply.send_result(bus, request, conflict, "korvel modify ERR!");
    return reply.send_result(bus, request, 0, "korvel modify OK.");
}
