# shellcheck shell=bash
# What the scripts in tools/ and .ci/ share: messages and places. Sourced by bash, with `set -eu` in force.

# shellcheck disable=SC2034 # for those that source this
source_directory=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

say() {
    printf '== %s\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}
