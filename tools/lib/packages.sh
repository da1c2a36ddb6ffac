# shellcheck shell=bash
# Installs from Debian what a script needs and the machine lacks.

# What tells that a package is there: a program, or a file (a pattern with a slash). Packages of the same name as their
# program are not listed.
declare -A package_sign=(
    ["ninja-build"]=ninja
    ["libgtest-dev"]=/usr/include/gtest/gtest.h
    ["libjson-c-dev"]=/usr/include/json-c/json.h
    ["iproute2"]=ip
    ["util-linux"]=flock
    ["binutils"]=readelf
    ["qemu-system-x86"]=qemu-system-x86_64
    ["ebtables"]=ebtables-legacy
    ["netbase"]=/etc/ethertypes
    ["g++-arm-linux-gnueabihf"]=arm-linux-gnueabihf-g++
    ["g++-s390x-linux-gnu"]=s390x-linux-gnu-g++
    ["qemu-user"]=qemu-arm
    ["googletest"]=/usr/src/googletest/CMakeLists.txt
    ["nodejs"]=node
    ["libclang-rt-dev"]='/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a'
)

# shellcheck disable=SC2034 # for those that source this
build_packages=(g++ cmake make ninja-build libgtest-dev libjson-c-dev)
# shellcheck disable=SC2034
gateway_packages=(busybox ebtables iptables iproute2 util-linux)
# shellcheck disable=SC2034 # what only tests ask for
test_packages=(mandoc)

has_package() {
    local sign=${package_sign[$1]:-$1}
    case $sign in
    /*) compgen -G "$sign" > /dev/null ;;
    *) PATH=$PATH:/usr/sbin:/sbin command -v "$sign" > /dev/null ;;
    esac
}

# Runs a command as root.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif [ -t 0 ]; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

# need_packages PACKAGE...: ends the script with a message when one is missing and cannot be installed.
need_packages() {
    local package missing=()
    for package; do
        has_package "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0

    command -v apt-get > /dev/null ||
        die "missing, and there is no apt-get to install them: ${missing[*]}"
    [ "$(id -u)" -eq 0 ] || command -v sudo > /dev/null ||
        die "missing: ${missing[*]}. Neither root nor sudo here; as root: apt-get install ${missing[*]}"
    say "Installing ${missing[*]}"
    install_packages "${missing[@]}" || die "cannot install ${missing[*]}: see the message above"
}

install_packages() {
    # The lists may be missing or old; where they cannot be renewed, those at hand are tried.
    as_root apt-get -qq update || say "The package lists could not be renewed"
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -qq -y --no-install-recommends install "$@" \
        > /dev/null
}
