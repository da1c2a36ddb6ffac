#!/bin/sh
# One use of everything that the daemon offers; runs inside a bare virtual gateway. What it prints is the same whichever
# machine the daemon was built for: replies, configuration, scripts, started commands and the log.
set -eu

step_deadline=120 # seconds; an emulated daemon on a busy machine takes its time

title() {
    printf '\n== %s\n' "$*"
}

# call METHOD ARGUMENTS: the reply as a user sees it, and its status.
call() {
    status=0
    printf '\n$ ubus call korvel %s %s\n' "$1" "$2"
    ubus -S -t $step_deadline call korvel "$1" "$2" || status=$?
    echo "bus status $status"
}

# until_true COMMAND: waits for it.
until_true() {
    started=$(date +%s)
    until eval "$1"; do
        if [ $(($(date +%s) - started)) -ge $step_deadline ]; then
            echo "cross_tour: this did not come true: $1" >&2
            exit 1
        fi
        sleep 0.1
    done
}

# Every file of the configuration and of the scripts, with its mode.
show_files() {
    for file in /etc/config/* /etc/hotplug.d/iface/99-wan_* /etc/korvel/*; do
        [ -f "$file" ] || continue
        printf '\n-- %s %s\n' "$(stat -c %a "$file")" "$file"
        cat "$file"
    done
}

# A change ends with an event in the background, whose scripts would come at times of their own; it is noted and no more.
stand_in_for_hotplug() {
    rm /sbin/hotplug-call
    cat > /sbin/hotplug-call << 'END'
#!/bin/sh
exec gateway-tool journal hotplug-call "$@" "ACTION=$ACTION" "INTERFACE=$INTERFACE"
END
    chmod 755 /sbin/hotplug-call
}

# await_events COUNT INTERFACE
await_events() {
    until_true "[ \$(grep -c 'ifupdate INTERFACE=$2\$' /gateway/journal) -eq $1 ]"
}

start_bus() {
    gateway-tool syslogd &
    syslogd=$!
    until_true "[ -S /dev/log ]"
    ubusd &
    until_true "ubus -S list > /dev/null 2>&1"
    # It leaves devices and hotplug scripts alone, which would come at times of their own.
    gateway-netd --no-links --no-hotplug &
    ubus -t $step_deadline wait_for network boardinfo
}

start_korvel() {
    korvel -d > /gateway/korvel.out 2>&1 &
    korvel=$!
    ubus -t $step_deadline wait_for korvel
}

stop_korvel() {
    kill "$korvel"
    wait "$korvel" || echo "korvel ended with status $?"
    cat /gateway/korvel.out
    until_true "! ubus -S list korvel > /dev/null"
}

# What the network daemon says about the WANs, numbers of more than one byte included.
lay_down_states() {
    cat > /gateway/netd/wan_1 << 'END'
json {"up":true,"uptime":16909060,"device":"pon.100","l3_device":"pppoe-wan_1","ipv4-address":[{"address":"100.64.2.9","mask":30}],"route":[{"target":"0.0.0.0","mask":0,"nexthop":"100.64.0.1","source":"100.64.2.9/32"}],"dns-server":["203.0.113.1","203.0.113.2"]}
END
    cat > /gateway/netd/wan_2 << 'END'
json {"up":true,"uptime":4294967295,"device":"pon.200","l3_device":"pon.200","ipv4-address":[{"address":"192.0.2.9","mask":19}],"route":[{"target":"0.0.0.0","mask":0,"nexthop":"192.0.2.1"}],"dns-server":["198.51.100.53"]}
END
    cat > /gateway/netd/wan_2_v6 << 'END'
json {"up":true,"uptime":258,"device":"pon.200","l3_device":"pon.200","ipv6-address":[{"address":"2001:db8:2::9","mask":128}],"ipv6-prefix":[{"address":"2001:db8:aa00::","mask":56}],"route":[{"target":"::","mask":0,"nexthop":"fe80::1"}],"dns-server":["2001:db8::53","2001:db8::54"]}
END
    cp /gateway/netd/wan_2_v6 /gateway/netd/wan_1_6
    cp /gateway/netd/wan_2_v6 /gateway/netd/wan_1_v6
    echo 'json {"up":true,"uptime":1,"device":"br-lan","l3_device":"br-lan","ipv4-address":[{"address":"192.168.1.1","mask":24}]}' > /gateway/netd/lan
    for name in wan_3 wan_4 wan_4_v6 wan_5 wan_5_v6 wan_6 wan_7; do
        echo 'json {"up":false,"pending":true}' > /gateway/netd/$name
    done
}

add_wans() {
    title "A WAN of each kind, and some that are refused"
    # shellcheck disable=SC2016 # a password that looks like a variable
    call add '{"wanMode":1,"ipProtocol":3,"ipMode":2,"napt":true,"vlanMode":true,"vid":100,"prio":5,"mtu":1492,"service":1,"bind":"11000000","autoDns":true,"autoDnsV6":true,"ipv6PrefixProxy":true,"pppUser":"alice@isp.example","pppPwd":"s3cr\u00e9t '\''$x","pppServName":"any","pppDialMode":true}'
    call add '{"wanMode":1,"ipProtocol":3,"ipMode":0,"napt":true,"vlanMode":true,"vid":200,"mtu":1500,"service":0,"bind":"00100000","autoDns":true,"autoDnsV6":true,"iphostId":2}'
    call add '{"wanMode":0,"ipProtocol":1,"vlanMode":true,"vid":300,"mvid":301,"mtu":1500,"service":3,"disableLanDhcp":true,"bind":"00010001"}'
    call add '{"wanMode":1,"ipProtocol":3,"ipMode":1,"vlanMode":true,"vid":4095,"prio":7,"mtu":650,"service":4,"ip":"192.0.2.130","mask":"255.255.255.128","gateway":"192.0.2.129","priDns":"192.0.2.53","secDns":"192.0.2.54","ipv6Addr":"2001:db8:4::2/64","ipv6Gateway":"2001:db8:4::1","ipv6Prefix":"2001:db8:400::/48","priDnsV6":"2001:db8:4::53"}'
    call add '{"wanMode":1,"ipProtocol":2,"ipMode":0,"vlanMode":true,"vid":500,"mvid":501,"mtu":1280,"service":1,"autoDnsV6":true,"ipv6DsLite":true,"ipv6AddrDsLite":"2001:db8::a"}'
    call add '{"wanMode":1,"ipProtocol":1,"ipMode":0,"vlanMode":false,"mtu":1500,"service":2,"autoDns":true}'
    call add '{"mtu":1500}'
    call add '{"wanMode":1,"mtu":2000}'
    call add '{"wanMode":1,"vid":-1}'
    call add '{"wanMode":257,"ipProtocol":1,"vlanMode":true,"vid":65836,"mtu":67036,"service":1}'
    call add '{"wanMode":1,"ipProtocol":1,"vlanMode":true,"vid":700,"mtu":1500,"service":1,"bind":"01000000"}'
    call add '{"wanMode":0,"vlanMode":true,"vid":800,"mtu":1500,"service":3}'
}

query_wans() {
    title "What is said about them"
    call all '{}'
    for id in 1 2 3 4 5 6 7 99 257 -1; do
        call get "{\"wanId\":$id}"
    done
    call get '{"wanId":"1"}'
    ubus call korvel get '{"wanId":2}'
}

change_wans() {
    title "Changes, later and now"
    call modify '{"wanId":1,"mtu":1400,"prio":3,"wait":1}'
    call modify '{"wanId":1,"vid":4096,"wait":1}'
    call modify '{"wanId":1,"wait":-1}'
    await_events 1 wan_1
    call modify '{"wanId":4,"wanMode":1,"ipProtocol":1,"ipMode":1,"vlanMode":true,"vid":410,"mtu":1500,"service":6,"bind":"00001000","ip":"198.51.100.2","mask":"255.255.255.0","gateway":"198.51.100.1"}'
    await_events 1 wan_4
    call all '{}'
}

remove_wans() {
    title "Removals, and the management device"
    call del '{"wanId":2}'
    call del '{"wanId":2}'
    call del '{}'
    call addDev '{}'
    call all '{}'
}

# Numbers that a file says may be as long as somebody wants them.
import_wans() {
    title "A list found at the start replaces them all"
    printf 'wanMode=1\nipProtocol=3\nipMode=1\nnapt=1\nvlanMode=1\nvid=500\nprio=4294967298\nmtu=1500\nservice=1\nip=192.0.2.10\nmask=255.255.255.0\ngateway=192.0.2.1\npriDns=192.0.2.53\nbind=1000\n' > /tmp/first_wan
    printf 'wanMode=0\nvlanMode=1\nvid=12884902488\nmtu=-4294965796\nservice=3\nbind=0100\n' > /tmp/second_wan
    printf '/tmp/first_wan\n/tmp/second_wan\n/tmp/third_wan\n' > /tmp/wan_list
    stop_korvel
    start_korvel
    call all '{}'
}

restart() {
    title "Scripts that are missing at the start are written again"
    rm /etc/hotplug.d/iface/99-wan_* /etc/korvel/*
    stop_korvel
    start_korvel
}

title "The start"
lay_down_states
stand_in_for_hotplug
start_bus
start_korvel
# An object's number is drawn by lot.
ubus -v list korvel | sed 's/@.*//'
add_wans
query_wans
show_files
change_wans
show_files
restart
show_files
remove_wans
show_files
import_wans
show_files
title "The configuration in the words of its tool"
uci show
call delAll '{}'
show_files
stop_korvel

# What was sent to the log is in it once its program has ended.
kill $syslogd
wait $syslogd
title "The log"
cat /gateway/log
title "The commands, as they were started"
cat /gateway/journal
