#include "store/id_list.h"

#include "service/settings.h"
#include "wan/stored_options.h"

#include <cstdio>

namespace {

// The section and the option that hold the list.
constexpr char list_section[] = "korvel";
constexpr char list_option[] = "wanList";

// Sets the highest identifier in memory and in the configuration. Returns the configuration's result.
int set_highest_id(uint32_t highest)
{
    maxWanId = highest;
    return config_set_number("network", list_section, "maxWanId", static_cast<int>(highest));
}

uint32_t list_id(uint32_t id)
{
    (void)config_add_list("network", list_section, list_option, wan_names(id).id);
    return id;
}

// Whether new identifiers fill gaps; the option's value in use_out.
bool fills_gaps(uint32_t *use_out)
{
    return uci_get_int(list_section, "use_min_wan_id", use_out) == 0 && *use_out != 0;
}

} // namespace

uci_list *wan_listed_ids(const uci_loaded &network)
{
    return network ? network.list(network.section(list_section), list_option) : nullptr;
}

size_t wan_listed_count(const uci_loaded &network)
{
    uci_option *const list = network ? network.option(network.section(list_section), list_option) : nullptr;
    if (!list || list->type != UCI_TYPE_LIST)
        return list ? 1 : 0;
    size_t count = 0;
    uci_element *entry = nullptr;
    uci_foreach_element(&list->v.list, entry)
    {
        count++;
    }
    return count;
}

int wan_listed_count()
{
    return config_total_list("network", list_section, list_option);
}

int wan_id_unlist(const wan_names &names)
{
    return config_del_list("network", list_section, list_option, names.id);
}

void wan_list_delete()
{
    (void)config_delete("network", list_section, list_option);
}

int wan_ids_restart()
{
    return set_highest_id(0);
}

uint32_t wan_min_free_id()
{
    const uci_loaded network("network");
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return no_free_id;

    uint32_t candidate = 1;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        if (static_cast<uint32_t>(text_number(entry->name)) != candidate)
            break;
        candidate++;
    }
    return candidate;
}

uint32_t wan_own_or_free_id(uint8_t wan_id, uint8_t highest_own)
{
    if (wan_id <= highest_own)
        return wan_id;
    const uint32_t first_free = wan_min_free_id();
    return first_free == no_free_id ? wan_id : first_free;
}

uint32_t wan_id_next()
{
    const uint32_t first = wan_min_free_id();
    uint32_t use = 0;
    return fills_gaps(&use) && first != no_free_id ? first : maxWanId + 1;
}

void wan_id_cover(uint32_t id)
{
    if (maxWanId < id)
        (void)set_highest_id(id);
}

uint32_t wan_id_alloc(uint32_t requested)
{
    const uint32_t fixed = requested & 0xff;
    const uint32_t first = wan_min_free_id();
    uint32_t use = 0;
    if (fixed != 0)
        return list_id(fixed);
    if (!fills_gaps(&use) || first == no_free_id) {
        (void)set_highest_id(maxWanId + 1);
        return list_id(maxWanId);
    }

    const int listed = wan_listed_count();
    (void)set_highest_id(static_cast<uint32_t>(listed < 0 ? 0 : listed) + 1);
    list_id(first);
    printf("use_min_wan_id = %u, min_wan_id = %d, maxWanId = %d\n", use, static_cast<int>(first),
           static_cast<int>(maxWanId.load()));
    (void)fflush(stdout);
    return first;
}

void wan_port_binding_reset(const char *section)
{
    uci_context *const context = uci_alloc_context();
    if (!context)
        return;
    uci_ptr location = {};
    location.package = "network";
    location.section = section;
    location.option = STORED(bind).name;
    location.value = "0";
    (void)uci_commit(context, &location.p, false);
    uci_free_context(context);
}
