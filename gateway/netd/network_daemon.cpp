// How the network daemon's stand-in follows the configuration, and the life of its interfaces.
#include "netd/network_daemon.h"

#include <algorithm>

namespace {

const config_section *find_interface(const network_config &config, const std::string &name)
{
    for (const config_section &section : config.interfaces)
        if (section.name == name)
            return &section;
    return nullptr;
}

} // namespace

network_daemon::network_daemon(ubus_context *bus, const daemon_options &options)
    : bus_(bus), options_(options), links_(options.links, options.kernel_vlans),
      hotplug_([this] { reply_if_settled(); }), board_(bus)
{}

network_daemon::~network_daemon() = default;

// `network` comes last: who sees it finds the interfaces there, too.
bool network_daemon::start()
{
    links_.flush_rules();
    return reload() == UBUS_STATUS_OK && offer_own_objects();
}

void network_daemon::stop()
{
    for (const auto &record : interfaces_)
        if (record->state == link_state::up)
            links_.take_down(record->section, record->settings);
    links_.follow({}, {});
}

int network_daemon::reload()
{
    const std::optional<network_config> next = read_network_config();
    if (!next)
        return UBUS_STATUS_UNKNOWN_ERROR;
    apply(*next);
    follow_files();
    reply_if_settled(); // an interface that was waited for may be gone
    return UBUS_STATUS_OK;
}

int network_daemon::restart()
{
    apply(network_config{}); // nothing configured: everything goes down
    links_.flush_rules();
    return reload();
}

void network_daemon::apply(const network_config &next)
{
    const std::set<std::string> changed = changed_devices(config_, next);
    remove_unconfigured(next);
    stop_changed(next, interrupted_devices(changed, next));
    links_.follow(next, changed);
    config_ = next;
    for (const config_section &section : next.interfaces)
        if (!find(section.name))
            add_configured(section);
    for (const config_section &section : next.interfaces)
        if (interface_record &record = *find(section.name); record.wanted)
            bring_up(record);
}

// Takes the configured interfaces down that will be configured in another way, or whose device loses its
// link.
void network_daemon::stop_changed(const network_config &next, const std::set<std::string> &interrupted)
{
    for (const config_section &section : next.interfaces) {
        interface_record *const record = find(section.name);
        if (!record)
            continue;
        const bool changed = !section.means_the_same_as(record->section);
        if (changed || interrupted.contains(lower_device(record->section)))
            go_down(*record);
        if (changed)
            record->wanted = section.starts_by_itself();
        record->section = section;
    }
}

// Removes interfaces that are no longer configured, and others whose name the configuration now takes.
void network_daemon::remove_unconfigured(const network_config &next)
{
    std::vector<std::string> names;
    for (const auto &record : interfaces_) {
        const bool configured = find_interface(next, record->section.name) != nullptr;
        if (configured != (record->source == origin::configured))
            names.push_back(record->section.name);
    }
    for (const std::string &name : names)
        if (find(name))
            remove(name);
}

network_daemon::interface_record *network_daemon::find(const std::string &name)
{
    for (const auto &record : interfaces_)
        if (record->section.name == name)
            return record.get();
    return nullptr;
}

void network_daemon::add(config_section section, origin source)
{
    interfaces_.push_back(std::make_unique<interface_record>(*this, std::move(section), source));
    offer(*interfaces_.back());
}

void network_daemon::add_configured(const config_section &section)
{
    add(section, origin::configured);
    interface_record &record = *interfaces_.back();
    record.wanted = section.starts_by_itself();
    if (record.wanted && begins_down(section))
        announce(record, "ifdown");
}

void network_daemon::remove(const std::string &name)
{
    interface_record *const record = find(name);
    go_down(*record);
    withdraw(*record);
    std::erase_if(interfaces_, [record](const auto &entry) { return entry.get() == record; });
}

void network_daemon::follow_files()
{
    board_.follow_file();
    const std::vector<std::string> scripted = scripted_interfaces();
    for (const std::string &name : scripted)
        if (!find(name))
            add({name, {}}, origin::scripted);
    std::vector<std::string> gone;
    for (const auto &record : interfaces_) {
        const std::string &name = record->section.name;
        if (record->source == origin::scripted &&
            std::find(scripted.begin(), scripted.end(), name) == scripted.end())
            gone.push_back(name);
        else if (read_scripted_reply(name).mode == reply_mode::absent)
            withdraw(*record);
        else
            offer(*record);
    }
    for (const std::string &name : gone)
        remove(name);
}

// An interface stays down when its device is missing or left over.
void network_daemon::bring_up(interface_record &record)
{
    record.wanted = true;
    const std::string device = lower_device(record.section);
    if (record.state != link_state::down)
        return;
    record.errors.clear();
    if (links_.left_over(device))
        record.errors.push_back({"interface", "DEVICE_CLAIM_FAILED"});
    else if (device.empty() || links_.present(device))
        negotiate(record);
}

void network_daemon::negotiate(interface_record &record)
{
    record.state = link_state::pending;
    constexpr int ms_per_second = 1000;
    record.coming_up.start(options_.real_pace ? ms_per_second * real_negotiation_seconds(record.section)
                                              : options_.pending_ms);
}

void network_daemon::finish_negotiation(interface_record &record)
{
    const scripted_reply script = read_scripted_reply(record.section.name);
    if (script.mode == reply_mode::failing)
        fail(record, script.text);
    else
        come_up(record);
    reply_if_settled();
}

void network_daemon::fail(interface_record &record, const std::string &code)
{
    record.state = link_state::down;
    if (!code.empty())
        record.errors.push_back({record.section.text("proto"), code});
    tell_hotplug(record, "ifup-failed"); // the bus is told of "ifup" and "ifdown" only
}

void network_daemon::hurry()
{
    const auto pending = [](const auto &record) { return record->state == link_state::pending; };
    // One that comes up may bring another along.
    for (auto next = std::ranges::find_if(interfaces_, pending); next != interfaces_.end();
         next = std::ranges::find_if(interfaces_, pending)) {
        (*next)->coming_up.stop();
        finish_negotiation(**next);
    }
}

void network_daemon::come_up(interface_record &record)
{
    const config_section *const device = find_device(config_, lower_device(record.section));
    record.settings = provider_.settings_of(record.section, device ? device->text("macaddr") : "");
    links_.bring_up(record.section, record.settings);
    record.state = link_state::up;
    record.up_since = std::chrono::steady_clock::now();
    announce(record, "ifup");
    if (const std::optional<config_section> side = dynamic_v6_side(record.section))
        bring_along(*side);
}

// A section of that name in the configuration comes first; a record that only holds a laid-down reply makes
// room.
void network_daemon::bring_along(const config_section &side)
{
    const interface_record *const known = find(side.name);
    if (known && known->source == origin::scripted)
        remove(side.name);
    if (find(side.name))
        return;
    add(side, origin::dynamic);
    bring_up(*find(side.name));
}

int network_daemon::add_dynamic(config_section section)
{
    for (config_option &option : section.options) {
        if (option.name != "device" || !option.values[0].starts_with('@'))
            continue;
        const interface_record *const below = find(option.values[0].substr(1));
        if (!below)
            return UBUS_STATUS_NOT_FOUND;
        option.values = {layer3_device(below->section)};
    }
    bring_along(section);
    return UBUS_STATUS_OK;
}

void network_daemon::go_down(interface_record &record)
{
    const std::string side = record.section.name + "_6";
    const interface_record *const dynamic = find(side);
    if (dynamic && dynamic->source == origin::dynamic)
        remove(side);
    record.coming_up.stop();
    const bool was_up = record.state == link_state::up;
    record.state = link_state::down;
    if (!was_up)
        return;
    links_.take_down(record.section, record.settings);
    announce(record, "ifdown");
}
