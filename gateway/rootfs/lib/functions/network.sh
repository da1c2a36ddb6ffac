# What scripts ask about interfaces, answered by the network daemon. Each function takes the name of a variable and an
# interface; it sets the variable and succeeds, or unsets it and fails when the interface has no such thing.

# network_pick INTERFACE PATH [KEY...]: lines of an interface's status, as gateway-tool pick prints them.
network_pick() {
    local _interface="$1"
    shift
    ubus -S call "network.interface.$_interface" status | gateway-tool pick "$@"
}

network_store() {
    if [ -z "$2" ]; then
        unset "$1"
        return 1
    fi
    eval "$1=\$2"
}

network_get_ipaddr() {
    set -- "$1" $(network_pick "$2" ipv4-address address)
    network_store "$1" "$2"
}

network_get_subnet() {
    set -- "$1" $(network_pick "$2" ipv4-address address mask)
    network_store "$1" "${2:+$2/$3}"
}

# network_default_route INTERFACE LIST: next hop of the first IPv4 default route in that list of the status.
network_default_route() {
    network_pick "$1" "$2" target mask nexthop | while read -r _target _mask _nexthop; do
        if [ "$_target/$_mask" = 0.0.0.0/0 ]; then
            echo "$_nexthop"
            break
        fi
    done
}

# With a third argument other than 0, a route that the configuration keeps out of use counts, too.
network_get_gateway() {
    local _gateway
    _gateway=$(network_default_route "$2" route)
    if [ -z "$_gateway" ] && [ "${3:-0}" != 0 ]; then
        _gateway=$(network_default_route "$2" inactive.route)
    fi
    network_store "$1" "$_gateway"
}

network_get_device() {
    network_store "$1" "$(network_pick "$2" l3_device)"
}

# With a third argument other than 0, servers that the configuration keeps out of use are named after the others.
network_get_dnsserver() {
    local _servers
    _servers=$(network_pick "$2" dns-server)
    [ "${3:-0}" = 0 ] || _servers="$_servers $(network_pick "$2" inactive.dns-server)"
    set -- "$1" $_servers
    _servers="$1"
    shift
    network_store "$_servers" "$*"
}
