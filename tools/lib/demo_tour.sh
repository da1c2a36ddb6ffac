#!/bin/sh
# The demonstration; runs inside a virtual gateway whose korvel is not started yet. Each step is a sentence and the
# command lines themselves; a command that fails, or an effect that does not come, ends it with an error.
set -eu

# shellcheck source-path=SCRIPTDIR
. "$(dirname "$0")/demo_steps.sh"

# Waits until no interface is being brought up and no hotplug script runs.
await_network() {
    ubus -t $step_deadline call gateway-netd settle
}

start_korvel() {
    printf '\n$ korvel -d > /gateway/korvel.out 2>&1 &\n'
    korvel -d > /gateway/korvel.out 2>&1 &
    korvel_process=$!
    ubus -t 15 wait_for korvel
}

stop_korvel() {
    run "kill $korvel_process"
    wait $korvel_process
}

show_start() {
    say "A freshly installed gateway: bus and network daemon run, korvel is started."
    run "cat /gateway/boardinfo.json"
    run "uci show network.korvel"
    start_korvel
    run "ubus -v list korvel"
}

work_at_the_prompt() {
    say "At the prompt: a PPPoE WAN on VLAN 100, LAN ports 1 and 2 bound to it. The password comes by standard input."
    run "echo secret | korvelctl add --pppoe alice@isp.example --password-file - --vlan 100 --ports lan1,lan2"
    await_network
    run_until "100.64." "korvelctl status"
    run "korvelctl show 1"
    say "What cannot work is not even sent; what would be right is said."
    run_refused "korvelctl add --bridged --vlan 100"
    say "Another VLAN, with a way back: nobody confirms it, so it goes again."
    run "korvelctl try 1 modify 1 --vlan 101"
    run_until "pon.100 " "korvelctl status"
    run_until "taken back already" "korvelctl confirm 2>&1 || true"
    await_network
    run_until "100.64." "korvelctl status"
    run_until "Nothing is amiss" "korvelctl check"
    say "Somebody leaves a rule behind; check names it, and what to do."
    run "ip rule add from all fwmark 0x20000/0x20000 prohibit"
    run_refused "korvelctl check"
    run "ip rule del from all fwmark 0x20000/0x20000 prohibit"
    run_until "Nothing is amiss" "korvelctl check"
    run "korvelctl del 1"
}

add_wans() {
    say "A routed PPPoE WAN for IPv4 and IPv6 on VLAN 100; LAN ports 1 and 2 are bound to it."
    run "ubus call korvel add '{\"wanMode\":1, \"ipProtocol\":3, \"ipMode\":2, \"napt\":true, \"vlanMode\":true,
    \"vid\":100, \"prio\":5, \"mtu\":1492, \"service\":1, \"bind\":\"11000000\", \"autoDns\":true, \"autoDnsV6\":true,
    \"ipv6PrefixProxy\":true, \"pppUser\":\"alice@isp.example\", \"pppPwd\":\"secret\"}'"
    say "A routed WAN that gets its addresses by DHCP, IPv4 and IPv6, on VLAN 200, with LAN port 3."
    run "ubus call korvel add '{\"wanMode\":1, \"ipProtocol\":3, \"ipMode\":0, \"napt\":true, \"vlanMode\":true,
    \"vid\":200, \"mtu\":1500, \"service\":1, \"bind\":\"00100000\", \"autoDns\":true, \"autoDnsV6\":true}'"
    say "A bridged WAN on VLAN 300 with multicast VLAN 301: LAN port 4 goes straight to the uplink."
    run "ubus call korvel add '{\"wanMode\":0, \"ipProtocol\":1, \"vlanMode\":true, \"vid\":300, \"mvid\":301,
    \"mtu\":1500, \"service\":3, \"disableLanDhcp\":true, \"bind\":\"00010000\"}'"
    say "A WAN on the bridged WAN's VLAN is refused with status -2, and the log says why."
    run "ubus call korvel add '{\"wanMode\":1, \"ipProtocol\":1, \"ipMode\":0, \"vlanMode\":true, \"vid\":300,
    \"mtu\":1500, \"service\":1}'"
    run_until "vlan 300 exist" "cat /gateway/log"
}

query_wans() {
    say "The network daemon has brought the routed WANs up; get reports one with addresses, gateway and name servers."
    await_network
    run_until '"statusV6": true' "ubus call korvel get '{\"wanId\":1}'"
    say "all reports every WAN, with the fields of get."
    run "ubus call korvel all"
}

show_configuration() {
    say "What was written for the first WAN: a VLAN device with its port binding, and an interface."
    run "uci show network | grep -F 'network.@device[1]'"
    run "uci show network.wan_1"
    say "IPv4 and IPv6 over DHCP are two interfaces."
    run "uci show network.wan_2; uci show network.wan_2_v6"
    say "The bridged WAN's device is one more port of the LAN bridge."
    run "uci get network.@device[0].ports"
    say "The identifiers in use, and what the firewall, the multicast proxy and UPnP were told."
    run "uci show network.korvel"
    run "uci get firewall.@zone[1].network; uci show omcproxy; uci show upnpd.config"
}

show_scripts() {
    say "The generated scripts: a hotplug script for each routed WAN, rules for the bridged one, multicast VLANs."
    run "ls -l /etc/hotplug.d/iface /etc/korvel"
    run "head -n 15 /etc/hotplug.d/iface/99-wan_1"
    run "cat /etc/korvel/rule_wan_3.sh"
    run "cat /etc/korvel/rule_mvlan.sh"
}

show_effects() {
    say "Services are reloaded after each WAN, always in the same order."
    run "grep init.d /gateway/journal"
    say "When the network daemon reported wan_1 up, its hotplug script installed policy routing into table 101."
    await_network
    run_until "fwmark 0x1000/0x1000 lookup 101" "ip rule"
    run_until "default via" "ip route show table 101"
    run_until "eth0.2" "ebtables -t broute -L"
    say "Behind each reload the firewall ran the bridge rules: they keep every port that is not bound away from the bridged WAN."
    run "ebtables -L FORWARD"
}

change_wans() {
    say "An immediate modification rebuilds the WAN from the request: WAN 2 moves to VLAN 210."
    run "ubus call korvel modify '{\"wanId\":2, \"wanMode\":1, \"ipProtocol\":3, \"ipMode\":0, \"napt\":true,
    \"vlanMode\":true, \"vid\":210, \"mtu\":1500, \"service\":1, \"bind\":\"00100000\", \"autoDns\":true, \"autoDnsV6\":true}'"
    run "uci get network.korvel.wanList; uci show network | grep \"name='pon\""
    say "A deferred one is answered at once and applied after the given seconds; what it does not name stays."
    run "ubus call korvel modify '{\"wanId\":1, \"mtu\":1400, \"wait\":1}'"
    run "uci show network | grep mtu"
    run_until "INTERFACE=wan_1" "grep 'ACTION=ifupdate INTERFACE=wan_1' /gateway/journal"
    run "uci show network | grep mtu"
    run "uci get network.korvel.wanList"
}

restart_korvel() {
    say "The scripts are lost; at its next start korvel writes them again from the configuration."
    run "rm /etc/hotplug.d/iface/99-wan_* /etc/korvel/*.sh"
    stop_korvel
    start_korvel
    run "ls /etc/hotplug.d/iface /etc/korvel"
    run_until "wan_1 route rule" "grep Generate /gateway/log"
}

remove_wans() {
    say "del removes a WAN with everything that refers to it."
    run "ubus call korvel del '{\"wanId\":2}'"
    run_refused "uci get network.wan_2"
    run "uci get network.korvel.wanList; uci get firewall.@zone[1].network; ls /etc/hotplug.d/iface"
    say "addDev makes the management device."
    run "ubus call korvel addDev"
    run "uci show network | grep 4094"
}

provision() {
    say "A provisioning list found at start-up replaces all WANs."
    run "printf 'wanMode=1\nipProtocol=1\nipMode=1\nnapt=1\nvlanMode=1\nvid=500\nmtu=1500\nservice=1\nip=192.0.2.10\nmask=255.255.255.0\ngateway=192.0.2.1\npriDns=192.0.2.53\n' > /tmp/first_wan"
    run "printf 'wanMode=1\nipProtocol=1\nipMode=0\nvlanMode=1\nvid=600\nmtu=1500\nservice=2\n' > /tmp/second_wan"
    run "printf '/tmp/first_wan\n/tmp/second_wan\n' > /tmp/wan_list"
    stop_korvel
    start_korvel
    run "uci get network.korvel.wanList; uci show network | grep lkname; ls /tmp/*wan* 2>&1 || true"
    say "delAll leaves none."
    run "ubus call korvel delAll"
    run_refused "uci get network.korvel.wanList"
    run_refused "uci show network | grep wan_"
}

show_start
work_at_the_prompt
add_wans
query_wans
show_configuration
show_scripts
show_effects
change_wans
restart_korvel
remove_wans
provision
say "That was it. For a prompt in such a gateway: tools/demo --shell"
