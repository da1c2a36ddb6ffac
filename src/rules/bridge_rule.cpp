#include "rules/bridge_rule.h"

#include "base/log.h"
#include "base/os.h"
#include "rules/firewall_mark.h"
#include "rules/port_names.h"
#include "rules/script_name.h"
#include "service/settings.h"
#include "wan/wan_names.h"

namespace {

// Every insertion is preceded by its deletion, so that a second run leaves one copy of each rule.
constexpr char script_text[] = R"sh(#!/bin/sh
DISABLE_DHCP=%u
FWMARK=%u
INTERFACE_WAN="%s"
for i in %s; do
ebtables -D FORWARD -i "$INTERFACE_WAN" -o "$i" -j DROP
ebtables -D FORWARD -i "$i" -o "$INTERFACE_WAN" -j DROP
if [ "$1" != "-r" ]; then
ebtables -I FORWARD -i "$INTERFACE_WAN" -o "$i" -j DROP
ebtables -I FORWARD -i "$i" -o "$INTERFACE_WAN" -j DROP
fi
done
for i in %s; do
ebtables -t broute -D BROUTING -i "$i" -j mark --mark-or $FWMARK --mark-target CONTINUE
[ "$1" != "-r" ] && ebtables -t broute -I BROUTING -i "$i" -j mark --mark-or $FWMARK --mark-target CONTINUE
if [ $DISABLE_DHCP = 1 ]; then
ebtables -D INPUT -p IPv4 -i "$i" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -D INPUT -p IPv6 -i "$i" --ip6-proto udp --ip6-dport 547 -j DROP
ebtables -D OUTPUT -p IPv6 -o "$i" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
if [ "$1" != "-r" ]; then
ebtables -A INPUT -p IPv4 -i "$i" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -A INPUT -p IPv6 -i "$i" --ip6-proto udp --ip6-dport 547 -j DROP
ebtables -A OUTPUT -p IPv6 -o "$i" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
fi
fi
done
if [ $DISABLE_DHCP = 1 ]; then
ebtables -D OUTPUT -p IPv4 -o "$INTERFACE_WAN" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -D OUTPUT -p IPv6 -o "$INTERFACE_WAN" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
ebtables -D OUTPUT -p IPv6 -o "$INTERFACE_WAN" --ip6-proto udp --ip6-dport 546 -j DROP
if [ "$1" != "-r" ]; then
ebtables -A OUTPUT -p IPv4 -o "$INTERFACE_WAN" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -A OUTPUT -p IPv6 -o "$INTERFACE_WAN" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
ebtables -A OUTPUT -p IPv6 -o "$INTERFACE_WAN" --ip6-proto udp --ip6-dport 546 -j DROP
fi
fi
ip rule del from all fwmark $FWMARK/$FWMARK prohibit
[ "$1" != "-r" ] && ip rule add from all fwmark $FWMARK/$FWMARK prohibit
)sh";

} // namespace

void wan_write_bridge_rule(const wan_rule_ctx *ctx)
{
    const script_path path = bridge_rule_path(ctx->wanId);
    char device[12];
    wan_device_name(ctx->config, device);
    if (!may_stand_in_script(device, path.text))
        return; // without its device the script would say something else
    char bound[port_list_size] = {};
    char unbound[port_list_size] = {};
    wan_build_port_lists(&ctx->config, bound, unbound);

    script_file script(path.text);
    if (script)
        script.print(script_text, ctx->config.disableLanDhcp, wan_firewall_mark(ctx->wanId), device, unbound,
                     bound);
    if (!script || !script.commit())
        log_error("Failed to generate wan_%u bridge rule: %s", ctx->wanId, path.text);
}

void wan_remove_bridge_rule(uint8_t wan_id)
{
    const script_path path = bridge_rule_path(wan_id);
    char failure[96];
    text_ref(failure).format("Failed to delete wan_%u bridge rule: %s", wan_id, path.text);
    take_back_script(path.text, failure);
}
