#include "state_object.h"

#include "base/log.h"
#include "base/clock.h"
#include "modify/pending.h"
#include "service/outcomes.h"
#include "service/policies.h"
#include "service/reply.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// The loop's side of the lanes: readable when there are outcomes.
constinit uloop_fd wake = {};
constinit ubus_context *event_bus = nullptr;

// The reply or event that is being made; the bus thread makes one at a time.
constinit method_reply *made = nullptr;

// Makes its owner's reply the one that is being made.
class reply_in_making {
public:
    reply_in_making() : whole_(reply_.begin()) { made = &reply_; }
    ~reply_in_making() { made = nullptr; }
    reply_in_making(const reply_in_making &) = delete;
    reply_in_making &operator=(const reply_in_making &) = delete;

    // Whether there is memory for it.
    explicit operator bool() const { return whole_; }
    const method_reply &reply() const { return reply_; }

private:
    method_reply reply_;
    bool whole_;
};

bool add_number(const char *name, uint32_t value)
{
    return made->add_number(name, BLOBMSG_TYPE_INT32, value);
}

bool add_text(const char *name, const char *value)
{
    return blobmsg_add_field(made->buffer(), BLOBMSG_TYPE_STRING, name, value,
                             static_cast<unsigned>(strlen(value)) + 1) == 0;
}

// Adds a moment of the steady clock as what the wall clock would have shown then had it always gone as it
// goes now: a gateway learns the time of day some while after it has started.
bool add_moment(const char *name, uint64_t moment)
{
    const time_t seconds =
        static_cast<time_t>((wall_milliseconds() - (steady_milliseconds() - moment)) / 1000);
    tm parts = {};
    char text[32] = {};
    (void)gmtime_r(&seconds, &parts);
    (void)strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return add_text(name, text);
}

// What an event and an entry of `last` begin with.
bool add_subject(const wan_outcome &outcome)
{
    return add_text("action", wan_action_name(outcome.action)) && add_number("wanId", outcome.wanId) &&
           add_text("wanName", outcome.wanName);
}

void send_event(const wan_outcome &outcome)
{
    const reply_in_making event;
    if (!event || !add_subject(outcome) || !add_text("device", outcome.device) ||
        !add_text("result", outcome.result))
        return log_error("Failed to allocate an event");
    const int result = ubus_send_event(event_bus, "korvel.wan", made->buffer()->head);
    if (result != UBUS_STATUS_OK)
        log_error("Failed to send an event: %s", ubus_strerror(result));
}

void send_events()
{
    while (const wan_outcome *const outcome = outcome_next()) {
        send_event(*outcome);
        outcome_taken();
    }
}

void handle_wake(uloop_fd *source, unsigned)
{
    uint64_t count = 0;
    (void)!read(source->fd, &count, sizeof(count)); // it only has to be empty
    send_events();
}

// Fills the reply with a list and sends it.
template <typename adder>
int reply_with_list(ubus_context *bus, ubus_request_data *request, const char *name, adder add_entries)
{
    const reply_in_making list_reply;
    void *const list = list_reply ? blobmsg_open_nested(made->buffer(), name, true) : nullptr;
    if (!list || !add_entries()) {
        log_error("Failed to allocate a reply");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    blob_nest_end(made->buffer(), list);
    return list_reply.reply().send(bus, request);
}

template <typename adder> bool add_table(adder add_members)
{
    void *const table = blobmsg_open_nested(made->buffer(), nullptr, false);
    if (!table || !add_members())
        return false;
    blob_nest_end(made->buffer(), table);
    return true;
}

// The names of the arguments alone: a value may be a password.
bool add_arguments(uint64_t arguments)
{
    void *const list = blobmsg_open_nested(made->buffer(), "changes", true);
    bool added = list != nullptr;
    for (size_t i = 0; added && i < record_arg_count; i++)
        if (arguments >> i & 1)
            added = add_text(nullptr, arg_rules[i].field.name);
    if (added)
        blob_nest_end(made->buffer(), list);
    return added;
}

bool add_pending(const pending_change &change)
{
    const uint32_t seconds = static_cast<uint32_t>(std::min<uint64_t>(change.seconds, INT32_MAX));
    return add_number("wanId", change.wanId) && add_text("wanName", change.wanName) &&
           add_number("seconds", seconds) && add_moment("asked", change.asked) &&
           add_arguments(change.arguments) &&
           (!change.applying || made->add_number("applying", BLOBMSG_TYPE_INT8, 1));
}

int handle_pending(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    pending_change changes[most_pending];
    const size_t count = wan_pending_changes(changes);
    return reply_with_list(bus, request, "pending", [&] {
        return std::all_of(changes, changes + count, [](const pending_change &change) {
            return add_table([&] { return add_pending(change); });
        });
    });
}

bool add_outcome(const wan_outcome &outcome)
{
    return add_subject(outcome) && add_moment("when", outcome.when) && add_text("result", outcome.result) &&
           (!outcome.conflict || add_text("conflict", outcome.conflict)) &&
           (outcome.other == 0 || add_number("other", outcome.other)) &&
           (outcome.file[0] == '\0' || add_text("file", outcome.file));
}

int handle_last(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    send_events(); // so that what was answered before this request is in the list
    const wan_outcome *kept[most_kept_outcomes];
    const size_t count = outcomes_kept(kept);
    return reply_with_list(bus, request, "last", [&] {
        return std::all_of(kept, kept + count, [](const wan_outcome *outcome) {
            return add_table([&] { return add_outcome(*outcome); });
        });
    });
}

int handle_cancel(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                  blob_attr *message)
{
    blob_attr *arguments[1];
    parse_request(wan_id_policy.rows, message, arguments);
    blob_attr *const wan_id = arguments[arg_wan_id];
    if (!wan_id) {
        (void)reply_at_once(bus, request, -1, "korvel cancel ERR! Invalid WAN ID.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (!wan_cancel_pending(static_cast<uint8_t>(blobmsg_get_u32(wan_id)))) {
        (void)reply_at_once(bus, request, -1, "korvel cancel ERR! No change waits.");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return reply_at_once(bus, request, 0, "korvel cancel OK.");
}

int handle_version(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *)
{
    const reply_in_making version;
    if (!version || !add_text("version", KORVEL_VERSION)) {
        log_error("Failed to allocate a reply");
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return version.reply().send(bus, request);
}

constinit ubus_method state_methods[] = {
    UBUS_METHOD("cancel", handle_cancel, wan_id_policy.rows),
    UBUS_METHOD_NOARG("last", handle_last),
    UBUS_METHOD_NOARG("pending", handle_pending),
    UBUS_METHOD_NOARG("version", handle_version),
};

constinit ubus_object_type state_type = UBUS_OBJECT_TYPE("korvel.state", state_methods);
constinit ubus_object state_object = {};

} // namespace

void state_object_start(ubus_context *bus)
{
    state_object.name = "korvel.state";
    state_object.type = &state_type;
    state_object.methods = state_methods;
    state_object.n_methods = ARRAY_SIZE(state_methods);
    const int result = ubus_add_object(bus, &state_object);
    if (result != UBUS_STATUS_OK)
        log_error("Failed to register korvel.state on the bus: %s", ubus_strerror(result));

    event_bus = bus;
    wake.cb = handle_wake;
    wake.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake.fd < 0 || uloop_fd_add(&wake, ULOOP_READ) != 0)
        return log_error("Failed to watch for events: %s", strerror(errno));
    outcomes_wake(wake.fd);
}
