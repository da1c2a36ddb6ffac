#include "netd/ip_settings.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr lifetime provider_lifetime{1800, 3600};
constexpr int provider_route_metric = 512;
constexpr int provider_route_valid = 1700;
constexpr int provider_lease_seconds = 86400;
constexpr char any_v4[] = "0.0.0.0";
constexpr char any_v6[] = "::";

__attribute__((format(printf, 1, 2))) std::string text(const char *pattern, ...)
{
    char buffer[80];
    va_list args;
    va_start(args, pattern);
    vsnprintf(buffer, sizeof(buffer), pattern, args);
    va_end(args);
    return buffer;
}

// The digits behind the first underscore: 3 for wan_3, wan_3_v6 and dslite_3; 0 for a name without.
unsigned interface_number(const std::string &name)
{
    const size_t underscore = name.find('_');
    return underscore == std::string::npos
               ? 0
               : static_cast<unsigned>(atoi(name.c_str() + underscore + 1)) & 0xff;
}

// "address/length"; without a length all bits.
address parse_address(const std::string &value, int all_bits)
{
    const size_t slash = value.find('/');
    return {value.substr(0, slash),
            slash == std::string::npos ? all_bits : atoi(value.c_str() + slash + 1),
            {},
            {}};
}

int mask_length(const std::string &netmask, int missing)
{
    in_addr mask{};
    return inet_pton(AF_INET, netmask.c_str(), &mask) == 1 ? std::popcount(mask.s_addr) : missing;
}

route default_route_v4(const std::string &next_hop, const std::string &source)
{
    return {any_v4, 0, next_hop, source};
}

route leased_default_route_v6(const std::string &source)
{
    return {any_v6, 0, "fe80::1", source, provider_route_metric, provider_route_valid};
}

void add_static(const config_section &interface, unsigned, ip_settings &settings)
{
    constexpr int v4_bits = 32;
    constexpr int v6_bits = 128;
    const int mask = mask_length(interface.text("netmask"), v4_bits);
    for (const std::string &value : interface.list("ipaddr"))
        settings.v4.push_back(parse_address(value, mask));
    for (const std::string &value : interface.list("ip6addr"))
        settings.v6.push_back(parse_address(value, v6_bits));
    for (const std::string &value : interface.list("ip6prefix")) {
        const address parsed = parse_address(value, v6_bits);
        settings.prefixes.push_back({parsed.text, parsed.mask, {}, interface.name});
    }
    if (const std::string gateway = interface.text("gateway"); !gateway.empty())
        settings.routes.push_back(default_route_v4(gateway, "0.0.0.0/0"));
    if (const std::string gateway = interface.text("ip6gw"); !gateway.empty())
        settings.routes.push_back({any_v6, 0, gateway, "::/0"});
}

void add_dhcp(const config_section &, unsigned number, ip_settings &settings)
{
    const std::string own = text("198.51.100.%u", (22 + number) % 256);
    settings.v4.push_back({own, 24, {}, {}});
    settings.routes.push_back(default_route_v4("198.51.100.1", own + "/32"));
    settings.servers = {"198.51.100.53", "203.0.113.53"};
    settings.search = {"isp.example"};
    settings.lease_seconds = provider_lease_seconds;
}

void add_dhcpv6(const config_section &interface, unsigned number, ip_settings &settings)
{
    const std::string own = text("2001:db8:%x:1::9", number);
    const std::string delegated = text("2001:db8:%x::", (0xa900 + number * 0x100) & 0xffff);
    constexpr int delegated_mask = 56;
    settings.v6.push_back({own, 128, {}, provider_lifetime});
    settings.prefixes.push_back({delegated, delegated_mask, provider_lifetime, interface.name});
    settings.routes.push_back(leased_default_route_v6(text("%s/%d", delegated.c_str(), delegated_mask)));
    settings.routes.push_back(leased_default_route_v6(own + "/128"));
    settings.servers = {"2001:db8::53", "2001:db8::54"};
    settings.passed_through = "00170020";
}

void add_pppoe(const config_section &interface, unsigned number, ip_settings &settings)
{
    settings.updated = {"addresses", "routes"};
    settings.v4.push_back({text("100.64.%u.9", (number + 1) % 256), 32, "100.64.0.1", {}});
    if (dynamic_v6_side(interface))
        settings.v6.push_back({text("fe80::3c1f:9aff:fe%02x:11", number), 128, {}, {}});
    settings.routes.push_back(default_route_v4("100.64.0.1", "0.0.0.0/0"));
    settings.servers = {"203.0.113.1", "203.0.113.2"};
}

void add_dslite(const config_section &, unsigned, ip_settings &settings)
{
    settings.v4.push_back({"192.0.0.2", 29, {}, {}});
    settings.routes.push_back(default_route_v4(any_v4, "0.0.0.0/0"));
}

void apply_preferences(const config_section &interface, ip_settings &settings)
{
    if (interface.number("defaultroute", 1) == 0)
        settings.inactive_routes.swap(settings.routes);
    if (interface.number("peerdns", 1) == 0) {
        settings.inactive_servers.swap(settings.servers);
        settings.inactive_search.swap(settings.search);
    }
    const std::vector<std::string> configured = interface.list("dns");
    settings.servers.insert(settings.servers.begin(), configured.begin(), configured.end());
    const std::vector<std::string> domains = interface.list("dns_search");
    settings.search.insert(settings.search.begin(), domains.begin(), domains.end());
}

struct protocol {
    const char *name;
    const char *own_device; // start of the name of the device that it makes; nullptr: it uses the one below
    bool has_lower_device;
    void (*add)(const config_section &interface, unsigned number, ip_settings &settings);
    bool leased;      // by MAC address
    bool begins_down; // its client says that it is down before it asks
    int seconds;      // that it takes on a real line
};

// clang-format off
constexpr protocol protocols[] = {
    {"static", nullptr,  true,  add_static, false, false, 0},
    {"dhcp",   nullptr,  true,  add_dhcp,   true,  true,  3},
    {"dhcpv6", nullptr,  true,  add_dhcpv6, true,  false, 4},
    {"pppoe",  "pppoe-", true,  add_pppoe,  false, false, 3},
    {"dslite", "ds-",    false, add_dslite, false, false, 1},
};
// clang-format on

// An interface without a protocol, or with one that is not known, has its device and nothing else.
constexpr protocol no_protocol = {"", nullptr, true, nullptr, false, false, 0};

const protocol &protocol_of(const config_section &interface)
{
    const std::string name = interface.text("proto");
    const auto *const found =
        std::ranges::find_if(protocols, [&](const protocol &known) { return known.name == name; });
    return found == std::end(protocols) ? no_protocol : *found;
}

} // namespace

std::string lower_device(const config_section &interface)
{
    return protocol_of(interface).has_lower_device ? interface.text("device") : "";
}

std::string layer3_device(const config_section &interface)
{
    const char *const own = protocol_of(interface).own_device;
    return own ? own + interface.name : interface.text("device");
}

bool begins_down(const config_section &interface)
{
    return protocol_of(interface).begins_down;
}

int real_negotiation_seconds(const config_section &interface)
{
    return protocol_of(interface).seconds;
}

ip_settings provider::settings_of(const config_section &interface, const std::string &client_address)
{
    ip_settings settings;
    const protocol &asked = protocol_of(interface);
    unsigned number = interface_number(interface.name);
    if (asked.leased)
        number = leases_.try_emplace({lower_device(interface), client_address}, number).first->second;
    if (asked.add)
        asked.add(interface, number, settings);
    apply_preferences(interface, settings);
    return settings;
}

std::optional<config_section> dynamic_v6_side(const config_section &interface)
{
    const std::string ipv6 = interface.text("ipv6");
    if (interface.text("proto") != "pppoe" || (ipv6 != "auto" && ipv6 != "1"))
        return std::nullopt;
    config_section side{interface.name + "_6",
                        {{"proto", {"dhcpv6"}}, {"device", {layer3_device(interface)}}}};
    for (const char *inherited : {"peerdns", "defaultroute", "delegate"})
        if (interface.has(inherited))
            side.options.push_back({inherited, {interface.text(inherited)}});
    return side;
}
