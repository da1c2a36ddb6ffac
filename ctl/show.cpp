#include "ctl/show.h"

#include "ctl/gateway_state.h"
#include "ctl/option_reader.h"
#include "ctl/wan_list.h"
#include "ctl/words.h"
#include "wan/wan_names.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr option_row rows[] = {{"secrets", "", "show the password instead of dots", 0}};
constexpr auto options = pack_options<rows>();

// A line "  Label:    value". Nothing is printed for an empty value.
void line(const char *label, const char *value)
{
    if (value[0] == '\0')
        return;
    char head[24];
    (void)text_ref(head).format("%s:", label);
    say("  %-18s %s", head, value);
}

void pair(const char *label, const char *first, const char *separator, const char *second)
{
    char text[160];
    (void)text_ref(text).format("%s%s%s", first, first[0] != '\0' && second[0] != '\0' ? separator : "",
                                second);
    line(label, text);
}

const char *protocols(const wan_config &record)
{
    constexpr const char *names[] = {"", "IPv4", "IPv6", "IPv4 and IPv6"};
    return names[record.ipProtocol & (ip_protocol_v4 | ip_protocol_v6)];
}

void print_link(const wan_config &record)
{
    char text[160];
    line("Name", c_text(record.wanName));
    line("Service", service_words(record.service).text);
    pair("Device", c_text(record.device), ", ", c_text(record.mac));
    if (record.vlanMode)
        (void)text_ref(text).format("%u, priority %u", record.vid, record.prio);
    else
        (void)text_ref(text).format("untagged");
    line("VLAN", text);
    if (record.mvid != 0) {
        (void)text_ref(text).format("%u", record.mvid);
        line("Multicast VLAN", text);
    }
    (void)text_ref(text).format("%u", record.mtu);
    line("MTU", text);
    if (!wan_service_of(record.service).binds_ports)
        return line("Ports", "none can be bound to this service");
    // Without the board's description a position has no name.
    load_ports() ? line("Ports bound", port_words(record).text)
                 : line("Ports bound (bits)", c_text(record.bind));
    if (record.disableLanDhcp)
        line("LAN DHCP", "off at the bound ports");
}

void print_ppp(const wan_config &record, secrets which)
{
    line("User", c_text(record.pppUser));
    if (!text_empty(record.pppPwd))
        line("Password", which == secrets::shown ? c_text(record.pppPwd).data : "........");
    line("Service name", c_text(record.pppServName));
    line("Dialled", record.pppDialMode ? "on demand" : "always on");
}

void print_addresses(const wan_config &record)
{
    char state[64];
    const time_words since(record.uptime);
    if (record.ipProtocol & ip_protocol_v4) {
        (void)text_ref(state).format(record.status ? "up for %s" : "down", since.text);
        line("IPv4", state);
        pair("  Address", c_text(record.ip), " mask ", c_text(record.mask));
        line("  Second address", c_text(record.ipSec));
        line("  Gateway", c_text(record.gateway));
        pair(record.autoDns ? "  DNS, learnt" : "  DNS, set", c_text(record.priDns), ", ",
             c_text(record.secDns));
        line("  NAT", record.napt ? "on" : "off");
    }
    if (record.ipProtocol & ip_protocol_v6) {
        line("IPv6", record.statusV6 ? "up" : "down");
        line("  Address", c_text(record.ipv6Addr));
        line("  Second address", c_text(record.ipv6SecAddr));
        line("  Gateway", c_text(record.ipv6Gateway));
        line("  Prefix", c_text(record.ipv6Prefix));
        line("  Prefix to LAN", record.ipv6PrefixProxy ? "delegated" : "not delegated");
        pair(record.autoDnsV6 ? "  DNS, learnt" : "  DNS, set", c_text(record.priDnsV6), ", ",
             c_text(record.secDnsV6));
    }
    if (record.ipv6DsLite)
        line("DS-Lite to", c_text(record.ipv6AddrDsLite));
}

void print_wan(const wan_config &record, secrets which)
{
    constexpr const char *modes[] = {"DHCP", "static address", "PPPoE"};
    say_in(colour::bold, "WAN %u", record.wanId);
    if (record.wanMode == wan_mode_bridged)
        line("Mode", "bridged");
    else
        pair("Mode", modes[std::min<size_t>(record.ipMode, std::size(modes) - 1)], ", ", protocols(record));
    print_link(record);
    if (record.wanMode == wan_mode_bridged)
        return;
    if (record.ipMode >= ip_mode_pppoe)
        print_ppp(record, which);
    print_addresses(record);
    if (record.iphostId != 0)
        line("IP host", record.iphostId == 1 ? "1" : "2");
}

void print_json(const wan_config &record, secrets which)
{
    json_writer json;
    json.open_answer();
    write_wan(json, record, which);
    json.close_answer();
}

} // namespace

exit_status run_show(std::span<char *const> words)
{
    uint8_t id = 0;
    bool shown = false;
    if (const exit_status result =
            read_id_line(words, "show takes one identifier; ", &id, options.text, &shown);
        result != exit_status::done)
        return result;
    const secrets which = shown ? secrets::shown : secrets::hidden;
    if (id == 0)
        return fail(exit_status::usage, "show takes a WAN's identifier, as `korvelctl show 1`; see `status`");

    bus_connection bus;
    wan_list wans;
    if (const exit_status result = wans.read(bus); result != exit_status::done)
        return result;
    const wan_config *const record = wans.find(id);
    if (!record)
        return fail(exit_status::no_such, "there is no WAN %u; see `korvelctl status`", id);
    output_is_json() ? print_json(*record, which) : print_wan(*record, which);
    return exit_status::done;
}
