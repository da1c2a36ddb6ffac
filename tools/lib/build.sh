# shellcheck shell=bash disable=SC2154 # common.sh sets source_directory
# Configures and builds a preset.

jobs=$(nproc)

# Where a preset is built: build/PRESET, or a directory of one's own where that cannot be written. Not in /tmp, which is
# empty in a fresh gateway.
build_directory() {
    local preferred=$source_directory/build/$1 existing
    existing=$preferred
    while [ ! -e "$existing" ]; do
        existing=$(dirname "$existing")
    done
    if [ -w "$existing" ]; then
        echo "$preferred"
    else
        echo "/var/tmp/korvel-$(id -un)/$1"
    fi
}

# configure PRESET [CMAKE OPTION]...
configure() {
    local preset=$1
    shift
    (cd "$source_directory" && cmake --preset "$preset" -B "$(build_directory "$preset")" "$@")
}

# build PRESET [TARGET]...: everything when no target is named.
build() {
    local directory
    directory=$(build_directory "$1")
    shift
    cmake --build "$directory" -j "$jobs" ${1:+--target "$@"}
}

# build_with_progress PRESET [TARGET]...: as build; its output is shown only when it fails, and how far it is meanwhile.
build_with_progress() {
    local output status
    output=$(mktemp)
    build "$@" 2>&1 | tee "$output" | show_progress
    status=${PIPESTATUS[0]}
    [ "$status" -eq 0 ] || cat "$output" >&2
    rm -f "$output"
    return "$status"
}

is_on_terminal() {
    [ -t 1 ]
}

# Reads what Ninja prints and says how many of its steps are done: on a terminal in one line that changes, elsewhere at
# each fifth of them.
show_progress() {
    local line done=0 total=0 fifth=0
    while IFS= read -r line; do
        [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
        done=${BASH_REMATCH[1]} total=${BASH_REMATCH[2]}
        if is_on_terminal; then
            printf '\r   %d of %d steps' "$done" "$total"
        elif [ $((5 * done / total)) -gt "$fifth" ]; then
            fifth=$((5 * done / total))
            printf '   %d of %d steps\n' "$done" "$total"
        fi
    done
    if is_on_terminal && [ "$total" -gt 0 ]; then
        echo
    fi
}

# The thread sanitizer does not cope with every layout of memory, so it gets a fixed one where that is allowed.
with_fixed_layout() {
    if setarch "$(uname -m)" -R true 2> /dev/null; then
        setarch "$(uname -m)" -R "$@"
    else
        "$@"
    fi
}

# The tests that a run has skipped according to its log, each with the reason that it gave.
skipped_tests() {
    awk '/: Skipped$/ { reason = ""; reading = 1; next }
        reading && /^\[  SKIPPED \]/ { print $4 ": " reason; reading = 0 }
        reading && NF { reason = reason (reason == "" ? "" : " ") $0 }' "$1"
}

# run_tests PRESET [CTEST OPTION]...: of a preset that was built. Most tests wait more than they compute.
run_tests() {
    local directory skipped status=0 run
    directory=$(build_directory "$1")
    run=(ctest --test-dir "$directory" -j $((2 * jobs)) --output-on-failure --no-tests=error)
    if [ "$1" = tsan ]; then
        run=(with_fixed_layout "${run[@]}")
    fi
    shift
    "${run[@]}" "$@" || status=$?
    skipped=$(skipped_tests "$directory/Testing/Temporary/LastTest.log")
    if [ -n "$skipped" ]; then
        say "Skipped:"
        printf '%s\n' "$skipped"
    fi
    return $status
}

# quietly COMMAND...: its output is shown only when it fails.
quietly() {
    local output status=0
    output=$(mktemp)
    "$@" > "$output" 2>&1 || status=$?
    [ $status -eq 0 ] || cat "$output" >&2
    rm -f "$output"
    return $status
}
