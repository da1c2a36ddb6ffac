#include "remove/references.h"

#include "base/config.h"

namespace {

constexpr wan_reference references[] = {
    {"omcproxy", "@proxy[0]", "uplink", /*substring=*/false, /*whole_section=*/true, nullptr},
    {"upnpd", "config", "external_iface", /*substring=*/false, /*whole_section=*/false, nullptr},
    {"dhcp", "lan", "dns_sync_with_wan", /*substring=*/false, /*whole_section=*/false, "dhcp_option"},
    {"dhcp", "lan", "v6dns_sync_with_wan", /*substring=*/true, /*whole_section=*/false, "dns"},
    {"network", "lan", "ip6class", /*substring=*/true, /*whole_section=*/false, nullptr},
};

bool names_interface(const wan_reference &where, const char *interface)
{
    char value[10] = {};
    if (wan_read_reference(where, value) != 0)
        return false;
    return where.substring ? strstr(value, interface) != nullptr : strcmp(value, interface) == 0;
}

} // namespace

std::span<const wan_reference> wan_references()
{
    return references;
}

int wan_read_reference(const wan_reference &where, text_ref value_out)
{
    return config_get(where.config, where.section, where.option, value_out);
}

int wan_delete_reference(const wan_reference &where)
{
    const int error = where.whole_section ? config_del_section(where.config, where.section)
                                          : config_delete(where.config, where.section, where.option);
    if (where.also_delete)
        (void)config_delete(where.config, where.section, where.also_delete);
    return error;
}

int wan_delete_references(const char *interface)
{
    int error = 0;
    for (const wan_reference &where : references)
        if (names_interface(where, interface))
            error |= wan_delete_reference(where);
    return error;
}
