#include "remove/orphans.h"

#include "base/config.h"
#include "base/log.h"
#include "base/operation.h"
#include "base/os.h"
#include "remove/references.h"
#include "rules/bridge_rule.h"
#include "rules/route_rule.h"
#include "store/id_list.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

#include <cerrno>
#include <cstdlib>

namespace {

// The WANs that have a device section, by identifier.
struct known_wans {
    bool has_device[UINT8_MAX + 1] = {};

    explicit known_wans(const uci_loaded &network)
    {
        uci_element *element = nullptr;
        uci_foreach_element(network.sections(), element)
        {
            uci_section *const section = uci_to_section(element);
            const char *const link_name = network.plain(section, STORED(wanName).name);
            if (strcmp(section->type, "device") == 0 && link_name &&
                network.plain(section, STORED(device).name))
                has_device[static_cast<uint8_t>(text_number(link_name))] = true;
        }
    }
};

// Whether an interface's name is one that a WAN gives, and which WAN's.
bool is_wan_interface(const char *name, uint8_t &id_out)
{
    const char *const digits = strpbrk(name, "0123456789");
    id_out = digits ? static_cast<uint8_t>(text_number(digits)) : uint8_t{0};
    const wan_names names(id_out);
    return id_out != 0 && (strcmp(name, names.interface) == 0 || strcmp(name, names.interface_v6) == 0 ||
                           strcmp(name, names.dslite) == 0);
}

void find_sections(const uci_loaded &network, const known_wans &wans, orphan_list &found)
{
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        uint8_t id = 0;
        if (strcmp(section->type, "device") == 0) {
            const bool is_wans =
                network.option(section, STORED(vid).name) || network.option(section, STORED(wanName).name);
            if (is_wans && !network.option(section, STORED(device).name))
                found.add(orphan_kind::device, 0, element->name, "");
        } else if (strcmp(section->type, "interface") == 0 && is_wan_interface(element->name, id) &&
                   !wans.has_device[id]) {
            found.add(orphan_kind::interface, id, element->name, "");
        }
    }
}

void find_zone_entries(const uci_loaded &network, orphan_list &found)
{
    const uci_loaded firewall("firewall");
    if (!firewall)
        return;
    uci_element *element = nullptr;
    uci_foreach_element(firewall.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        uci_list *const entries = firewall.list(section, "network");
        if (strcmp(section->type, "zone") != 0 || !entries)
            continue;
        uci_element *entry = nullptr;
        uci_foreach_element(entries, entry)
        {
            uint8_t id = 0;
            if (is_wan_interface(entry->name, id) && !network.section(entry->name))
                found.add(orphan_kind::zone_entry, id, element->name, entry->name);
        }
    }
}

// Values that merely contain a name may be somebody else's, and the proxy's uplink may stay with the IPv6
// interface of a WAN that was deleted.
void find_references(const known_wans &wans, orphan_list &found)
{
    const std::span<const wan_reference> all = wan_references();
    for (size_t row = 0; row < all.size(); row++) {
        char value[16] = {};
        if (all[row].substring || wan_read_reference(all[row], value) != 0)
            continue;
        uint8_t id = 0;
        if (is_wan_interface(value, id) && !wans.has_device[id] &&
            strcmp(value, wan_names(id).interface) == 0)
            found.add(orphan_kind::reference, static_cast<uint8_t>(row), all[row].config, value);
    }
}

void find_scripts(const known_wans &wans, orphan_list &found)
{
    for (uint32_t number = 1; number <= UINT8_MAX; number++) {
        const uint8_t id = static_cast<uint8_t>(number);
        if (wans.has_device[id])
            continue;
        const script_path bridge = bridge_rule_path(id), route = route_rule_path(id);
        if (file_exists(bridge.text))
            found.add(orphan_kind::bridge_script, id, "", bridge.text);
        if (file_exists(route.text))
            found.add(orphan_kind::route_script, id, "", route.text);
    }
}

void find_identifiers(const uci_loaded &network, const known_wans &wans, orphan_list &found)
{
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return;
    unsigned times[UINT8_MAX + 1] = {};
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        const uint8_t id = static_cast<uint8_t>(text_number(entry->name));
        if (++times[id] == 2)
            found.add(orphan_kind::listed_twice, id, "", entry->name);
        else if (times[id] == 1 && !wans.has_device[id])
            found.add(orphan_kind::listed, id, "", entry->name);
    }
}

void log_orphan(const orphan &which)
{
    switch (which.kind) {
    case orphan_kind::device:
        return log_warning("Device section %s belongs to no WAN, it has no name", which.section);
    case orphan_kind::interface:
        return log_warning("Interface %s belongs to no WAN", which.section);
    case orphan_kind::zone_entry:
        return log_warning("Firewall zone %s has %s, which is no interface", which.section, which.text);
    case orphan_kind::reference:
        return log_warning("%s.%s is %s, which is no WAN", which.section, wan_references()[which.id].option,
                           which.text);
    case orphan_kind::bridge_script:
    case orphan_kind::route_script:
        return log_warning("Script %s belongs to no WAN", which.text);
    case orphan_kind::listed:
        return log_warning("Identifier %s is listed and has no device section", which.text);
    case orphan_kind::listed_twice:
        return log_warning("Identifier %s is listed more than once", which.text);
    }
}

// Returns whether it is one that can be removed.
bool remove_orphan(const orphan &which)
{
    switch (which.kind) {
    case orphan_kind::device:
    case orphan_kind::interface:
        if (config_del_section("network", which.section) != 0)
            log_error("Failed to delete section %s", which.section);
        return true;
    case orphan_kind::zone_entry:
        if (config_del_list("firewall", which.section, "network", which.text) != 0)
            log_error("Failed to delete %s from firewall zone %s", which.text, which.section);
        return true;
    case orphan_kind::reference:
        if (wan_delete_reference(wan_references()[which.id]) != 0)
            log_error("Failed to delete %s from %s", which.text, which.section);
        return true;
    case orphan_kind::bridge_script:
        wan_remove_bridge_rule(which.id);
        return true;
    case orphan_kind::route_script:
        wan_remove_route_rule(which.id);
        return true;
    case orphan_kind::listed:
    case orphan_kind::listed_twice:
        return false;
    }
    return false;
}

} // namespace

orphan_list::~orphan_list()
{
    free(rows);
}

void orphan_list::add(orphan_kind kind, uint8_t id, const char *section, const char *text)
{
    orphan *const grown = static_cast<orphan *>(realloc(rows, (size + 1) * sizeof(orphan)));
    if (!grown)
        return operation_fail(UCI_CONFDIR "/network", strerror(ENOMEM));
    rows = grown;
    rows[size] = {kind, id, {}, {}};
    (void)text_ref(rows[size].section).format("%s", section);
    (void)text_ref(rows[size].text).format("%s", text);
    size++;
}

void wan_find_orphans(orphan_list &found)
{
    const uci_loaded network("network");
    if (!network)
        return;
    const known_wans wans(network);
    find_sections(network, wans, found);
    find_zone_entries(network, found);
    find_references(wans, found);
    find_scripts(wans, found);
    find_identifiers(network, wans, found);
}

void wan_log_orphans()
{
    orphan_list found;
    wan_find_orphans(found);
    for (size_t i = 0; i < found.size; i++)
        log_orphan(found.rows[i]);
}

unsigned wan_remove_orphans()
{
    orphan_list found;
    wan_find_orphans(found);
    unsigned count = 0;
    // From the last one on: written at once, a deletion gives the unnamed sections behind it other names.
    for (size_t i = found.size; i > 0; i--)
        count += remove_orphan(found.rows[i - 1]);
    return count;
}
