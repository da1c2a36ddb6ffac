#include "store/section_index.h"

#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

// The identifier that a text's first digits give; three at most, as in every name that is made from one.
uint8_t leading_id(const char *digits)
{
    char text[4] = {};
    text_ref(text, sizeof(text) - 1).set(digits);
    return static_cast<uint8_t>(text_number(text));
}

using interface_member = uci_section *wan_sections::*;

// Which of a WAN's interfaces has a name; null: none of any WAN.
interface_member interface_of(const char *name, uint8_t &id_out)
{
    const char *const digits = strpbrk(name, "0123456789");
    const uint8_t id = digits ? leading_id(digits) : uint8_t{0};
    if (id == 0)
        return nullptr;
    const wan_names names(id);
    const struct {
        const char *name;
        interface_member member;
    } rows[] = {{names.interface, &wan_sections::interface},
                {names.interface_v6, &wan_sections::interface_v6},
                {names.dslite, &wan_sections::dslite}};
    for (const auto &row : rows) {
        if (strcmp(name, row.name) != 0)
            continue;
        id_out = id;
        return row.member;
    }
    return nullptr;
}

} // namespace

wan_section_index::wan_section_index(const uci_loaded &network)
{
    if (!network)
        return;
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        if (strcmp(section->type, "device") == 0)
            take_device(network, section);
        uint8_t id = 0;
        const interface_member member =
            section->anonymous ? nullptr
                               : interface_of(element->name, id); // else its name is a generated one
        if (member && !(wans_[id].*member))
            wans_[id].*member = section;
    }
}

void wan_section_index::take_device(const uci_loaded &network, uci_section *section)
{
    const char *const link_name = network.plain(section, STORED(wanName).name);
    if (!link_name || !network.plain(section, STORED(device).name))
        return;
    const uint8_t id = leading_id(link_name);
    const wan_names::prefix prefix = wan_names::device_prefix(id);
    if (!wans_[id].device && strncmp(link_name, prefix.text, strlen(prefix.text)) == 0)
        wans_[id].device = section;
}

bool wan_section_index::find_interface(const char *name, uint8_t &id_out, uci_section *&section_out) const
{
    const interface_member member = interface_of(name, id_out);
    if (!member)
        return false;
    section_out = wans_[id_out].*member;
    return true;
}
