#!/bin/sh
DISABLE_DHCP=<disable_dhcp>
FWMARK=<mark>
INTERFACE_WAN="<device>"
for i in <unbound>; do
ebtables -D FORWARD -i "$INTERFACE_WAN" -o "$i" -j DROP
ebtables -D FORWARD -i "$i" -o "$INTERFACE_WAN" -j DROP
if [ "$1" != "-r" ]; then
ebtables -I FORWARD -i "$INTERFACE_WAN" -o "$i" -j DROP
ebtables -I FORWARD -i "$i" -o "$INTERFACE_WAN" -j DROP
fi
done
for i in <bound>; do
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
