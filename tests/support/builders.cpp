#include "support/builders.h"

#include "service/policies.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace {

__attribute__((format(printf, 1, 2))) std::string text(const char *pattern, ...)
{
    char buffer[512];
    va_list args;
    va_start(args, pattern);
    vsnprintf(buffer, sizeof(buffer), pattern, args);
    va_end(args);
    return buffer;
}

template <size_t N> void put(char (&field)[N], const std::string &value)
{
    strncpy(field, value.c_str(), N);
}

// A field may be full, without a terminator.
template <size_t N> std::string read(const char (&field)[N])
{
    return {field, strnlen(field, N)};
}

wan_config any_wan(uint8_t id, const wan_options &options)
{
    wan_config config{};
    config.wanId = id;
    config.vlanMode = options.vid != 0;
    config.vid = options.vid;
    config.mvid = options.mvid;
    config.prio = options.prio;
    config.service = options.service;
    config.ipProtocol = options.ip_protocol;
    config.mtu = options.mtu;
    config.disableLanDhcp = options.disable_lan_dhcp;
    put(config.bind, options.bind);
    put(config.device, device_name(config));
    return config;
}

wan_config routed(uint8_t id, const wan_options &options, uint8_t ip_mode)
{
    wan_config config = any_wan(id, options);
    config.wanMode = wan_mode_routed;
    config.ipMode = ip_mode;
    config.napt = 1;
    config.autoDns = ip_mode != ip_mode_static;
    config.autoDnsV6 = ip_mode != ip_mode_static;
    config.ipv6PrefixProxy = 1;
    put(config.wanName, link_name(config));
    return config;
}

const char *service_name(uint8_t service)
{
    constexpr const char *names[] = {"TR069_INTERNET", "INTERNET",   "TR069",         "OTHER",
                                     "VOIP",           "TR069_VOIP", "VOIP_INTERNET", "TR069_VOIP_INTERNET"};
    return service < std::size(names) ? names[service] : "OTHER";
}

std::string option(const char *name, const std::string &value)
{
    return std::string("\toption ") + name + " '" + value + "'\n";
}

std::string option(const char *name, unsigned value)
{
    return option(name, std::to_string(value));
}

std::string list(const char *name, const std::string &value)
{
    return value.empty() ? "" : std::string("\tlist ") + name + " '" + value + "'\n";
}

std::string interface_head(const std::string &name)
{
    return "\nconfig interface '" + name + "'\n";
}

// Only a WAN that carries internet traffic may be the default way out.
std::string default_route(const wan_config &config)
{
    return strstr(service_name(config.service), "INTERNET") ? "" : option("defaultroute", 0U);
}

std::string ip_host(const wan_config &config)
{
    return config.iphostId ? option("iphostId", config.iphostId) : "";
}

std::string dns_v4(const wan_config &config)
{
    return list("dns", read(config.priDns)) + list("dns", read(config.secDns));
}

std::string dns_v6(const wan_config &config)
{
    return list("dns", read(config.priDnsV6)) + list("dns", read(config.secDnsV6));
}

std::string dhcp_section(const wan_config &config, const std::string &name)
{
    std::string section = interface_head(name) + option("proto", "dhcp") +
                          option("device", device_name(config)) + option("napt", config.napt);
    if (!config.autoDns)
        section += option("peerdns", 0U) + dns_v4(config);
    return section + default_route(config) + ip_host(config);
}

std::string dhcpv6_section(const wan_config &config, const std::string &name)
{
    std::string section = interface_head(name) + option("proto", "dhcpv6") +
                          option("device", device_name(config)) + option("reqaddress", "try") +
                          option("reqprefix", "auto");
    if (!config.autoDnsV6)
        section += option("peerdns", 0U) + dns_v6(config);
    section += default_route(config);
    return config.ipv6PrefixProxy ? section : section + option("delegate", 0U);
}

std::string pppoe_options(const wan_config &config)
{
    std::string options = option("proto", "pppoe") + option("username", read(config.pppUser)) +
                          option("password", read(config.pppPwd));
    if (config.pppServName[0])
        options += option("service", read(config.pppServName));
    if (config.pppDialMode)
        options += option("demand", 300U);
    options += option("ipv6", config.ipProtocol & ip_protocol_v6 ? "auto" : "0");
    const bool own_v4 = (config.ipProtocol & ip_protocol_v4) && !config.autoDns;
    const bool own_v6 = (config.ipProtocol & ip_protocol_v6) && !config.autoDnsV6;
    if (own_v4 || own_v6)
        options += option("peerdns", 0U);
    if (own_v4)
        options += dns_v4(config);
    if (own_v6)
        options += dns_v6(config);
    if ((config.ipProtocol & ip_protocol_v6) && !config.ipv6PrefixProxy)
        options += option("delegate", 0U);
    return options;
}

std::string static_options(const wan_config &config)
{
    std::string options = option("proto", "static");
    if (config.ipProtocol & ip_protocol_v4)
        options += option("ipaddr", read(config.ip)) + option("netmask", read(config.mask)) +
                   option("gateway", read(config.gateway)) + dns_v4(config);
    if (config.ipProtocol & ip_protocol_v6) {
        options += list("ip6addr", read(config.ipv6Addr)) + option("ip6gw", read(config.ipv6Gateway)) +
                   option("ip6prefix", read(config.ipv6Prefix)) + option("peerdns", 0U) + dns_v6(config);
        if (!config.ipv6PrefixProxy)
            options += option("delegate", 0U);
    }
    return options;
}

// The one interface of a static or dialled WAN.
std::string shared_section(const wan_config &config, const std::string &name)
{
    return interface_head(name) + option("device", device_name(config)) + option("napt", config.napt) +
           default_route(config) +
           (config.ipMode == ip_mode_static ? static_options(config) : pppoe_options(config)) +
           ip_host(config);
}

std::string dslite_section(const wan_config &config, const std::string &name)
{
    const std::string below = text("wan_%u", config.wanId) + (config.ipMode == ip_mode_dhcp ? "_v6" : "");
    return interface_head(name) + option("proto", "dslite") +
           option("peeraddr", read(config.ipv6AddrDsLite)) + option("tunlink", below) +
           option("encaplimit", "ignore");
}

class request {
public:
    void number(const char *name, int value) { add(name, std::to_string(value)); }
    void flag(const char *name, bool value) { add(name, value ? "true" : "false"); }
    void string(const char *name, const std::string &value)
    {
        if (!value.empty())
            add(name, "\"" + value + "\"");
    }
    std::string finish() const { return members_.empty() ? "{}" : "{" + members_ + "}"; }

private:
    void add(const char *name, const std::string &value)
    {
        members_ += (members_.empty() ? "\"" : ",\"") + std::string(name) + "\":" + value;
    }
    std::string members_;
};

// Whether a request has the argument: 0 says nothing of a VLAN.
bool is_given(const wan_config &config, const wan_field &field)
{
    if (field.offset == offsetof(wan_config, vid))
        return config.vlanMode != 0;
    return field.offset != offsetof(wan_config, mvid) || config.mvid != 0;
}

void add_arguments(request &out, const wan_config &config)
{
    for (const arg_rule &rule : arg_rules) {
        const wan_field &field = rule.field;
        if (rule.type == BLOBMSG_TYPE_STRING)
            out.string(field.name,
                       {field_text(config, field), strnlen(field_text(config, field), field.size)});
        else if (rule.type == BLOBMSG_TYPE_INT8)
            out.flag(field.name, field_number(config, field));
        else if (is_given(config, field))
            out.number(field.name, static_cast<int>(field_number(config, field)));
    }
}

} // namespace

std::string device_name(const wan_config &config)
{
    return config.vlanMode == 1 ? text("pon.%u", config.vid) : "pon";
}

std::string link_name(const wan_config &config)
{
    const std::string tag = config.vlanMode == 1 ? text("%u", config.vid) : "";
    return text("%u_%s_%s_VID_", config.wanId, service_name(config.service),
                config.wanMode == wan_mode_routed ? "R" : "B") +
           tag;
}

wan_config routed_dhcp(uint8_t id, const wan_options &options)
{
    return routed(id, options, ip_mode_dhcp);
}

wan_config routed_pppoe(uint8_t id, const wan_options &options)
{
    wan_config config = routed(id, options, ip_mode_pppoe);
    config.mtu = static_cast<uint16_t>(options.mtu - 8);
    put(config.pppUser, text("user%u", id));
    put(config.pppPwd, text("secret%u", id));
    return config;
}

wan_config routed_static(uint8_t id, const wan_options &options)
{
    wan_config config = routed(id, options, ip_mode_static);
    if (config.ipProtocol & ip_protocol_v4) {
        put(config.ip, text("192.0.2.%u", (9U + id) % 256));
        put(config.mask, "255.255.255.0");
        put(config.gateway, "192.0.2.1");
        put(config.priDns, "192.0.2.53");
    }
    if (config.ipProtocol & ip_protocol_v6) {
        put(config.ipv6Addr, text("2001:db8:%x::10/64", id));
        put(config.ipv6Gateway, text("2001:db8:%x::1", id));
        put(config.ipv6Prefix, text("2001:db8:%x00::/56", id));
        put(config.priDnsV6, text("2001:db8:%x::53", id));
    }
    return config;
}

wan_config bridged_wan(uint8_t id, const char *bind, const wan_options &options)
{
    wan_config config = any_wan(id, options);
    put(config.bind, bind);
    put(config.wanName, link_name(config));
    return config;
}

wan_config with_own_servers(wan_config config, uint8_t protocols)
{
    if (protocols & ip_protocol_v4) {
        config.autoDns = 0;
        put(config.priDns, "192.0.2.1");
        put(config.secDns, "192.0.2.2");
    }
    if (protocols & ip_protocol_v6) {
        config.autoDnsV6 = 0;
        put(config.priDnsV6, "2001:db8::1");
        put(config.secDnsV6, "2001:db8::2");
    }
    return config;
}

wan_rule_ctx rule_ctx(const wan_config &config)
{
    wan_rule_ctx ctx{};
    ctx.wanId = config.wanId;
    put(ctx.lkname, link_name(config));
    ctx.config = config;
    ctx.config.wanId = 0; // a request to create a WAN does not know its identifier
    return ctx;
}

std::string uci_device_section(const wan_config &config)
{
    std::string section = "\nconfig device\n";
    if (config.vlanMode == 1) {
        section += option("type", "8021q") + option("ifname", "pon") + option("vid", config.vid);
        if (config.mvid)
            section += option("mvid", config.mvid);
        if (config.prio)
            section += list("egress_qos_mapping", text("0:%u", config.prio));
    }
    const bool dialled = config.wanMode == wan_mode_routed && config.ipMode >= ip_mode_pppoe;
    section += option("name", device_name(config)) + option("mtu", config.mtu + (dialled ? 8U : 0U)) +
               option("wanMode", config.wanMode) + option("IpProtocolType", config.ipProtocol) +
               option("service_mode", config.service) + option("disableLanDhcp", config.disableLanDhcp) +
               option("macaddr", text("00:11:22:33:45:%02x", config.wanId));
    for (const char bit : read(config.bind))
        section += list("port_binding", std::string(1, bit));
    if (config.ipProtocol == ip_protocol_v4)
        section += option("ipv6", 0U);
    return section + option("lkname", link_name(config));
}

std::vector<std::string> interface_names(const wan_config &config)
{
    std::vector<std::string> names;
    if (config.wanMode == wan_mode_bridged)
        return names;
    const std::string main = text("wan_%u", config.wanId);
    if (config.ipMode != ip_mode_dhcp || (config.ipProtocol & ip_protocol_v4))
        names.push_back(main);
    if (config.ipMode == ip_mode_dhcp && (config.ipProtocol & ip_protocol_v6))
        names.push_back(main + "_v6");
    if (config.ipv6DsLite && config.ipProtocol == ip_protocol_v6)
        names.push_back(text("dslite_%u", config.wanId));
    return names;
}

std::string uci_interface_sections(const wan_config &config)
{
    std::string sections;
    for (const std::string &name : interface_names(config)) {
        if (name.starts_with("dslite"))
            sections += dslite_section(config, name);
        else if (config.ipMode != ip_mode_dhcp)
            sections += shared_section(config, name);
        else
            sections += name.ends_with("_v6") ? dhcpv6_section(config, name) : dhcp_section(config, name);
    }
    return sections;
}

std::string add_request(const wan_config &config)
{
    request out;
    add_arguments(out, config);
    return out.finish();
}

std::string modify_request(const wan_config &config, int wait_seconds)
{
    request out;
    out.number("wanId", config.wanId);
    add_arguments(out, config);
    if (wait_seconds)
        out.number("wait", wait_seconds);
    return out.finish();
}
