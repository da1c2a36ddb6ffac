#include "remove/orphans.h"

#include "base/config.h"
#include "base/log.h"
#include "base/operation.h"
#include "base/os.h"
#include "remove/references.h"
#include "rules/bridge_rule.h"
#include "rules/route_rule.h"
#include "store/id_list.h"
#include "store/section_index.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>

namespace {

void find_sections(const uci_loaded &network, const wan_section_index &wans, orphan_list &found)
{
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        uint8_t id = 0;
        uci_section *interface = nullptr;
        if (strcmp(section->type, "device") == 0) {
            const bool is_wans =
                network.option(section, STORED(vid).name) || network.option(section, STORED(wanName).name);
            if (is_wans && !network.option(section, STORED(device).name))
                found.add(orphan_kind::device, 0, element->name, "");
        } else if (strcmp(section->type, "interface") == 0 &&
                   wans.find_interface(element->name, id, interface) && !wans.of(id).device) {
            found.add(orphan_kind::interface, id, element->name, "");
        }
    }
}

void find_zone_entries(const wan_section_index &wans, orphan_list &found)
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
            uci_section *interface = nullptr;
            if (wans.find_interface(entry->name, id, interface) && !interface)
                found.add(orphan_kind::zone_entry, id, element->name, entry->name);
        }
    }
}

// Values that merely contain a name may be somebody else's, and the proxy's uplink may stay with the IPv6
// interface of a WAN that was deleted.
void find_references(const wan_section_index &wans, orphan_list &found)
{
    const std::span<const wan_reference> all = wan_references();
    for (size_t row = 0; row < all.size(); row++) {
        char value[16] = {};
        if (all[row].substring || wan_read_reference(all[row], value) != 0)
            continue;
        uint8_t id = 0;
        uci_section *interface = nullptr;
        if (wans.find_interface(value, id, interface) && !wans.of(id).device &&
            strcmp(value, wan_names(id).interface) == 0)
            found.add(orphan_kind::reference, static_cast<uint8_t>(row), all[row].config, value);
    }
}

using script_owners = bool[UINT8_MAX + 1];

// Finds out which WANs have a script of one kind, whose names come from path_of. Asking for each script that
// there may be takes longer than the rest of a start.
void find_owners(script_path (*path_of)(uint8_t), script_owners &found_out)
{
    script_path place = path_of(0);
    *strrchr(place.text, '/') = '\0';
    DIR *const directory = opendir(place.text);
    if (directory)
        errno = 0;
    while (const dirent *const entry = directory ? readdir(directory) : nullptr) {
        const char *const mark = strstr(entry->d_name, wan_interface_mark);
        const uint8_t id =
            mark ? static_cast<uint8_t>(text_number(mark + strlen(wan_interface_mark))) : uint8_t{0};
        if (id != 0 && strcmp(strrchr(path_of(id).text, '/') + 1, entry->d_name) == 0)
            found_out[id] = true;
        errno = 0;
    }
    if (errno != 0 && errno != ENOENT && errno != ENOTDIR)
        operation_fail(place.text, strerror(errno));
    if (directory)
        (void)closedir(directory);
}

void find_scripts(const wan_section_index &wans, orphan_kind kind, script_path (*path_of)(uint8_t),
                  orphan_list &found)
{
    script_owners owners = {};
    find_owners(path_of, owners);
    for (uint32_t number = 1; number <= UINT8_MAX; number++) {
        const uint8_t id = static_cast<uint8_t>(number);
        if (!owners[id] || wans.of(id).device)
            continue;
        if (const script_path path = path_of(id); file_exists(path.text))
            found.add(kind, id, "", path.text);
    }
}

void find_identifiers(const uci_loaded &network, const wan_section_index &wans, orphan_list &found)
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
        else if (times[id] == 1 && !wans.of(id).device)
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
    const wan_section_index wans(network);
    find_sections(network, wans, found);
    find_zone_entries(wans, found);
    find_references(wans, found);
    find_scripts(wans, orphan_kind::bridge_script, bridge_rule_path, found);
    find_scripts(wans, orphan_kind::route_script, route_rule_path, found);
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
