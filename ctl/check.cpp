#include "ctl/check.h"

#include "ctl/gateway_state.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "ctl/stored.h"
#include "service/board.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/read_config.h"

#include <unistd.h>

namespace {

void read_wans(const uci_loaded &network, wan_list &wans)
{
    uci_list *const entries = wan_listed_ids(network);
    if (!entries)
        return;
    bus_connection bus;
    uci_element *entry = nullptr;
    uci_foreach_element(entries, entry)
    {
        wan_config record = {};
        record.wanId = static_cast<uint8_t>(text_number(entry->name));
        if (record.wanId != 0 && record.wanId <= maxWanId && !wans.find(record.wanId) &&
            wan_device_section(network, record.wanId) && read_stored(network, record.wanId, &record)) {
            read_link_state(bus, &record);
            (void)wans.add(record);
        }
    }
}

} // namespace

bool has_bound_ports(const wan_config &record)
{
    const size_t ports = static_cast<size_t>(board_port_count());
    return memchr(record.bind, '1', ports < sizeof(record.bind) ? ports : sizeof(record.bind)) != nullptr;
}

uci_section *section_at(const uci_loaded &package, const char *type, size_t position)
{
    uci_element *element = nullptr;
    uci_foreach_element(package.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        if (strcmp(section->type, type) == 0 && position-- == 0)
            return section;
    }
    return nullptr;
}

bool list_has(const uci_loaded &package, uci_section *section, const char *option, const char *entry)
{
    const char *const plain = package.plain(section, option);
    uci_list *const entries = package.list(section, option);
    if (!entries)
        return plain && strcmp(plain, entry) == 0;
    uci_element *element = nullptr;
    uci_foreach_element(entries, element)
    {
        if (strcmp(element->name, entry) == 0)
            return true;
    }
    return false;
}

exit_status run_check(std::span<char *const> words)
{
    if (const exit_status result = read_short_line(words, "check takes no ", "; it looks at everything");
        result != exit_status::done)
        return result;
    const uci_loaded network("network");
    if (!network || !load_stored_settings()) {
        (void)fail(exit_status::unknown,
                   "the configuration network cannot be read, or has no section korvel with maxWanId");
        return exit_status::unknown;
    }
    finding_report report;
    if (!load_ports())
        report.cannot_tell("The board does not tell its ports; what is bound to them is not known.");
    wan_list wans;
    read_wans(network, wans);
    check_configuration(network, wans, report);
    check_prerequisites(network, report);
    if (geteuid() == 0)
        check_kernel(wans, report);
    else
        report.cannot_tell("The kernel's rules are for root to see.");
    return report.end();
}
