#include "remove/delete_all.h"

#include "base/config.h"
#include "base/heap.h"
#include "base/log.h"
#include "remove/delete_wan.h"
#include "remove/orphans.h"
#include "rules/bridge_rule.h"
#include "rules/isolation.h"
#include "rules/multicast_vlan.h"
#include "rules/route_rule.h"
#include "service/change.h"
#include "service/reload.h"
#include "service/request.h"
#include "store/generations.h"
#include "store/id_list.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

#include <cerrno>

namespace {

void remove_common_scripts()
{
    wan_remove_isolate_rule();
    wan_write_mvlan_rule();
}

unsigned remove_listed_scripts(uci_list *entries)
{
    unsigned count = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        const uint8_t id = static_cast<uint8_t>(text_number(entry->name));
        wan_remove_route_rule(id);
        wan_remove_bridge_rule(id);
        count++;
    }
    remove_common_scripts();
    return count;
}

bool must_go(const uci_loaded &network, uci_section *section)
{
    if (strcmp(section->type, "device") == 0) {
        const char *const name = network.plain(section, STORED(device).name);
        return name && strcmp(name, "br-lan") != 0;
    }
    return strcmp(section->type, "interface") == 0 && strstr(section->e.name, wan_interface_mark);
}

// A device section with a link name is a WAN.
void note_deletion(const uci_loaded &network, uci_section *section)
{
    const char *const link_name = network.plain(section, STORED(wanName).name);
    const char *const device = network.plain(section, STORED(device).name);
    if (link_name && device)
        note_wan(wan_action::deleted, static_cast<uint8_t>(text_number(link_name)), link_name, device,
                 /*complete=*/true);
}

// Deletes from the last section to the first: written at once, a deletion gives every unnamed section behind
// it another name, while those before it keep theirs.
unsigned sweep_sections()
{
    const uci_loaded network("network");
    if (!network)
        return 0;
    unsigned count = 0;
    uci_list *before = nullptr;
    for (uci_list *at = network.sections()->prev; at != network.sections(); at = before) {
        before = at->prev; // a gathered deletion takes the section out of this very list
        uci_section *const section = uci_to_section(list_to_element(at));
        if (!must_go(network, section))
            continue;
        count++;
        note_deletion(network, section); // before it is gone
        if (config_del_section("network", section->e.name) != 0)
            log_error("Failed to delete section %s", section->e.name);
    }
    return count;
}

// Deletes the WANs of the list and returns the OR of what failed. Each deletion takes its entry out of the
// list, so the identifiers are read beforehand.
int delete_listed(uci_list *entries)
{
    size_t count = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry) count++;
    const heap_ptr<uint8_t[]> ids(static_cast<uint8_t *>(malloc(count + 1)));
    if (!ids) {
        operation_fail(UCI_CONFDIR "/network", strerror(ENOMEM));
        return UCI_ERR_MEM;
    }
    count = 0;
    uci_foreach_element(entries, entry) ids[count++] = static_cast<uint8_t>(text_number(entry->name));

    int error = 0;
    for (size_t i = 0; i < count; i++)
        error |= wan_delete(ids[i], /*reload=*/0, /*keep_ids=*/0);
    return error;
}

// Returns whether anything was there to be swept.
bool sweep_without_list()
{
    if (wan_force_clear() == 0)
        return false;
    log_warning("Failed to get wan list, force clear uci config");
    return true;
}

void delete_by_list(uci_list *entries)
{
    const int error = delete_listed(entries);
    remove_common_scripts();
    if (error == 0)
        return;
    (void)wan_force_clear();
    log_warning("Error happened when deleting all wan, force clear uci config: %d", error);
}

} // namespace

unsigned wan_force_clear()
{
    unsigned count = 0;
    {
        const uci_loaded network("network");
        if (!network)
            return 0;
        if (uci_list *const entries = wan_listed_ids(network))
            count += remove_listed_scripts(entries);
    }
    // Before the sections: this write also commits what others left pending, so that the names read next stay
    // true.
    if (wan_ids_restart() != 0)
        log_error("Failed to reset maxWanId");
    count += sweep_sections();
    wan_list_delete();
    return count;
}

bool wan_delete_all()
{
    const uci_loaded network("network");
    if (!network || !network.section("korvel"))
        return false;
    bool found = true;
    if (uci_list *const entries = wan_listed_ids(network))
        delete_by_list(entries);
    else
        found = sweep_without_list();
    if (wan_remove_orphans() == 0 && !found)
        return false;
    reload_system_services(all_wans_deleted);
    return true;
}

namespace {

int delete_everything(request &)
{
    bool found = false;
    auto remove = [&] {
        found = wan_delete_all();
        return true;
    };
    const operation_work works[] = {work_of(remove)};
    // It logs what fails, and there is nothing to reply.
    if (change_run(works, 0) == operation_result::done && found)
        wan_all_generations_end();
    return UBUS_STATUS_OK;
}

constexpr method_kind deletion_of_all = {
    .work = delete_everything, .refuse = [](request &) -> int { return UBUS_STATUS_UNKNOWN_ERROR; }};

} // namespace

int wan_handle_del_all(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                       blob_attr *)
{
    return request_defer(deletion_of_all, lane_name::changes, bus, request, {});
}
