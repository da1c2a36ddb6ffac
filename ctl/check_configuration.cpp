// What `check` sees in the configurations and among the scripts.
#include "ctl/check.h"

#include "base/os.h"
#include "ctl/verdict.h"
#include "ctl/words.h"
#include "remove/orphans.h"
#include "remove/references.h"
#include "rules/firewall_mark.h"
#include "rules/isolation.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/new_id.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

#include <cstdlib>

namespace {

constexpr char restart[] = "/etc/init.d/korvel restart writes missing scripts";

void report_reference(const orphan &which, finding_report &report)
{
    const wan_reference &where = wan_references()[which.id];
    const finding number = strcmp(where.config, "omcproxy") == 0 ? finding::proxy_without_interface
                           : strcmp(where.config, "upnpd") == 0  ? finding::upnp_without_interface
                                                                 : finding::dhcp_without_interface;
    report
        .found(number, "%s of %s.%s is %s, which is no WAN", where.option, where.config, where.section,
               which.text)
        .remedy("uci delete %s.%s.%s && uci commit %s", where.config, where.section, where.option,
                where.config);
}

void report_orphan(const orphan &which, finding_report &report)
{
    constexpr char all_go[] = "korvelctl del --all removes such things, with every WAN; this one by hand: ";
    switch (which.kind) {
    case orphan_kind::device:
        return report
            .found(finding::device_without_name, "Device section %s belongs to no WAN, it has no name",
                   which.section)
            .remedy("%suci delete network.%s && uci commit network", all_go, which.section);
    case orphan_kind::interface:
        return report.found(finding::interface_without_wan, "Interface %s belongs to no WAN", which.section)
            .remedy("%suci delete network.%s && uci commit network", all_go, which.section);
    case orphan_kind::zone_entry:
        return report
            .found(finding::zone_entry_without_interface, "Firewall zone %s has %s, which is no interface",
                   which.section, which.text)
            .remedy("%suci del_list firewall.%s.network=%s && uci commit firewall", all_go, which.section,
                    which.text);
    case orphan_kind::reference:
        return report_reference(which, report);
    case orphan_kind::bridge_script:
    case orphan_kind::route_script:
        return report.found(finding::script_without_wan, "Script %s belongs to no WAN", which.text)
            .remedy("%s%s -r; rm %s", all_go, which.text, which.text);
    case orphan_kind::listed:
        return report
            .found(finding::listed_without_device, "Identifier %s is in wanList and has no device section",
                   which.text)
            .remedy("uci del_list network.korvel.wanList=%s && uci commit network", which.text);
    case orphan_kind::listed_twice:
        return report.found(finding::listed_twice, "Identifier %s is in wanList more than once", which.text)
            .remedy("uci del_list network.korvel.wanList=%s && uci add_list "
                    "network.korvel.wanList=%s && uci commit network",
                    which.text, which.text);
    }
}

void check_orphans(finding_report &report)
{
    orphan_list found;
    wan_find_orphans(found);
    for (size_t i = 0; i < found.size; i++)
        report_orphan(found.rows[i], report);
}

bool is_listed(const uci_loaded &network, uint8_t id)
{
    uci_list *const entries = wan_listed_ids(network);
    uci_element *entry = nullptr;
    if (!entries)
        return false;
    uci_foreach_element(entries, entry)
    {
        if (static_cast<uint8_t>(text_number(entry->name)) == id)
            return true;
    }
    return false;
}

void check_device_sections(const uci_loaded &network, finding_report &report)
{
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        uci_section *const section = uci_to_section(element);
        const char *const link_name = network.plain(section, STORED(wanName).name);
        if (strcmp(section->type, "device") != 0 || !link_name)
            continue;
        const int id = text_number(link_name);
        if (id > 0 && id <= UINT8_MAX && !is_listed(network, static_cast<uint8_t>(id)))
            report
                .found(finding::device_not_listed,
                       "Device section %s (%s) has an identifier that is not in wanList", element->name,
                       link_name)
                .remedy("uci add_list network.korvel.wanList=%d && uci commit network", id);
    }
}

void check_identifiers(const uci_loaded &network, finding_report &report)
{
    uci_list *const entries = wan_listed_ids(network);
    uci_element *entry = nullptr;
    if (!entries)
        return;
    uci_foreach_element(entries, entry)
    {
        const uint32_t id = static_cast<uint32_t>(text_number(entry->name));
        if (id > maxWanId)
            report
                .found(finding::above_highest,
                       "Identifier %u is above maxWanId, which is %u; the daemon cannot read that WAN", id,
                       maxWanId.load())
                .remedy("uci set network.korvel.maxWanId=%u && uci commit network && /etc/init.d/korvel "
                        "restart",
                        id);
        if (id >= first_reserved_id && id <= last_reserved_id)
            report.found(finding::reserved_identifier, "The routing table of WAN %u is the kernel's own", id)
                .remedy("note its settings (korvelctl show %u --secrets), korvelctl del %u, and add it anew",
                        id, id);
    }
}

// The interfaces that a WAN has: a null ends them.
struct interface_list {
    const char *names[4] = {};
    interface_list(const wan_config &record, const wan_names &all)
    {
        size_t count = 0;
        const bool dhcp = record.ipMode == ip_mode_dhcp;
        if (record.wanMode != wan_mode_routed)
            return;
        if (!dhcp || (record.ipProtocol & ip_protocol_v4) != 0)
            names[count++] = all.interface;
        if (dhcp && (record.ipProtocol & ip_protocol_v6) != 0)
            names[count++] = all.interface_v6;
        if (record.ipv6DsLite && record.ipProtocol == ip_protocol_v6)
            names[count++] = all.dslite;
    }
};

// A WAN on its way through the check.
struct checked_wan {
    const uci_loaded &network;
    const uci_loaded &firewall;
    const wan_config &record;
    finding_report &report;
    const wan_title title{record};
};

void check_interfaces(const checked_wan &wan)
{
    const wan_names names(wan.record.wanId);
    const interface_list interfaces(wan.record, names);
    uci_section *const zone = wan.firewall ? section_at(wan.firewall, "zone", 1) : nullptr;
    for (const char *const name : interfaces.names) {
        if (!name)
            return;
        if (!wan.network.section(name))
            wan.report.found(finding::wan_without_interface, "%s has no interface %s", wan.title.text, name)
                .remedy("korvelctl del %u, and add it anew", wan.record.wanId);
        else if (zone && !list_has(wan.firewall, zone, "network", name))
            wan.report
                .found(finding::interface_outside_zone,
                       "Interface %s of %s is not in the WAN zone of the firewall", name, wan.title.text)
                .remedy("uci add_list firewall.@zone[1].network=%s && uci commit firewall && "
                        "/etc/init.d/firewall reload",
                        name);
    }
}

void check_bridge_port(const checked_wan &wan)
{
    const c_text device(wan.record.device);
    if (wan.record.wanMode != wan_mode_bridged ||
        list_has(wan.network, section_at(wan.network, "device", 0), "ports", device))
        return;
    wan.report
        .found(finding::bridged_outside_bridge, "%s is bridged, but %s is no port of the LAN bridge",
               wan.title.text, device.data)
        .remedy("uci add_list network.@device[0].ports=%s && uci commit network && /etc/init.d/network "
                "reload",
                device.data);
}

void check_script(const checked_wan &wan)
{
    const wan_config &record = wan.record;
    const bool routed = record.wanMode == wan_mode_routed, bound = has_bound_ports(record);
    const script_path path = routed ? route_rule_path(record.wanId) : bridge_rule_path(record.wanId);
    const bool has_one = bound || (routed && record.service != service_other);
    if (has_one && !file_exists(path.text))
        wan.report.found(finding::wan_without_script, "%s has no script %s", wan.title.text, path.text)
            .remedy("%s", restart);
}

void check_bridged(const wan_list &wans, finding_report &report)
{
    size_t bridged = 0;
    for (const wan_config &record : wans)
        bridged += record.wanMode == wan_mode_bridged && record.vlanMode;
    if (bridged > most_isolated_devices)
        report
            .found(finding::too_many_bridged,
                   "%zu WANs are bridged; only %zu are kept from forwarding to all others", bridged,
                   most_isolated_devices)
            .remedy("delete some of them: korvelctl status, korvelctl del ID");
    if (bridged > 1 && !file_exists(isolate_rule_path))
        report
            .found(finding::wan_without_script,
                   "%zu WANs are bridged, and %s that keeps them apart is not there", bridged,
                   isolate_rule_path)
            .remedy("korvelctl modify one of them with what it has: that writes the script anew");
}

// Each pair once.
void check_overlaps(const wan_list &wans, finding_report &report)
{
    for (const wan_config *one = wans.begin(); one != wans.end(); one++) {
        const wan_title title(*one);
        wan_list behind;
        for (const wan_config *other = one + 1; other != wans.end(); other++)
            (void)behind.add(*other);
        if (const wan_config *const other = port_holder(*one, one->wanId, behind))
            report
                .found(finding::shared_port, "%s and %s bind the same port", title.text,
                       wan_title(*other).text)
                .remedy("korvelctl modify %u --ports ...", other->wanId);
        if (const wan_config *const other = vlan_holder(*one, one->wanId, behind))
            report
                .found(finding::shared_vlan,
                       "%s and %s have the same VLAN or multicast VLAN, which they cannot share", title.text,
                       wan_title(*other).text)
                .remedy("korvelctl modify %u --vlan ..., or --mvlan ...", other->wanId);
        for (const wan_config &other : behind)
            if (has_bound_ports(*one) && has_bound_ports(other) &&
                wan_firewall_mark(one->wanId) == wan_firewall_mark(other.wanId))
                report
                    .found(finding::shared_mark,
                           "%s and %s have the same firewall mark 0x%x; each has the other's traffic",
                           title.text, wan_title(other).text, wan_firewall_mark(one->wanId))
                    .remedy("delete one and add it anew with an identifier below 21, or unbind its ports: "
                            "korvelctl modify %u --ports none",
                            other.wanId);
    }
}

void check_ipv6_on_ports(const checked_wan &wan)
{
    const wan_config &record = wan.record;
    if (record.wanMode == wan_mode_routed && (record.ipProtocol & ip_protocol_v6) != 0 &&
        has_bound_ports(record))
        wan.report
            .found(finding::ipv6_on_ports,
                   "%s has IPv6, but the IPv6 of its ports %s goes by the main routing table", wan.title.text,
                   port_words(record).text)
            .remedy("korvelctl modify %u --ipv4, or --ports none", record.wanId);
}

// Marks are bits 12 to 31. Other packages take theirs by mask.
void check_foreign_marks(const wan_list &wans, finding_report &report)
{
    constexpr struct {
        const char *config, *section, *option;
        uint32_t usual;
    } packages[] = {{"mwan3", "globals", "mmx_mask", 0x3f00}, {"pbr", "config", "fw_mask", 0x00ff0000}};
    for (const auto &row : packages) {
        const uci_loaded package(row.config);
        if (!package)
            continue;
        const char *const text = package.plain(package.section(row.section), row.option);
        const uint32_t mask = text ? static_cast<uint32_t>(strtoul(text, nullptr, 16)) : row.usual;
        for (const wan_config &record : wans)
            if (has_bound_ports(record) && (wan_firewall_mark(record.wanId) & mask) != 0)
                report
                    .found(finding::foreign_mark, "The firewall mark 0x%x of %s is under %s's mask 0x%x",
                           wan_firewall_mark(record.wanId), wan_title(record).text, row.config, mask)
                    .remedy("move that mask: uci set %s.%s.%s=0xf00 && uci commit %s", row.config,
                            row.section, row.option, row.config);
    }
}

} // namespace

void check_configuration(const uci_loaded &network, const wan_list &wans, finding_report &report)
{
    const uci_loaded firewall("firewall");
    check_orphans(report);
    check_device_sections(network, report);
    check_identifiers(network, report);
    for (const wan_config &record : wans) {
        const checked_wan wan = {network, firewall, record, report};
        check_interfaces(wan);
        check_bridge_port(wan);
        check_script(wan);
        check_ipv6_on_ports(wan);
    }
    check_bridged(wans, report);
    check_overlaps(wans, report);
    check_foreign_marks(wans, report);
}

void check_prerequisites(const uci_loaded &network, finding_report &report)
{
    const uci_loaded firewall("firewall");
    uci_section *const bridge = section_at(network, "device", 0);
    const char *const type = network.plain(bridge, device_type_option);
    if (!firewall || !section_at(firewall, "zone", 1))
        report.found(finding::no_wan_zone, "The firewall has no second zone, which WANs go into")
            .remedy("add a zone wan behind the zone lan in /etc/config/firewall");
    if (!type || strcmp(type, "bridge") != 0)
        report
            .found(finding::no_bridge,
                   "The first device section of network is no bridge, which bridged WANs go into")
            .remedy("make the LAN bridge the first device section: uci reorder network.NAME=0 && uci commit "
                    "network");

    char text[160];
    if (!read_command("ip -V 2>/dev/null", text) || !strstr(text, "iproute2"))
        report
            .found(finding::no_iproute2, "ip is not that of iproute2; the scripts need its prohibiting rules")
            .remedy("install ip-full");
    if (!read_command("command -v ipcalc.sh", text) || text_empty(text))
        report.found(finding::no_ipcalc, "ipcalc.sh is not there, which routed WANs' scripts need")
            .remedy("reinstall base-files");
    if (!read_command("ebtables -t broute -L >/dev/null 2>&1 && echo there", text) || text_empty(text))
        report.found(finding::no_broute, "ebtables has no table broute, which bound ports need")
            .remedy("install ebtables-legacy and kmod-ebtables");
}
