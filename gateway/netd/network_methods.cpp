// What the network daemon's stand-in offers and says on the bus.
#include "netd/network_daemon.h"

#include "netd/device_status.h"
#include "netd/reply_parts.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr int big_reply_filler = 2100;

struct daemon_object : ubus_object {
    network_daemon *daemon;
};

network_daemon &owner(ubus_object *object)
{
    return *static_cast<daemon_object *>(object)->daemon;
}

std::vector<std::string> values_of(blob_attr *attribute)
{
    switch (blobmsg_type(attribute)) {
    case BLOBMSG_TYPE_STRING:
        return {blobmsg_get_string(attribute)};
    case BLOBMSG_TYPE_BOOL:
        return {blobmsg_get_bool(attribute) ? "1" : "0"};
    case BLOBMSG_TYPE_INT32:
        return {std::to_string(static_cast<int32_t>(blobmsg_get_u32(attribute)))};
    default:
        return {};
    }
}

// The members of a request as the options of a section.
config_section section_of(const char *name, blob_attr *message)
{
    config_section section{name, {}};
    blob_attr *attribute;
    size_t left;
    blob_for_each_attr(attribute, message, left)
    {
        if (std::vector<std::string> values = values_of(attribute); !values.empty())
            section.options.push_back({blobmsg_name(attribute), std::move(values)});
    }
    return section;
}

int handle_reload(ubus_context *, ubus_object *object, ubus_request_data *, const char *, blob_attr *)
{
    return owner(object).reload();
}

int handle_restart(ubus_context *, ubus_object *object, ubus_request_data *, const char *, blob_attr *)
{
    return owner(object).restart();
}

int handle_hurry(ubus_context *, ubus_object *object, ubus_request_data *, const char *, blob_attr *)
{
    owner(object).hurry();
    return UBUS_STATUS_OK;
}

int handle_settle(ubus_context *, ubus_object *object, ubus_request_data *request, const char *, blob_attr *)
{
    owner(object).follow_files();
    owner(object).settle(request);
    return UBUS_STATUS_OK;
}

const blobmsg_policy name_policy[] = {{"name", BLOBMSG_TYPE_STRING}};

// The argument `name`; nullptr when it is missing.
const char *name_in(blob_attr *message)
{
    blob_attr *name = nullptr;
    blobmsg_parse(name_policy, ARRAY_SIZE(name_policy), &name, blob_data(message),
                  static_cast<unsigned>(blob_len(message)));
    return name ? blobmsg_get_string(name) : nullptr;
}

int handle_add_dynamic(ubus_context *, ubus_object *object, ubus_request_data *, const char *,
                       blob_attr *message)
{
    const char *const name = name_in(message);
    return name ? owner(object).add_dynamic(section_of(name, message)) : UBUS_STATUS_INVALID_ARGUMENT;
}

int handle_device_status(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *,
                         blob_attr *message)
{
    const char *const name = name_in(message);
    if (!name)
        return UBUS_STATUS_INVALID_ARGUMENT;
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    const bool known = owner(object).add_device(&reply, name);
    if (known)
        ubus_send_reply(bus, request, reply.head);
    blob_buf_free(&reply);
    return known ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

int handle_dump(ubus_context *bus, ubus_object *object, ubus_request_data *request, const char *, blob_attr *)
{
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    owner(object).add_dump(&reply);
    ubus_send_reply(bus, request, reply.head);
    blob_buf_free(&reply);
    return UBUS_STATUS_OK;
}

const ubus_method network_methods[] = {UBUS_METHOD_NOARG("reload", handle_reload),
                                       UBUS_METHOD_NOARG("restart", handle_restart),
                                       UBUS_METHOD("add_dynamic", handle_add_dynamic, name_policy)};
const ubus_method device_methods[] = {UBUS_METHOD("status", handle_device_status, name_policy)};
const ubus_method dump_methods[] = {UBUS_METHOD_NOARG("dump", handle_dump)};
// What tests need and the network daemon does not have.
const ubus_method stand_in_methods[] = {UBUS_METHOD_NOARG("hurry", handle_hurry),
                                        UBUS_METHOD_NOARG("settle", handle_settle)};

// An object of the daemon's own, with its type.
struct own_object : daemon_object {
    template <int n>
    own_object(const char *own_name, const ubus_method (&object_methods)[n]) : daemon_object{}, own_type{}
    {
        own_type.name = own_name;
        own_type.methods = object_methods;
        own_type.n_methods = n;
        name = own_name;
        type = &own_type;
        methods = object_methods;
        n_methods = n;
    }
    ubus_object_type own_type;
};

// `network` comes last: who sees it finds the others there, too.
own_object own_objects[] = {{"gateway-netd", stand_in_methods},
                            {"network.device", device_methods},
                            {"network.interface", dump_methods},
                            {"network", network_methods}};

// Says what failed; true when nothing did.
bool check(int status, const char *what)
{
    if (status)
        fprintf(stderr, "gateway-netd: %s: %s\n", what, ubus_strerror(status));
    return status == UBUS_STATUS_OK;
}

// A member without a name in a table prints as a value alone.
void add_unprintable(blob_buf *reply)
{
    blobmsg_add_string(reply, nullptr, "no member name");
}

bool describes_interface(reply_mode mode)
{
    return mode == reply_mode::json || mode == reply_mode::usual || mode == reply_mode::big ||
           mode == reply_mode::failing;
}

} // namespace

const ubus_method network_daemon::interface_methods[4] = {
    UBUS_METHOD_NOARG("up", handle_up), UBUS_METHOD_NOARG("down", handle_down),
    UBUS_METHOD_NOARG("renew", handle_renew), UBUS_METHOD_NOARG("status", handle_status)};
ubus_object_type network_daemon::interface_type =
    UBUS_OBJECT_TYPE("network.interface", network_daemon::interface_methods);

network_daemon::interface_record::interface_record(network_daemon &own_daemon, config_section own_section,
                                                   origin own_source)
    : daemon(own_daemon), section(std::move(own_section)), source(own_source),
      coming_up([this] { daemon.finish_negotiation(*this); }), path("network.interface." + section.name)
{
    object.name = path.c_str();
    object.type = &interface_type;
    object.methods = interface_methods;
    object.n_methods = ARRAY_SIZE(interface_methods);
    object.record = this;
}

network_daemon::delayed_reply::delayed_reply(network_daemon &own_daemon, ubus_request_data *own_request,
                                             std::string own_interface, scripted_reply own_script)
    : daemon(own_daemon), interface(std::move(own_interface)), script(std::move(own_script)),
      due([this] { daemon.finish(this); })
{
    ubus_defer_request(daemon.bus_, own_request, &request);
    due.start(script.delay_ms);
}

bool network_daemon::offer_own_objects()
{
    return std::ranges::all_of(own_objects, [this](own_object &object) {
        object.daemon = this;
        return check(ubus_add_object(bus_, &object), object.name);
    });
}

void network_daemon::offer(interface_record &record)
{
    if (record.offered || read_scripted_reply(record.section.name).mode == reply_mode::absent)
        return;
    record.offered = check(ubus_add_object(bus_, &record.object), record.path.c_str());
}

void network_daemon::withdraw(interface_record &record)
{
    if (record.offered)
        check(ubus_remove_object(bus_, &record.object), record.path.c_str());
    record.offered = false;
}

void network_daemon::announce(const interface_record &record, const char *action)
{
    blob_buf event{};
    blob_buf_init(&event, 0);
    blobmsg_add_string(&event, "action", action);
    blobmsg_add_string(&event, "interface", record.section.name.c_str());
    check(ubus_send_event(bus_, "network.interface", event.head), "network.interface");
    blob_buf_free(&event);
    tell_hotplug(record, action);
}

// Scripts learn the device of an interface that is up only.
void network_daemon::tell_hotplug(const interface_record &record, const char *action)
{
    if (options_.hotplug)
        hotplug_.add(action, record.section.name,
                     record.state == link_state::up ? layer3_device(record.section) : "");
}

void network_daemon::settle(ubus_request_data *request)
{
    waiting_for_settling_.emplace_back();
    ubus_defer_request(bus_, request, &waiting_for_settling_.back());
    reply_if_settled();
}

void network_daemon::reply_if_settled()
{
    const bool pending = std::any_of(interfaces_.begin(), interfaces_.end(),
                                     [](const auto &record) { return record->state == link_state::pending; });
    if (pending || !hotplug_.empty())
        return;
    for (ubus_request_data &request : waiting_for_settling_)
        ubus_complete_deferred_request(bus_, &request, UBUS_STATUS_OK);
    waiting_for_settling_.clear();
}

const network_daemon::interface_record *network_daemon::downstream() const
{
    for (const auto &record : interfaces_)
        if (record->state == link_state::up && record->section.has("ip6assign"))
            return record.get();
    return nullptr;
}

std::vector<prefix_assignment> network_daemon::assignments_for(const interface_record &record) const
{
    std::vector<prefix_assignment> assignments;
    if (&record != downstream())
        return assignments;
    const int mask = record.section.number("ip6assign", 0);
    for (const auto &upstream : interfaces_) {
        if (upstream->state != link_state::up || !upstream->section.number("delegate", 1))
            continue;
        for (const prefix &delegated : upstream->settings.prefixes)
            if (delegated.mask <= mask)
                assignments.push_back({delegated.text, mask, delegated.leased});
    }
    return assignments;
}

interface_status network_daemon::status_of(const interface_record &record) const
{
    const std::string device = lower_device(record.section);
    const auto uptime = std::chrono::steady_clock::now() - record.up_since;
    const interface_record *const lan = downstream();
    interface_status status{};
    status.section = &record.section;
    status.state = record.state;
    status.available = device.empty() || links_.present(device);
    status.autostart = record.source == origin::scripted || record.wanted;
    status.dynamic = record.source == origin::dynamic;
    status.uptime = static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(uptime).count());
    status.settings = &record.settings;
    if (lan) {
        status.downstream = lan->section.name;
        status.downstream_mask = lan->section.number("ip6assign", 0);
    }
    status.assignments = assignments_for(record);
    status.errors = record.errors;
    return status;
}

// What is laid down counts here, too, as far as it is an interface's status.
void network_daemon::add_dump(blob_buf *reply)
{
    const array interfaces(reply, "interface");
    for (const auto &record : interfaces_) {
        const std::string &name = record->section.name;
        const scripted_reply script = read_scripted_reply(name);
        if (!describes_interface(script.mode))
            continue;
        const table entry(reply, nullptr);
        add_text(reply, "interface", name);
        if (script.mode == reply_mode::json)
            blobmsg_add_json_from_string(reply, script.text.c_str());
        else
            add_status(reply, status_of(*record));
    }
}

bool network_daemon::add_device(blob_buf *reply, const std::string &device) const
{
    const config_section *const section = find_device(config_, device);
    const bool present = links_.present(device);
    if (!section && !present)
        return false;
    add_device_status(reply, device, section, present);
    return true;
}

// Replies with what the record says now: it may have changed, or gone, since a delayed request came.
void network_daemon::add_usual_reply(blob_buf *reply, const std::string &interface)
{
    if (const interface_record *const record = find(interface))
        add_status(reply, status_of(*record));
}

int network_daemon::answer(ubus_request_data *request, const std::string &interface,
                           const scripted_reply &script)
{
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    int status = UBUS_STATUS_OK;
    switch (script.mode) {
    case reply_mode::big:
        add_usual_reply(&reply, interface);
        blobmsg_add_string(&reply, "filler", std::string(big_reply_filler, 'x').c_str());
        break;
    case reply_mode::usual:
    case reply_mode::failing:
        add_usual_reply(&reply, interface);
        break;
    case reply_mode::malformed:
        add_unprintable(&reply);
        break;
    case reply_mode::json:
        if (!blobmsg_add_json_from_string(&reply, script.text.c_str()))
            status = UBUS_STATUS_UNKNOWN_ERROR;
        break;
    case reply_mode::absent:
        status = UBUS_STATUS_NOT_FOUND;
        break;
    case reply_mode::invalid:
        fprintf(stderr, "gateway-netd: the reply laid down for %s is none that is known\n",
                interface.c_str());
        status = UBUS_STATUS_UNKNOWN_ERROR;
        break;
    case reply_mode::silent:
        break;
    }
    if (status == UBUS_STATUS_OK && script.mode != reply_mode::silent)
        ubus_send_reply(bus_, request, reply.head);
    blob_buf_free(&reply);
    return status;
}

void network_daemon::finish(delayed_reply *delayed)
{
    const int status = answer(&delayed->request, delayed->interface, delayed->script);
    ubus_complete_deferred_request(bus_, &delayed->request, status);
    delayed_.remove_if([delayed](const delayed_reply &entry) { return &entry == delayed; });
}

int network_daemon::handle_status(ubus_context *, ubus_object *object, ubus_request_data *request,
                                  const char *, blob_attr *)
{
    const interface_record &record = *static_cast<interface_object *>(object)->record;
    network_daemon &daemon = record.daemon;
    const std::string &name = record.section.name;
    const scripted_reply script = read_scripted_reply(name);
    if (script.delay_ms == 0)
        return daemon.answer(request, name, script);
    daemon.delayed_.emplace_back(daemon, request, name, script);
    return UBUS_STATUS_OK;
}

int network_daemon::handle_up(ubus_context *, ubus_object *object, ubus_request_data *, const char *,
                              blob_attr *)
{
    interface_record &record = *static_cast<interface_object *>(object)->record;
    record.daemon.bring_up(record);
    return UBUS_STATUS_OK;
}

int network_daemon::handle_down(ubus_context *, ubus_object *object, ubus_request_data *, const char *,
                                blob_attr *)
{
    interface_record &record = *static_cast<interface_object *>(object)->record;
    record.wanted = false;
    record.daemon.go_down(record);
    record.daemon.reply_if_settled();
    return UBUS_STATUS_OK;
}

// The lease is asked for again, and what the kernel may have lost of it comes back.
int network_daemon::handle_renew(ubus_context *, ubus_object *object, ubus_request_data *, const char *,
                                 blob_attr *)
{
    interface_record &record = *static_cast<interface_object *>(object)->record;
    if (record.state == link_state::up)
        record.daemon.links_.bring_up(record.section, record.settings);
    return UBUS_STATUS_OK;
}
