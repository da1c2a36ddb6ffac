# What the scripts in tools/ and .ci/ share: messages and places. Sourced by bash, with `set -eu` in force.

source_directory=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

say() {
    printf '== %s\n' "$*"
}

die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}
