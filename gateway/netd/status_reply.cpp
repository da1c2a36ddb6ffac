#include "netd/status_reply.h"

#include "netd/reply_parts.h"

namespace {

void add_lifetime(blob_buf *reply, const std::optional<lifetime> &leased)
{
    if (!leased)
        return;
    add_int(reply, "preferred", leased->preferred);
    add_int(reply, "valid", leased->valid);
}

void add_addresses(blob_buf *reply, const char *name, const std::vector<address> &addresses)
{
    const array entries(reply, name);
    for (const address &own : addresses) {
        const table entry(reply, nullptr);
        add_text(reply, "address", own.text);
        add_int(reply, "mask", own.mask);
        if (!own.peer.empty())
            add_text(reply, "ptpaddress", own.peer);
        add_lifetime(reply, own.leased);
    }
}

void add_routes(blob_buf *reply, const std::vector<route> &routes)
{
    const array entries(reply, "route");
    for (const route &path : routes) {
        const table entry(reply, nullptr);
        add_text(reply, "target", path.target);
        add_int(reply, "mask", path.mask);
        add_text(reply, "nexthop", path.next_hop);
        if (path.metric)
            add_int(reply, "metric", path.metric);
        if (path.valid)
            add_int(reply, "valid", path.valid);
        add_text(reply, "source", path.source);
    }
}

void add_assigned(blob_buf *reply, const prefix &delegated, const interface_status &status)
{
    const table assigned(reply, "assigned");
    const bool shared = status.section->number("delegate", 1) && status.downstream_mask >= delegated.mask;
    if (status.downstream.empty() || !shared)
        return;
    const table part(reply, status.downstream.c_str());
    add_text(reply, "address", delegated.text);
    add_int(reply, "mask", status.downstream_mask);
}

void add_prefixes(blob_buf *reply, const interface_status &status)
{
    const array entries(reply, "ipv6-prefix");
    for (const prefix &delegated : status.settings->prefixes) {
        const table entry(reply, nullptr);
        add_text(reply, "address", delegated.text);
        add_int(reply, "mask", delegated.mask);
        add_lifetime(reply, delegated.leased);
        add_text(reply, "class", delegated.owner);
        add_assigned(reply, delegated, status);
    }
}

void add_assignments(blob_buf *reply, const std::vector<prefix_assignment> &assignments)
{
    const array entries(reply, "ipv6-prefix-assignment");
    for (const prefix_assignment &assignment : assignments) {
        const table entry(reply, nullptr);
        add_text(reply, "address", assignment.text);
        add_int(reply, "mask", assignment.mask);
        add_lifetime(reply, assignment.leased);
        const table local(reply, "local-address");
        add_text(reply, "address", assignment.text + "1");
        add_int(reply, "mask", assignment.mask);
    }
}

void add_inactive(blob_buf *reply, const ip_settings &settings)
{
    const table inactive(reply, "inactive");
    add_addresses(reply, "ipv4-address", {});
    add_addresses(reply, "ipv6-address", {});
    add_routes(reply, settings.inactive_routes);
    add_texts(reply, "dns-server", settings.inactive_servers);
    add_texts(reply, "dns-search", settings.inactive_search);
    add_texts(reply, "neighbors", {});
}

void add_optional_number(blob_buf *reply, const config_section &section, const char *option)
{
    if (section.has(option))
        add_int(reply, option, section.number(option, 0));
}

void add_content(blob_buf *reply, const interface_status &status)
{
    const config_section &section = *status.section;
    const ip_settings &settings = *status.settings;
    if (!settings.updated.empty())
        add_texts(reply, "updated", settings.updated);
    add_optional_number(reply, section, "ip4table");
    add_optional_number(reply, section, "ip6table");
    add_int(reply, "metric", section.number("metric", 0));
    add_int(reply, "dns_metric", section.number("dns_metric", 0));
    add_bool(reply, "delegation", section.number("delegate", 1));
    add_optional_number(reply, section, "ip6weight");
    add_addresses(reply, "ipv4-address", settings.v4);
    add_addresses(reply, "ipv6-address", settings.v6);
    add_prefixes(reply, status);
    add_assignments(reply, status.assignments);
    add_routes(reply, settings.routes);
    add_texts(reply, "dns-server", settings.servers);
    add_texts(reply, "dns-search", settings.search);
    add_texts(reply, "neighbors", {});
    add_inactive(reply, settings);
}

void add_data(blob_buf *reply, const interface_status &status)
{
    const table data(reply, "data");
    if (status.state != link_state::up)
        return;
    if (status.settings->lease_seconds)
        add_int(reply, "leasetime", status.settings->lease_seconds);
    if (!status.settings->passed_through.empty())
        add_text(reply, "passthru", status.settings->passed_through);
}

void add_errors(blob_buf *reply, const std::vector<interface_error> &errors)
{
    if (errors.empty())
        return;
    const array entries(reply, "errors");
    for (const interface_error &error : errors) {
        const table entry(reply, nullptr);
        add_text(reply, "subsystem", error.subsystem);
        add_text(reply, "code", error.code);
    }
}

} // namespace

void add_status(blob_buf *reply, const interface_status &status)
{
    const config_section &section = *status.section;
    const bool up = status.state == link_state::up;
    add_bool(reply, "up", up);
    add_bool(reply, "pending", status.state == link_state::pending);
    add_bool(reply, "available", status.available);
    add_bool(reply, "autostart", status.autostart);
    add_bool(reply, "dynamic", status.dynamic);
    if (up) {
        add_int(reply, "uptime", status.uptime);
        add_text(reply, "l3_device", layer3_device(section));
    }
    if (const std::string protocol = section.text("proto"); !protocol.empty())
        add_text(reply, "proto", protocol);
    if (const std::string device = lower_device(section); !device.empty())
        add_text(reply, "device", device);
    if (up)
        add_content(reply, status);
    add_data(reply, status);
    add_errors(reply, status.errors);
}
