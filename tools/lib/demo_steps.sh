# shellcheck shell=sh
# The steps of a demonstration: sentences, command lines and what they print. Sourced by a shell in a virtual gateway.

# How long an effect may take, in seconds.
step_deadline=60

say() {
    printf '\n== %s\n' "$*"
}

# Shows a command line and runs it.
run() {
    printf '\n$ %s\n' "$1"
    eval "$1" || {
        status=$?
        echo "demo: this failed with status $status" >&2
        exit 1
    }
}

# As run, for a command line that has to fail.
run_refused() {
    printf '\n$ %s\n' "$1"
    if eval "$1"; then
        echo "demo: this should have been refused" >&2
        exit 1
    fi
}

# run_until TEXT COMMAND: shows a command line and its first output that holds the text. What was waited for is what is
# shown: asked again, a command may catch a script between taking its rules back and installing them anew.
run_until() {
    wanted=$1
    asked=$2
    started=$(date +%s)
    until output_is_wanted 2> /dev/null; do
        if [ $(($(date +%s) - started)) -ge $step_deadline ]; then
            echo "demo: '$asked' did not show in time: $wanted" >&2
            exit 1
        fi
        sleep 0.02
    done
    printf '\n$ %s\n%s\n' "$asked" "$output"
}

output_is_wanted() {
    output=$(eval "$asked")
    case $output in
    *"$wanted"*) ;;
    *) return 1 ;;
    esac
}
