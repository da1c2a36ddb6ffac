# shellcheck shell=dash
# What scripts ask about interfaces, answered by the network daemon. Each function takes the name of a variable and an
# interface; it sets the variable and succeeds, or unsets it and fails when the interface has no such thing.

# What a script learns stays the same until it calls this.
network_flush_cache() {
    unset __network_dump
}

# network_pick INTERFACE PATH [KEY...]: lines of an interface's status, as gateway-tool pick prints them. All interfaces
# are asked about at once, by network_load.
network_pick() {
    local _interface="$1" _path="$2"
    shift 2
    printf '%s' "$__network_dump" | gateway-tool pick "interface.interface=$_interface.$_path" "$@"
}

network_load() {
    [ -n "$__network_dump" ] || __network_dump=$(ubus -S call network.interface dump)
}

network_store() {
    if [ -z "$2" ]; then
        unset "$1"
        return 1
    fi
    eval "$1=\$2"
}

network_get_ipaddr() {
    network_load
    # shellcheck disable=SC2046 # a word each
    set -- "$1" $(network_pick "$2" ipv4-address address)
    network_store "$1" "$2"
}

network_get_subnet() {
    network_load
    # shellcheck disable=SC2046 # a word each
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
    network_load
    local _gateway
    _gateway=$(network_default_route "$2" route)
    if [ -z "$_gateway" ] && [ "${3:-0}" != 0 ]; then
        _gateway=$(network_default_route "$2" inactive.route)
    fi
    network_store "$1" "$_gateway"
}

network_get_device() {
    network_load
    network_store "$1" "$(network_pick "$2" l3_device)"
}

# With a third argument other than 0, servers that the configuration keeps out of use are named after the others.
network_get_dnsserver() {
    network_load
    local _servers
    _servers=$(network_pick "$2" dns-server)
    [ "${3:-0}" = 0 ] || _servers="$_servers $(network_pick "$2" inactive.dns-server)"
    # shellcheck disable=SC2086 # a word each
    set -- "$1" $_servers
    _servers="$1"
    shift
    network_store "$_servers" "$*"
}
