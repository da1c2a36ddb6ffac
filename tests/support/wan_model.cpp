#include "support/wan_model.h"

#include "support/gateway.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr unsigned ports = 8;
constexpr const char *port_names[ports] = {"eth0.1", "eth0.2", "eth0.3", "eth0.4",
                                           "ra0",    "ra1",    "rai0",   "rai1"};
constexpr char isolation_path[] = "/etc/korvel/rule_wan_isolate.sh";
constexpr char multicast_path[] = "/etc/korvel/rule_mvlan.sh";

std::string text_of(unsigned number)
{
    return std::to_string(number);
}

std::string wan_interface(uint8_t id, const char *suffix = "")
{
    return "wan_" + text_of(id) + suffix;
}

std::string bridge_script_path(uint8_t id)
{
    return "/etc/korvel/rule_wan_" + text_of(id) + ".sh";
}

std::string route_script_path(uint8_t id)
{
    return "/etc/hotplug.d/iface/99-wan_" + text_of(id);
}

bool serves_internet(uint8_t service)
{
    return service == 0 || service == 1 || service == 6 || service == 7;
}

bool binds_ports(uint8_t service)
{
    return serves_internet(service) || service == 3;
}

bool binds(const wan_config &wan, unsigned port)
{
    return port < strnlen(wan.bind, sizeof(wan.bind)) && wan.bind[port] == '1';
}

// The names of the ports that are bound, or of the others.
std::string port_list(const wan_config &wan, bool bound)
{
    std::string list;
    for (unsigned port = 0; port < ports; port++)
        if (binds(wan, port) == bound)
            list += (list.empty() ? "" : " ") + std::string(port_names[port]);
    return list;
}

std::string fill(std::string text, std::initializer_list<std::pair<const char *, std::string>> holes)
{
    for (const auto &[hole, value] : holes) {
        const std::string mark = "<" + std::string(hole) + ">";
        text.replace(text.find(mark), mark.size(), value);
    }
    return text;
}

std::string mark_text(unsigned bit)
{
    return text_of(1U << ((bit + 11) % 32));
}

void add_servers(config_section &interface, const char *first, const char *second)
{
    for (const char *const server : {first, second})
        if (*server)
            interface.add_list("dns", server);
}

void own_servers(config_section &interface, bool learnt, const char *first, const char *second)
{
    if (learnt)
        return;
    interface.set("peerdns", "0");
    add_servers(interface, first, second);
}

} // namespace

wan_model::wan_model(const std::map<std::string, std::string> &configurations)
{
    for (const auto &[name, text] : configurations)
        configurations_[name] = parse_config(text);
}

config_section &wan_model::wan_zone()
{
    size_t zones = 0;
    for (config_section &section : configurations_.at("firewall"))
        if (section.type == "zone" && zones++ == 1)
            return section;
    throw std::runtime_error("there is no second zone");
}

std::vector<uint8_t> wan_model::ids() const
{
    std::vector<uint8_t> ids;
    config_section &korvel = const_cast<wan_model *>(this)->korvel();
    if (const config_option *const list = korvel.find("wanList"))
        for (const std::string &id : list->values)
            ids.push_back(static_cast<uint8_t>(std::stoi(id)));
    return ids;
}

std::optional<size_t> wan_model::device_of(uint8_t id) const
{
    const config_sections &network = configurations_.at("network");
    for (size_t i = 0; i < network.size(); i++)
        if (network[i].type == "device" && network[i].value("lkname").starts_with(text_of(id) + "_"))
            return i;
    return std::nullopt;
}

// What a WAN that waits to be changed is read back as: only what is written somewhere.
wan_config wan_model::stored(uint8_t id) const
{
    wan_config wan = requested_.at(id);
    if (!binds_ports(wan.service))
        memset(wan.bind, 0, sizeof(wan.bind));
    if (!wan.vlanMode)
        wan.vid = wan.mvid = wan.prio = 0;
    if (!wan.ipv6AddrDsLite[0])
        wan.ipv6DsLite = 0;
    return wan;
}

int wan_model::conflict(const wan_config &wan, std::optional<size_t> own_device) const
{
    const bool bound = !port_list(wan, true).empty();
    if (wan.wanMode == 0 && wan.service == 3 && !bound)
        return -4;
    const config_sections &network = configurations_.at("network");
    for (size_t i = 0; i < network.size(); i++) {
        const config_section &other = network[i];
        if (other.type != "device" || other.value("type") == "bridge" || own_device == i)
            continue;
        if (const config_option *const binding = other.find("port_binding"))
            for (unsigned port = 0; port < binding->values.size(); port++)
                if (binding->values[port] == "1" && binds(wan, port))
                    return -3;
        const std::string vid = other.value("vid");
        if (wan.wanMode == 0 || other.value("wanMode") == "0")
            if (wan.vlanMode ? vid == text_of(wan.vid) : vid.empty())
                return -2;
        if (wan.mvid && (wan.mvid == wan.vid || other.value("mvid") == text_of(wan.mvid)))
            return -2;
    }
    return 0;
}

uint8_t wan_model::allocate()
{
    const unsigned id = static_cast<unsigned>(std::stoi(korvel().value("maxWanId"))) + 1;
    korvel().set("maxWanId", text_of(id));
    return static_cast<uint8_t>(id);
}

unsigned wan_model::first_gap() const
{
    unsigned candidate = 1;
    for (const uint8_t id : ids()) {
        if (id != candidate)
            break;
        candidate++;
    }
    return candidate;
}

unsigned wan_model::mark_number(uint8_t id) const
{
    return id <= 20 ? id : first_gap();
}

std::string wan_model::derived_mac(uint8_t id) const
{
    // The bridge's address is 00:11:22:33:44:55; identifiers of tests never make it carry.
    char text[18];
    snprintf(text, sizeof(text), "00:11:22:33:44:%02x", 0x55U + (id <= 7 ? id : first_gap()));
    return text;
}

int wan_model::add(const wan_config &wan)
{
    if (const int result = conflict(wan, std::nullopt))
        return result;
    create(wan, allocate());
    return 0;
}

int wan_model::modify(const wan_config &wan)
{
    if (const int result = conflict(wan, device_of(wan.wanId)))
        return result;
    if (erase(wan.wanId))
        create(wan, wan.wanId);
    return 0;
}

int wan_model::del(uint8_t id)
{
    const std::optional<size_t> device = device_of(id);
    const bool had_multicast = device && !network()[*device].value("mvid").empty();
    if (!erase(id))
        return -1;
    forget_highest_when_empty();
    if (had_multicast)
        write_multicast_script();
    return 0;
}

void wan_model::delete_all()
{
    for (const uint8_t id : ids())
        erase(id);
    forget_highest_when_empty();
    // Also what was left of a WAN without interfaces.
    scripts_.clear();
    for (unsigned id = 1; id <= UINT8_MAX; id++)
        erase_references(wan_interface(static_cast<uint8_t>(id)));
    write_multicast_script();
}

void wan_model::forget_highest_when_empty()
{
    if (ids().empty())
        korvel().set("maxWanId", "0");
}

void wan_model::create(const wan_config &wan, uint8_t id)
{
    requested_[id] = wan;
    requested_[id].wanId = id;
    korvel().add_list("wanList", text_of(id));
    const unsigned bound_ports = write_device(wan, id);
    if (wan.wanMode == 0) {
        bridge().add_list("ports", device_name(wan));
        write_isolation_script();
        if (bound_ports)
            write_bridge_script(wan, id);
    } else {
        write_routed(wan, id, bound_ports);
    }
    write_multicast_script();
}

unsigned wan_model::write_device(const wan_config &wan, uint8_t id)
{
    std::string mac = derived_mac(id);
    for (const config_section &other : network())
        if (other.type == "device" && other.value("name") == device_name(wan)) {
            mac = other.value("macaddr");
            break;
        }
    config_section device{"device", "", {}};
    if (wan.vlanMode) {
        device.set("type", "8021q");
        device.set("ifname", "pon");
        device.set("vid", text_of(wan.vid));
        device.set("mvid", wan.mvid ? text_of(wan.mvid) : "");
        if (wan.prio)
            device.add_list("egress_qos_mapping", "0:" + text_of(wan.prio));
    }
    const bool dialled = wan.wanMode == 1 && wan.ipMode == 2;
    device.set("name", device_name(wan));
    device.set("mtu", text_of(wan.mtu + (dialled ? 8U : 0U)));
    device.set("wanMode", text_of(wan.wanMode));
    device.set("IpProtocolType", text_of(wan.ipProtocol));
    device.set("service_mode", text_of(wan.service));
    device.set("disableLanDhcp", text_of(wan.disableLanDhcp));
    device.set("macaddr", mac);
    unsigned bound_ports = 0;
    for (unsigned port = 0; port < ports && binds_ports(wan.service); port++) {
        device.add_list("port_binding", binds(wan, port) ? "1" : "0");
        bound_ports += binds(wan, port);
    }
    if (wan.ipProtocol == 1)
        device.set("ipv6", "0");
    wan_config named = wan;
    named.wanId = id;
    device.set("lkname", link_name(named));
    network().push_back(device);
    return bound_ports;
}

config_section &wan_model::add_interface(const std::string &name)
{
    network().push_back({"interface", name, {}});
    return network().back();
}

void wan_model::join_zone(const std::string &interface)
{
    wan_zone().add_list("network", interface);
}

void wan_model::write_routed(const wan_config &wan, uint8_t id, unsigned bound_ports)
{
    if (wan.ipMode == 0)
        write_dhcp(wan, id);
    else
        write_main_interface(wan, id);
    write_tunnel(wan, id);
    if (wan.iphostId)
        if (config_section *const main = find_section(network(), "interface", wan_interface(id).c_str()))
            main->set("iphostId", text_of(wan.iphostId));
    if (!bound_ports && wan.service == 3)
        return;
    write_route_script(wan, id);
    if (serves_internet(wan.service))
        claim_services(wan, id);
}

// Static or dialled: IPv4 and IPv6 share the interface.
void wan_model::write_main_interface(const wan_config &wan, uint8_t id)
{
    config_section &interface = add_interface(wan_interface(id));
    const bool ipv4 = wan.ipProtocol & 1;
    const bool ipv6 = wan.ipProtocol & 2;
    interface.set("device", device_name(wan));
    interface.set("napt", text_of(wan.napt));
    interface.set("defaultroute", serves_internet(wan.service) ? "" : "0");
    interface.set("proto", wan.ipMode == 1 ? "static" : "pppoe");
    if (wan.ipMode == 1) {
        if (ipv4) {
            interface.set("ipaddr", wan.ip);
            interface.set("netmask", wan.mask);
            interface.set("gateway", wan.gateway);
            add_servers(interface, wan.priDns, wan.secDns);
        }
        if (ipv6) {
            interface.add_list("ip6addr", wan.ipv6Addr);
            interface.set("ip6gw", wan.ipv6Gateway);
            interface.set("ip6prefix", wan.ipv6Prefix);
        }
        if (ipv6)
            own_servers(interface, /*learnt=*/false, wan.priDnsV6, wan.secDnsV6);
    } else {
        interface.set("username", wan.pppUser);
        interface.set("password", wan.pppPwd);
        interface.set("service", wan.pppServName);
        interface.set("demand", wan.pppDialMode ? "300" : "");
        interface.set("ipv6", wan.ipProtocol == 1 ? "0" : "auto");
        if (ipv4)
            own_servers(interface, wan.autoDns, wan.priDns, wan.secDns);
        if (ipv6)
            own_servers(interface, wan.autoDnsV6, wan.priDnsV6, wan.secDnsV6);
    }
    if (ipv6 && !wan.ipv6PrefixProxy)
        interface.set("delegate", "0");
    join_zone(interface.name);
}

void wan_model::write_dhcp(const wan_config &wan, uint8_t id)
{
    if (wan.ipProtocol & 1) {
        config_section &interface = add_interface(wan_interface(id));
        interface.set("proto", "dhcp");
        interface.set("device", device_name(wan));
        interface.set("napt", text_of(wan.napt));
        own_servers(interface, wan.autoDns, wan.priDns, wan.secDns);
        interface.set("defaultroute", serves_internet(wan.service) ? "" : "0");
        join_zone(interface.name);
    }
    if (wan.ipProtocol & 2) {
        config_section &interface = add_interface(wan_interface(id, "_v6"));
        interface.set("proto", "dhcpv6");
        interface.set("device", device_name(wan));
        interface.set("reqaddress", "try");
        interface.set("reqprefix", "auto");
        own_servers(interface, wan.autoDnsV6, wan.priDnsV6, wan.secDnsV6);
        interface.set("defaultroute", serves_internet(wan.service) ? "" : "0");
        interface.set("delegate", wan.ipv6PrefixProxy ? "" : "0");
        join_zone(interface.name);
    }
}

void wan_model::write_tunnel(const wan_config &wan, uint8_t id)
{
    if (!wan.ipv6DsLite || wan.ipProtocol != 2)
        return;
    config_section &interface = add_interface("dslite_" + text_of(id));
    interface.set("proto", "dslite");
    interface.set("peeraddr", wan.ipv6AddrDsLite);
    interface.set("tunlink", wan_interface(id, wan.ipMode == 0 ? "_v6" : ""));
    interface.set("encaplimit", "ignore");
    join_zone(interface.name);
}

void wan_model::claim_services(const wan_config &wan, uint8_t id)
{
    config_sections &proxies = configurations_.at("omcproxy");
    config_section *const proxy = find_section(proxies, "proxy");
    if (!proxy || !proxy->find("uplink")) {
        if (proxy)
            proxies.erase(proxies.begin() + (proxy - proxies.data()));
        config_section claimed{"proxy", "", {}};
        claimed.set("uplink", wan_interface(id, wan.ipProtocol == 2 && wan.ipMode == 0 ? "_v6" : ""));
        claimed.set("downlink", "lan");
        proxies.push_back(claimed);
    }
    config_section &upnp = *find_section(configurations_.at("upnpd"), "upnpd", "config");
    if (!upnp.find("external_iface"))
        upnp.set("external_iface", wan_interface(id));
}

bool wan_model::erase_interface(const std::string &name)
{
    if (std::erase_if(network(), [&](const config_section &section) { return section.name == name; }) == 0)
        return false;
    wan_zone().del_list("network", name);
    return true;
}

// Deletes a WAN, but not what depends on the list as a whole. Returns whether there was one.
bool wan_model::erase(uint8_t id)
{
    const std::optional<size_t> device = device_of(id);
    if (!device)
        return false;
    const std::string name = network()[*device].value("name");
    korvel().del_list("wanList", text_of(id));
    network().erase(network().begin() + static_cast<ptrdiff_t>(*device));
    const bool had_main = erase_interface(wan_interface(id));
    const bool had_ipv6 = erase_interface(wan_interface(id, "_v6"));
    erase_interface("dslite_" + text_of(id));
    if (had_main || had_ipv6) {
        erase_references(wan_interface(id));
        scripts_.erase(route_script_path(id));
    } else {
        bridge().del_list("ports", name);
        scripts_.erase(bridge_script_path(id));
        write_isolation_script();
    }
    return true;
}

void wan_model::erase_references(const std::string &interface)
{
    config_sections &proxies = configurations_.at("omcproxy");
    std::erase_if(proxies, [&](const config_section &proxy) { return proxy.value("uplink") == interface; });
    config_section &upnp = *find_section(configurations_.at("upnpd"), "upnpd", "config");
    if (upnp.value("external_iface") == interface)
        upnp.remove("external_iface");
}

void wan_model::write_bridge_script(const wan_config &wan, uint8_t id)
{
    scripts_[bridge_script_path(id)] =
        fill(golden("model/bridge_rule.sh"), {{"disable_dhcp", text_of(wan.disableLanDhcp)},
                                              {"mark", mark_text(mark_number(id))},
                                              {"device", device_name(wan)},
                                              {"unbound", port_list(wan, false)},
                                              {"bound", port_list(wan, true)}});
}

void wan_model::write_route_script(const wan_config &wan, uint8_t id)
{
    scripts_[route_script_path(id)] =
        fill(golden("model/route_rule.sh"), {{"bound", port_list(wan, true)},
                                             {"disable_dhcp", text_of(wan.disableLanDhcp)},
                                             {"mark", mark_text(mark_number(id))},
                                             {"id", text_of(id)},
                                             {"table", text_of(id + 100U)},
                                             {"service", text_of(wan.service)}});
}

void wan_model::write_isolation_script()
{
    std::vector<std::string> devices;
    for (const std::string &port : bridge().find("ports")->values)
        if (port.find("pon.") != std::string::npos)
            devices.push_back(port);
    scripts_.erase(isolation_path);
    if (devices.size() < 2)
        return;
    std::string text = "#!/bin/sh\n";
    for (size_t i = 0; i < devices.size() && i < 8; i++) {
        for (const std::string &other : devices) {
            if (other == devices[i])
                continue;
            const std::string rule = " FORWARD -i \"" + devices[i] + "\" -o \"" + other + "\" -j DROP\n";
            text += "ebtables -D" + rule + "[ \"$1\" != \"-r\" ] && ebtables -I" + rule;
        }
    }
    scripts_[isolation_path] = text;
}

void wan_model::write_multicast_script()
{
    constexpr char command[] = "/userfs/bin/xponigmpcmd ";
    std::string text = "#!/bin/sh\n" + std::string(command) + "clearAll\n";
    unsigned index = 0;
    for (const config_section &device : network()) {
        const std::string vid = device.value("vid");
        const std::string mvid = device.value("mvid");
        if (device.type != "device" || vid.empty() || mvid.empty() || index == 8)
            continue;
        for (const std::string &words :
             {"index " + text_of(++index), std::string("downtagctl 4"), "uptci " + mvid, "downtci " + vid})
            text += command + std::string("port ") + words + "\n";
    }
    scripts_.erase(multicast_path);
    if (index)
        scripts_[multicast_path] = text;
}
