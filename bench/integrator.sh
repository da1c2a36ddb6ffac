#!/bin/sh
# A PPPoE WAN for both protocols as an integrator would script it without a daemon: one batch of configuration, a hotplug
# script, five reloads; read option by option.
#
#   integrator.sh add VID
#   integrator.sh get ID
set -eu

# The device section of a WAN.
find_device() {
    uci show network | sed -n "s/^network\.\([^.]*\)\.lkname='$1_.*/\1/p" | head -n 1
}

add_wan() {
    vid=$1
    id=$(($(uci -q get network.korvel.maxWanId) + 1))
    base=$(cat /sys/class/net/br-lan/address)
    mac=${base%:*}:$(printf %02x $id)
    uci -q batch << END
set network.korvel.maxWanId=$id
add_list network.korvel.wanList=$id
add network device
set network.@device[-1].type=8021q
set network.@device[-1].ifname=pon
set network.@device[-1].name=pon.$vid
set network.@device[-1].vid=$vid
set network.@device[-1].mtu=1500
set network.@device[-1].macaddr=$mac
set network.@device[-1].lkname=${id}_INTERNET_R_VID_$vid
set network.@device[-1].wanMode=1
set network.@device[-1].IpProtocolType=3
set network.@device[-1].service_mode=1
set network.@device[-1].disableLanDhcp=0
add_list network.@device[-1].port_binding=0
set network.wan_$id=interface
set network.wan_$id.proto=pppoe
set network.wan_$id.device=pon.$vid
set network.wan_$id.username=subscriber@isp.example
set network.wan_$id.password=a-password-of-16
set network.wan_$id.napt=1
set network.wan_$id.ipv6=auto
add_list firewall.@zone[1].network=wan_$id
add_list firewall.@zone[1].network=wan_${id}_6
commit network
commit firewall
END
    script=/etc/hotplug.d/iface/99-wan_$id
    cat > "$script.new" << END
#!/bin/sh
[ "\$INTERFACE" = wan_$id ] || exit 0
ip rule del fwmark $id lookup $((id + 100))
[ "\$ACTION" = ifup ] && ip rule add fwmark $id lookup $((id + 100))
END
    chmod 755 "$script.new"
    sync "$script.new"
    mv "$script.new" "$script"
    for service in network dnsmasq firewall miniupnpd omcproxy; do
        /etc/init.d/$service reload
    done
}

get_wan() {
    id=$1
    device=$(find_device "$id")
    for option in mtu wanMode IpProtocolType service_mode disableLanDhcp lkname name port_binding vid mvid \
        egress_qos_mapping macaddr; do
        echo "$option=$(uci -q get "network.$device.$option")" || true
    done
    for option in proto username password service demand napt iphostId peerdns delegate; do
        echo "$option=$(uci -q get "network.wan_$id.$option")" || true
    done
    ubus -S call "network.interface.wan_$id" status || true
    ubus -S call "network.interface.wan_${id}_6" status || true
}

case $1 in
add) add_wan "$2" ;;
get) get_wan "$2" ;;
*) exit 2 ;;
esac
