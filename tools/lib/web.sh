# shellcheck shell=bash disable=SC2154 # common.sh and build.sh set what is used here
# The web application: what its tests and its demonstration need, beside what the gateway needs.

# shellcheck disable=SC2034 # for those that source this
web_packages=(chromium nodejs npm)

# Installs node's modules where the build goes: the versions that the lock file names.
install_web_modules() {
    local tests=$source_directory/tests/web stamp
    web_directory=$(build_directory web)
    stamp=$web_directory/package-lock.json.installed
    mkdir -p "$web_directory"
    if ! cmp -s "$tests/package-lock.json" "$stamp"; then
        cp "$tests/package.json" "$tests/package-lock.json" "$web_directory"
        (cd "$web_directory" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
        cp "$tests/package-lock.json" "$stamp"
    fi
}

# in_web_gateway COMMAND...: in a virtual gateway whose daemon is left to the command. Of the machine's files only the
# build's can be written there.
in_web_gateway() {
    "$(build_directory dev)/bin/korvel-gateway" --no-korvel -- "$@"
}

# run_web_tests [PATTERN]: those whose names match it. Their pictures are in build/web/pictures.
run_web_tests() {
    local status=0 made
    made=$(build_directory dev)/web-pictures
    rm -rf "$made"
    in_web_gateway env KORVEL_WEB_INSTALLED="$web_directory" KORVEL_WEB_PICTURES="$made" \
        "$(command -v node)" --test-reporter=spec "$source_directory/tests/web/run.mjs" "$@" ||
        status=$?
    rm -rf "$web_directory/pictures"
    [ ! -e "$made" ] || mv "$made" "$web_directory/pictures"
    return $status
}
