// One line for each event of a WAN and each change of a WAN's link, as they come, through a restart of the
// bus daemon. The loop is a plain poll(): the library's own one does not notice a bus that goes away.
#include "ctl/watch.h"

#include "ctl/bus.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "wan/wan_names.h"

#include <cstring>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr char wan_event[] = "korvel.wan";
constexpr char link_event[] = "network.interface";
constexpr char object_added[] = "ubus.object.add";
constexpr char object_removed[] = "ubus.object.remove";
constexpr timespec retry_pause = {0, 500 * 1000 * 1000};

constinit bool lost = false;

struct time_now {
    char text[24];
    time_now()
    {
        const time_t now = time(nullptr);
        tm parts = {};
        (void)gmtime_r(&now, &parts);
        if (strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
            text[0] = '\0';
    }
};

// The WAN that an interface belongs to; 0 when it is none's.
uint8_t wan_of(const char *interface)
{
    const char *const digits = strpbrk(interface, "0123456789");
    uint32_t id = 0;
    char number[8] = {};
    if (!digits)
        return 0;
    (void)text_ref(number).format("%.*s", static_cast<int>(strspn(digits, "0123456789")), digits);
    if (!read_number(number, UINT8_MAX, &id) || id == 0)
        return 0;
    const wan_names names(id);
    for (const char *const name : {names.interface, names.interface_v6, names.dialled_v6, names.dslite})
        if (strcmp(name, interface) == 0)
            return static_cast<uint8_t>(id);
    return 0;
}

// "wan", "link", "daemon" or "bus", and what happened. Text members of an event go along.
struct happening {
    const char *kind;
    const char *action;
    uint8_t wan_id = 0;
    const char *name = ""; // wanName, or the interface
    const char *device = "";
    const char *result = "";
};

void print(const happening &what)
{
    const time_now now;
    if (output_is_json()) {
        json_writer json;
        json.open_object();
        json.text("time", now.text);
        json.text("event", what.kind);
        json.text("action", what.action);
        if (what.wan_id != 0)
            json.number("wanId", what.wan_id);
        if (what.name[0] != '\0')
            json.text(strcmp(what.kind, "link") == 0 ? "interface" : "wanName", what.name);
        if (what.device[0] != '\0')
            json.text("device", what.device);
        if (what.result[0] != '\0')
            json.text("result", what.result);
        return json.close_answer();
    }
    char wan[16] = "";
    if (what.wan_id != 0)
        (void)text_ref(wan).format(" WAN %u", what.wan_id);
    say("%s %s%s %s%s%s%s%s%s%s", now.text, what.kind, wan, what.action, what.name[0] ? " " : "", what.name,
        what.device[0] ? " " : "", what.device, what.result[0] ? ": " : "", what.result);
    (void)fflush(stdout);
}

void take_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *content)
{
    happening what = {.kind = "wan", .action = bus_text(content, "action", "?")};
    if (strcmp(type, wan_event) == 0) {
        what.wan_id = static_cast<uint8_t>(bus_number(content, "wanId"));
        what.name = bus_text(content, "wanName");
        what.device = bus_text(content, "device");
        what.result = bus_text(content, "result");
    } else if (strcmp(type, link_event) == 0) {
        what.kind = "link";
        what.name = bus_text(content, "interface");
        what.wan_id = wan_of(what.name);
        if (what.wan_id == 0)
            return;
    } else if (strcmp(bus_text(content, "path"), "korvel") == 0) {
        what = {.kind = "daemon", .action = strcmp(type, object_added) == 0 ? "started" : "ended"};
    } else {
        return;
    }
    print(what);
}

// Serves one connection until it breaks or nobody reads any more.
void serve(ubus_context *bus)
{
    while (!lost && !ferror(stdout)) {
        pollfd input = {bus->sock.fd, POLLIN, 0};
        if (poll(&input, 1, -1) < 0)
            continue;
        ubus_handle_event(bus);
        lost = lost || (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    }
}

bool listen(ubus_context *bus, ubus_event_handler *handler)
{
    for (const char *const pattern : {wan_event, link_event, object_added, object_removed})
        if (ubus_register_event_handler(bus, handler, pattern) != UBUS_STATUS_OK)
            return false;
    return true;
}

// Connects, listens, serves. Returns whether it came to listening.
bool watch_once(bool first)
{
    ubus_context *const bus = connect_to_bus();
    if (!bus)
        return false;
    lost = false;
    bus->connection_lost = [](ubus_context *) { lost = true; };
    ubus_event_handler handler = {};
    handler.cb = take_event;
    const bool listens = listen(bus, &handler) && !lost;
    if (listens) {
        print({.kind = "bus", .action = first ? "listening" : "back"});
        serve(bus);
        if (lost)
            print({.kind = "bus", .action = "lost"});
    }
    ubus_free(bus);
    return listens;
}

} // namespace

exit_status run_watch(std::span<char *const> words)
{
    if (const exit_status result = read_short_line(words, "watch takes no "); result != exit_status::done)
        return result;
    if (!watch_once(/*first=*/true))
        return fail(exit_status::no_daemon, "there is no bus that this user may listen to");
    while (!ferror(stdout)) {
        (void)nanosleep(&retry_pause, nullptr);
        (void)watch_once(/*first=*/false);
    }
    return exit_status::done; // whoever read has gone
}
