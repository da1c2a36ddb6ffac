#include "rules/route_rule.h"

#include "base/log.h"
#include "base/os.h"
#include "rules/firewall_mark.h"
#include "rules/port_names.h"
#include "wan/wan_names.h"

namespace {

// Runs under the gateway's own shell, whose [[ matches the quoted pattern too: the script answers events of
// every interface whose name begins with the WAN's.
constexpr char script_text[] = R"sh(#!/bin/sh
DEVICE_LIST="%s"
DISABLE_DHCP=%u
FWMARK=%u
INTERFACE_WAN="%s"
LOOKUP=%u
SERVICE=%u
[ "$1" != "-r" ] && [[ "$INTERFACE" != "$INTERFACE_WAN*" ]] && return
. /lib/functions/network.sh
network_get_ipaddr IP_ADDR "$INTERFACE_WAN"
network_get_subnet IP_ADDR_MASK "$INTERFACE_WAN"
network_get_gateway IP_GATEWAY "$INTERFACE_WAN" 1
network_get_device INTERFACE_NAME "$INTERFACE_WAN"
eval "$(ipcalc.sh "$IP_ADDR_MASK")"
IP_ADDR_MASK="$NETWORK/$PREFIX"
DNS_SYNC_WITH_WAN=$(uci get dhcp.lan.dns_sync_with_wan)
V6DNS_SYNC_WITH_WAN=$(uci get dhcp.lan.v6dns_sync_with_wan)
network_get_ipaddr LAN_IP lan
network_get_subnet LAN_IP_MASK lan
add_rule() {
if [ -n "$DEVICE_LIST" ]; then
ip rule add from all fwmark $FWMARK/$FWMARK prohibit
ip rule add from all fwmark $FWMARK/$FWMARK lookup $LOOKUP
fi
ip rule add from "$IP_ADDR" lookup $LOOKUP
ip rule add from all oif "$INTERFACE_NAME" lookup $LOOKUP
ip route add default via "$IP_GATEWAY" dev "$INTERFACE_NAME" table $LOOKUP
ip route add "$IP_ADDR_MASK" dev "$INTERFACE_NAME" scope link table $LOOKUP
if [ "$SERVICE" = "2" ] || [ "$SERVICE" = "4" ] || [ "$SERVICE" = "5" ]; then
network_get_dnsserver DNS "$INTERFACE_WAN"
for dns in $DNS; do
if [[ "$dns" != *:* ]]; then
[ -n "$dns" ] && [ "$dns" != "0.0.0.0" ] && ip rule add to "$dns" lookup $LOOKUP
fi
done
fi
for i in $DEVICE_LIST; do
ebtables -t broute -I BROUTING -i "$i" -j mark --mark-or $FWMARK --mark-target CONTINUE
if [ $DISABLE_DHCP = 1 ]; then
ebtables -A INPUT -p IPv4 -i "$i" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -A INPUT -p IPv6 -i "$i" --ip6-proto udp --ip6-dport 547 -j DROP
ebtables -A OUTPUT -p IPv6 -o "$i" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
fi
done
if [ -n "$LAN_IP" ] && [ -n "$LAN_IP_MASK" ]; then
iptables -t mangle -I OUTPUT -s "$LAN_IP" -d "$LAN_IP_MASK" -j MARK --set-xmark 0x0/$FWMARK
fi
if [ "$DNS_SYNC_WITH_WAN" = "$INTERFACE_WAN" ]; then
DHCP_OPTION="6"
network_get_dnsserver DNS "$DNS_SYNC_WITH_WAN"
uci delete dhcp.lan.dhcp_option
for addr in $DNS; do
if [[ "$addr" != *:* ]]; then
DHCP_OPTION="$DHCP_OPTION,$addr"
fi
done
if [ "$DHCP_OPTION" != "6" ]; then
uci add_list dhcp.lan.dhcp_option="$DHCP_OPTION"
fi
uci commit dhcp.lan
/etc/init.d/dnsmasq reload
fi
if [[ "$V6DNS_SYNC_WITH_WAN" = "$INTERFACE_WAN*" ]]; then
network_get_dnsserver DNSV6 "$V6DNS_SYNC_WITH_WAN"
uci delete dhcp.lan.dns
for addr in $DNSV6; do
if [[ "$addr" = *:* ]]; then
uci add_list dhcp.lan.dns="$addr"
fi
done
uci commit dhcp.lan
/etc/init.d/dnsmasq reload
fi
}
remove_rule() {
if [ -n "$DEVICE_LIST" ]; then
ip rule del from all fwmark $FWMARK/$FWMARK prohibit
ip rule del from all fwmark $FWMARK/$FWMARK lookup $LOOKUP
fi
ip rule flush table $LOOKUP
ip route del default via "$IP_GATEWAY" dev "$INTERFACE_NAME" table $LOOKUP
ip route del "$IP_ADDR_MASK" dev "$INTERFACE_NAME" scope link table $LOOKUP
for i in $DEVICE_LIST; do
ebtables -t broute -D BROUTING -i "$i" -j mark --mark-or $FWMARK --mark-target CONTINUE
if [ $DISABLE_DHCP = 1 ]; then
ebtables -D INPUT -p IPv4 -i "$i" --ip-proto udp --ip-dport 67:68 -j DROP
ebtables -D INPUT -p IPv6 -i "$i" --ip6-proto udp --ip6-dport 547 -j DROP
ebtables -D OUTPUT -p IPv6 -o "$i" --ip6-proto ipv6-icmp --ip6-icmp-type router-advertisement -j DROP
fi
done
if [ -n "$LAN_IP" ] && [ -n "$LAN_IP_MASK" ]; then
iptables -t mangle -D OUTPUT -s "$LAN_IP" -d "$LAN_IP_MASK" -j MARK --set-xmark 0x0/$FWMARK 2>/dev/null
fi
if [ "$DNS_SYNC_WITH_WAN" = "$INTERFACE_WAN" ]; then
uci delete dhcp.lan.dhcp_option
uci commit dhcp.lan
fi
if [[ "$V6DNS_SYNC_WITH_WAN" = "$INTERFACE_WAN*" ]]; then
uci delete dhcp.lan.dns
uci commit dhcp.lan
fi
}
if [ "$1" = "-r" ] || [ "$ACTION" = "ifdown" ]; then
remove_rule
elif [ "$ACTION" = "ifup" ] || [ "$ACTION" = "ifupdate" ]; then
remove_rule
add_rule
fi
)sh";

} // namespace

void wan_write_route_rule(const wan_rule_ctx *ctx)
{
    const script_path path = route_rule_path(ctx->wanId);
    char bound[port_list_size] = {};
    wan_build_port_lists(&ctx->config, bound, nullptr);

    script_file script(path.text);
    if (script)
        script.print(script_text, bound, ctx->config.disableLanDhcp, wan_firewall_mark(ctx->wanId),
                     wan_names(ctx->wanId).interface, ctx->wanId + first_wan_table, ctx->config.service);
    if (!script || !script.commit())
        log_error("Failed to generate wan_%u route rule: %s", ctx->wanId, path.text);
}

void wan_remove_route_rule(uint8_t wan_id)
{
    const script_path path = route_rule_path(wan_id);
    char failure[96];
    text_ref(failure).format("Failed to delete wan_%u route rule: %s", wan_id, path.text);
    take_back_script(path.text, failure);
}
