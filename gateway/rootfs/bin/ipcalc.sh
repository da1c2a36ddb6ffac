#!/bin/sh
# shellcheck shell=dash
# ipcalc.sh ADDRESS/LENGTH or ipcalc.sh ADDRESS NETMASK: prints what follows from them as shell assignments.

# to_number A.B.C.D: sets `number`; fails when it is no address.
to_number() {
    local IFS=. octet
    number=0
    # shellcheck disable=SC2086 # at its points
    set -- $1
    [ $# -eq 4 ] || return 1
    for octet; do
        case "$octet" in '' | *[!0-9]*) return 1 ;; esac
        [ "$octet" -le 255 ] || return 1
        number=$((number * 256 + octet))
    done
}

to_text() {
    echo $(($1 >> 24 & 255)).$(($1 >> 16 & 255)).$(($1 >> 8 & 255)).$(($1 & 255))
}

# mask_length NUMBER: sets `prefix`; fails when the ones are not all in front.
mask_length() {
    prefix=0
    while [ $prefix -lt 32 ] && [ $(($1 >> (31 - prefix) & 1)) -eq 1 ]; do
        prefix=$((prefix + 1))
    done
    [ $(($1 << prefix & 0xffffffff)) -eq 0 ]
}

refuse() {
    echo "ipcalc.sh: not a network: $*" >&2
    exit 1
}

address=${1%%/*}
if [ "$address" != "$1" ]; then
    prefix=${1#*/}
    case "$prefix" in '' | *[!0-9]*) refuse "$@" ;; esac
    [ "$prefix" -le 32 ] || refuse "$@"
else
    { to_number "$2" && mask_length $number; } || refuse "$@"
fi
to_number "$address" || refuse "$@"
mask=$((0xffffffff << (32 - prefix) & 0xffffffff))

echo "IP=$(to_text $number)"
echo "NETMASK=$(to_text $mask)"
echo "BROADCAST=$(to_text $((number & mask | ~mask & 0xffffffff)))"
echo "NETWORK=$(to_text $((number & mask)))"
echo "PREFIX=$prefix"
