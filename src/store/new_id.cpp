#include "store/new_id.h"

#include "base/config.h"
#include "base/log.h"
#include "store/generations.h"
#include "store/id_list.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

#include <atomic>

namespace {

constexpr uint32_t greatest_id = 255;

// The identifier of a WAN that is being written again; 0: none.
constinit std::atomic<uint8_t> held_id = 0;

bool is_allowed(uint32_t id)
{
    return id >= 1 && id <= greatest_id && (id < first_reserved_id || id > last_reserved_id);
}

bool is_listed(const uci_loaded &network, uint32_t id)
{
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return false;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        if (static_cast<uint8_t>(text_number(entry->name)) == id)
            return true;
    }
    return false;
}

bool has_sections(const uci_loaded &network, uint32_t id)
{
    const wan_names names(id);
    const wan_names::prefix prefix = wan_names::device_prefix(id);
    const size_t prefix_length = strlen(prefix.text);
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        for (const char *const name : {names.interface, names.interface_v6, names.dslite})
            if (strcmp(element->name, name) == 0)
                return true;
        uci_section *const section = uci_to_section(element);
        if (strcmp(section->type, "device") != 0)
            continue;
        const char *const link_name = network.plain(section, STORED(wanName).name);
        if (link_name && strncmp(link_name, prefix.text, prefix_length) == 0)
            return true;
    }
    return false;
}

bool is_usable(const uci_loaded &network, uint32_t id)
{
    return is_allowed(id) && id != held_id && !is_listed(network, id) && !has_sections(network, id);
}

uint32_t choose()
{
    const uint32_t next = wan_id_next();
    const uci_loaded network("network");
    if (!network) // nothing will be written either
        return is_allowed(next) ? next : 0;
    if (is_usable(network, next))
        return next;
    for (uint32_t id = 1; id <= greatest_id; id++)
        if (is_usable(network, id))
            return id;
    return 0;
}

} // namespace

uint8_t wan_id_choose()
{
    const uint32_t id = choose();
    if (id == 0)
        log_error("No WAN identifier is left");
    return static_cast<uint8_t>(id);
}

void wan_id_take(uint8_t id)
{
    wan_generation_ends(id);
    const uint32_t next = wan_id_next();
    if (id == next) {
        (void)wan_id_alloc(0);
        return;
    }
    log_warning("WAN identifier %u cannot be used, %u is taken instead", next, id);
    wan_id_cover(id);
    (void)wan_id_alloc(id);
}

wan_id_hold::wan_id_hold(uint8_t id)
{
    held_id = id;
}

wan_id_hold::~wan_id_hold()
{
    held_id = 0;
}
