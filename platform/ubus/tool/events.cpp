// ubus send, listen and wait_for.
#include "command.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum { announced_path, announced_fields };
constexpr blobmsg_policy announced_policy[announced_fields] = {{.name = "path", .type = BLOBMSG_TYPE_STRING}};

void print_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *content)
{
    printf("{ \"%s\": ", type);
    print_message(content, /*compact=*/true);
    puts(" }");
    fflush(stdout);
}

void end_loop(uloop_timeout *)
{
    uloop_end();
}

// Runs the event loop until it is ended from inside or by a signal; with a timer, for so many seconds at
// most.
void run_loop(ubus_context *bus, int seconds, bool with_timer)
{
    uloop_timeout timer{};
    timer.cb = end_loop;
    if (with_timer)
        uloop_timeout_set(&timer, seconds * 1000);
    ubus_add_uloop(bus);
    uloop_run();
    uloop_timeout_cancel(&timer);
}

// Objects that are awaited. The handler comes first: the library hands its address back.
struct awaited {
    ubus_event_handler handler{};
    arguments paths;
    bool *arrived = nullptr; // one per path

    void note(const char *path)
    {
        for (size_t i = 0; i < paths.size(); i++)
            arrived[i] = arrived[i] || strcmp(paths[i], path) == 0;
    }
    bool all_arrived() const
    {
        return std::all_of(arrived, arrived + paths.size(), [](bool a) { return a; });
    }
};

void note_arrival(ubus_context *, ubus_event_handler *handler, const char *, blob_attr *content)
{
    auto *const waiting = reinterpret_cast<awaited *>(handler);
    blob_attr *found[announced_fields];
    (void)blobmsg_parse(announced_policy, announced_fields, found, blob_data(content),
                        static_cast<unsigned>(blob_len(content)));
    const char *const path = blobmsg_get_string(found[announced_path]);
    if (!path)
        return;
    waiting->note(path);
    if (waiting->all_arrived())
        uloop_end();
}

// Of all that a lookup answers, which for a path with a * at its end is more than was asked for.
void note_presence(ubus_context *, ubus_object_data *object, void *waiting)
{
    static_cast<awaited *>(waiting)->note(object->path);
}

} // namespace

int listen_for_events(ubus_context *bus, const tool_options &options, arguments args)
{
    ubus_event_handler handler{};
    handler.cb = print_event;
    char everything[] = "*";
    char *const default_args[] = {everything};
    for (const char *pattern : args.empty() ? arguments(default_args) : args) {
        const int status = ubus_register_event_handler(bus, &handler, pattern);
        if (status == UBUS_STATUS_OK)
            continue;
        if (!options.simple)
            fprintf(stderr, "Error while registering for event '%s': %s\n", pattern, ubus_strerror(status));
        return already_reported;
    }
    run_loop(bus, options.timeout, options.timeout_given);
    return UBUS_STATUS_OK;
}

int send_event(ubus_context *bus, const tool_options &, arguments args)
{
    if (args.size() != 1 && args.size() != 2)
        return wrong_usage;
    message content;
    if (args.size() == 2) {
        if (const int status = content.add_json(args[1]); status != UBUS_STATUS_OK)
            return status;
    }
    return ubus_send_event(bus, args[0], content.head());
}

int wait_for_objects(ubus_context *bus, const tool_options &options, arguments args)
{
    if (args.empty())
        return wrong_usage;
    awaited waiting;
    waiting.handler.cb = note_arrival;
    waiting.paths = args;
    waiting.arrived = static_cast<bool *>(calloc(args.size(), sizeof(bool)));
    if (!waiting.arrived)
        return UBUS_STATUS_NO_MEMORY;

    // Listening comes before looking, so that no arrival falls between the two.
    int status = ubus_register_event_handler(bus, &waiting.handler, "ubus.object.add");
    for (size_t i = 0; status == UBUS_STATUS_OK && i < args.size(); i++)
        (void)ubus_lookup(bus, args[i], note_presence, &waiting); // a missing object is what we wait for
    if (status == UBUS_STATUS_OK && !waiting.all_arrived()) {
        run_loop(bus, options.timeout, /*with_timer=*/true);
        status = waiting.all_arrived() ? UBUS_STATUS_OK : UBUS_STATUS_TIMEOUT;
    }
    free(waiting.arrived);
    return status;
}
