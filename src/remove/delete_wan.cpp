#include "remove/delete_wan.h"

#include "base/config.h"
#include "base/log.h"
#include "remove/references.h"
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "rules/multicast_vlan.h"
#include "rules/route_rule.h"
#include "service/change.h"
#include "service/policies.h"
#include "service/reload.h"
#include "service/request.h"
#include "service/settings.h"
#include "store/generations.h"
#include "store/id_list.h"
#include "store/read_config.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

// What the steps of one deletion share.
struct deletion {
    uint8_t id;
    wan_names names;
    char device_section[section_name_size];
    char device[12];
    char link_name[sizeof(wan_config::wanName)];
    uint8_t service;
    uint16_t mvid;
    bool had_ipv6_interface;
    int error; // the results of the calls that count, by bitwise OR
};

uint32_t device_number(const deletion &wan, const stored_option &option)
{
    uint32_t value = 0;
    (void)uci_get_int(wan.device_section, option.name, &value);
    return value;
}

// Deletes an interface section and its place in the WAN zone. Returns whether there was one.
bool delete_interface(deletion &wan, const char *interface)
{
    const int deleted = config_del_section("network", interface);
    if (deleted == UCI_ERR_NOTFOUND)
        return false;
    wan.error |= deleted;
    wan.error |= config_del_list("firewall", "@zone[1]", "network", interface);
    return true;
}

// Deletes the three interfaces. Returns whether the WAN was routed.
bool delete_interfaces(deletion &wan)
{
    const bool had_interface = delete_interface(wan, wan.names.interface);
    wan.had_ipv6_interface = delete_interface(wan, wan.names.interface_v6);
    (void)delete_interface(wan, wan.names.dslite);
    return had_interface || wan.had_ipv6_interface;
}

// Finds the first entry of a bridge VLAN's ports that begins with the device's name, tagging letters and all.
void find_bridge_vlan_port(uci_list *ports, const char *device, text_ref port_out)
{
    uci_element *port = nullptr;
    uci_foreach_element(ports, port)
    {
        if (strncmp(port->name, device, strlen(device)) == 0)
            return port_out.set(port->name);
    }
}

void leave_bridge_vlans(const char *device)
{
    const uci_loaded network("network");
    if (!network)
        return;
    // Deliberate: cleared once for all sections, so a section without the device has the entry found last
    // deleted.
    char port[12] = {};
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        uci_list *const ports = network.list(section, "ports");
        if (strcmp(section->type, "bridge-vlan") != 0 || !ports)
            continue;
        find_bridge_vlan_port(ports, device, port);
        if (!text_empty(port))
            (void)config_del_list("network", element->name, "ports", c_text(port));
    }
}

void delete_bridged(deletion &wan)
{
    const c_text device(wan.device);
    wan.error |= config_del_list("network", "@device[0]", "ports", device);
    leave_bridge_vlans(device);
    wan_remove_bridge_rule(wan.id);
    wan_write_isolate_rule();
}

// With the last WAN gone, identifiers start from 1 again.
void restart_ids_when_empty(deletion &wan)
{
    if (wan_listed_count() == 0) // not when it cannot be read
        wan.error |= wan_ids_restart();
}

void finish(deletion &wan, int reload, int keep_ids)
{
    if (!keep_ids)
        restart_ids_when_empty(wan);
    if (reload) {
        if (!keep_ids && wan.mvid != 0)
            wan_write_mvlan_rule();
        reload_system_services(wan_deleted);
    } else if (wan.had_ipv6_interface) {
        reload_system_services(dhcpv6_deleted);
    }
    if ((reload || keep_ids) && wan_service_of(wan.service).carries_calls)
        reload_system_services(call_wan_deleted);
}

} // namespace

int wan_delete(uint8_t wanId, int reload, int keep_ids)
{
    deletion wan = {wanId, wan_names(wanId), {}, {}, {}, 0, 0, false, 0};
    if (wanId == 0 || wan_find_device(wanId, wan.device_section, wan.device) != 0) {
        log_error("Failed to delete wan_%u", wanId);
        note_refusal(keep_ids ? wan_action::lost : wan_action::refused, "there is no such WAN");
        return no_such_wan;
    }
    (void)config_get("network", wan.device_section, STORED(wanName).name, wan.link_name);
    note_subject(wan.link_name, text_view(wan.device));
    wan.service = static_cast<uint8_t>(device_number(wan, STORED(service)));
    wan.mvid = static_cast<uint16_t>(device_number(wan, STORED(mvid)));

    wan.error |= wan_id_unlist(wan.names);
    if (wan.error != 0 && keep_ids) {
        // Nobody would write the WAN again: better to leave it whole.
        log_error("Failed to delete wan_%u: %d", wanId, wan.error);
        note_refusal(wan_action::failed, "the configuration cannot be written");
        return wan.error;
    }
    // That write also committed what others had left pending, and may so have renamed the section.
    (void)wan_find_device(wanId, wan.device_section, wan.device);
    wan.error |= config_del_section("network", wan.device_section);
    if (delete_interfaces(wan)) {
        wan.error |= wan_delete_references(wan.names.interface);
        wan_remove_route_rule(wanId);
    } else {
        delete_bridged(wan);
    }
    finish(wan, reload, keep_ids);

    if (wan.error != 0)
        log_error("Failed to delete wan_%u: %d", wanId, wan.error);
    if (!keep_ids)
        note_wan(wan_action::deleted, wanId, wan.link_name, text_view(wan.device), wan.error == 0);
    return wan.error;
}

namespace {

// The status that clients get with every refusal.
int refuse(request &self)
{
    (void)self.reply.say(-1, "korvel del ERR!");
    return UBUS_STATUS_INVALID_ARGUMENT;
}

int delete_asked(request &self)
{
    const uint8_t wan_id = self.wan.wanId;
    int result = 0;
    auto remove = [&] {
        result = wan_delete(wan_id, /*reload=*/1, /*keep_ids=*/0);
        return result != no_such_wan;
    };
    const operation_work works[] = {work_of(remove)};
    const operation_result outcome = change_run(works, wan_id);
    if (outcome == operation_result::done)
        wan_generation_ends(wan_id);
    if (outcome == operation_result::failed || result != 0)
        return refuse(self);
    return self.reply.say(0, "korvel del OK.");
}

constexpr method_kind deletion_of_one = {.work = delete_asked, .refuse = refuse};

} // namespace

int wan_handle_del(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                   blob_attr *message)
{
    blob_attr *arguments[1];
    parse_request(wan_id_policy.rows, message, arguments);
    if (!arguments[arg_wan_id]) {
        (void)reply_at_once(bus, request, -1, "korvel del ERR!");
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    wan_config asked = {};
    asked.wanId = static_cast<uint8_t>(blobmsg_get_u32(arguments[arg_wan_id]));
    return request_defer(deletion_of_one, lane_name::changes, bus, request, asked);
}
