# shellcheck shell=bash disable=SC2154 # common.sh and build.sh set source_directory and jobs
# Tries what could be different on another kind of machine: with 32 bits, or with the big end first. Builds for both with
# Debian's cross compilers, runs the tests of single functions and one tour of the daemon under an emulator, compiles
# against musl, and holds the daemon's size to a limit.

machines=(armhf s390x)
declare -A machine_triplet=([armhf]=arm-linux-gnueabihf [s390x]=s390x-linux-gnu)

# Bytes that the stripped daemon may have, with the host libraries in it: a few of a hundred above what it has.
declare -A most_bytes=([x86_64]=160000 [armhf]=122000 [s390x]=177000)

cross_packages=(g++-arm-linux-gnueabihf g++-s390x-linux-gnu qemu-user googletest binutils)

# What the other machines' builds take from their own packages.
foreign_packages=(libjson-c-dev libjson-c5 musl-dev)

# The machine's own sources of Debian's packages. Its security updates are of no use here, and lists that a mirror is just
# renewing would stop everything.
debian_sources() {
    # shellcheck disable=SC2016 # apt-get's own placeholders
    apt-get indextargets --format '$(RELEASE) $(REPO_URI) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        awk '$1 !~ /-security$/ { print "deb", $2, $1, $3 }' | sort -u
}

# apt_elsewhere WORD...: apt-get with lists and a database of its own, so that this machine's stay as they are.
apt_elsewhere() {
    local place
    place=$(build_directory packages)
    APT_CONFIG=$place/apt.conf apt-get -qq "$@"
}

prepare_apt_elsewhere() {
    local place=$1 directory
    mkdir -p "$place/apt/lists/partial" "$place/apt/archives/partial" "$place/apt/trusted"
    for directory in /etc/apt/trusted.gpg.d /usr/share/keyrings; do
        cp -f "$directory"/debian-archive-*.{gpg,asc} "$place/apt/trusted/" 2> /dev/null || true
    done
    : > "$place/apt/status"
    debian_sources > "$place/apt/sources.list"
    cat > "$place/apt.conf" << END
APT::Architecture "${machines[0]}";
APT::Architectures { $(printf '"%s"; ' "${machines[@]}")};
Dir::State "$place/apt";
Dir::State::status "$place/apt/status";
Dir::Cache "$place/apt";
Dir::Etc::SourceList "$place/apt/sources.list";
Dir::Etc::SourceParts "-";
Dir::Etc::TrustedParts "$place/apt/trusted";
Acquire::Languages "none";
Acquire::Retries "3";
APT::Sandbox::User "";
END
}

# Unpacks below build/packages/MACHINE; nothing is installed.
fetch_foreign_packages() {
    local place machine incoming
    place=$(build_directory packages)
    [ ! -e "$place/complete" ] || return 0
    say "Fetching ${foreign_packages[*]} for ${machines[*]}"
    rm -rf "$place"
    prepare_apt_elsewhere "$place"
    [ -s "$place/apt/sources.list" ] || die "this machine's apt-get knows no archive of Debian to fetch them from"
    apt_elsewhere update || say "Not all package lists could be fetched"
    for machine in "${machines[@]}"; do
        incoming=$place/incoming.$machine
        mkdir "$incoming"
        (cd "$incoming" && apt_elsewhere download "${foreign_packages[@]/%/:$machine}") ||
            die "cannot fetch ${foreign_packages[*]} for $machine: see the message above"
        find "$incoming" -name '*.deb' -exec dpkg-deb -x {} "$place/$machine" \;
        rm -r "$incoming"
    done
    touch "$place/complete"
}

# configure_for MACHINE PRESET
configure_for() {
    configure "$2" -DKORVEL_PACKAGES="$(build_directory packages)/$1" -DKORVEL_WERROR=ON \
        -DKORVEL_LAUNCHER="$launcher"
}

build_for() {
    local machine=$1
    say "Building for $machine in $(build_directory "$machine")"
    quietly configure_for "$machine" "$machine"
    quietly build "$machine" korvel ubusd ubus uci
    quietly configure_for "$machine" "$machine-tests"
    quietly build "$machine-tests" emulated_tests
}

# take_tour NAME LAUNCHER-OPTION...: what it printed is in build/tours/NAME.
take_tour() {
    local output status=0
    output=$(build_directory tours)/$1
    mkdir -p "$(dirname "$output")"
    shift
    "$launcher" --bare "$@" -- "$source_directory/tools/lib/cross_tour.sh" > "$output" || status=$?
    [ $status -eq 0 ] || { tail -n 20 "$output" && echo "the tour ended with status $status" && return 1; }
}

# compare_tour NAME PROGRAMS: takes the tour with these programs; its output has to be this machine's.
compare_tour() {
    local tours
    tours=$(build_directory tours)
    say "The tour with $1"
    take_tour "$1" --programs "$2" || return
    if ! diff -u "$tours/this machine" "$tours/$1"; then
        echo "the tour with $1 differs from this machine's as above"
        return 1
    fi
    echo "$(wc -l < "$tours/$1") lines, byte for byte this machine's"
}

# The daemon alone shows that it understands a bus whose other members have another byte order.
compare_tours() {
    local emulated
    emulated=$(build_directory "$1")/emulated
    compare_tour "the daemon of $1" "$emulated/daemon" && compare_tour "daemon, bus and tools of $1" "$emulated/all"
}

compile_against_musl() {
    say "Every source against musl's headers for $1"
    CXX=${machine_triplet[$1]}-g++ "$source_directory/tools/check_portable" --musl "$(build_directory packages)/$1"
}

# stripped_size PROGRAM STRIP: in bytes.
stripped_size() {
    local copy
    copy=$(mktemp)
    "$2" -o "$copy" "$1" && stat -c %s "$copy"
    rm -f "$copy"
}

# size_row MACHINE PROGRAM STRIP: fails when it is above its limit.
size_row() {
    local size limit=${most_bytes[$1]:-}
    size=$(stripped_size "$2" "$3") || return
    printf '%-8s %9s %9s\n' "$1" "$size" "${limit:-none}"
    [ -z "$limit" ] || [ "$size" -le "$limit" ]
}

compare_sizes() {
    local machine status=0
    say "Bytes of the stripped daemon"
    printf '%-8s %9s %9s\n' machine size limit
    size_row "$(uname -m)" "$(build_directory release)/bin/korvel" strip || status=1
    for machine in "${machines[@]}"; do
        size_row "$machine" "$(build_directory "$machine")/bin/korvel" "${machine_triplet[$machine]}-strip" || status=1
    done
    [ $status -eq 0 ] || echo "the daemon has become larger than it may be; the limits are in tools/lib/cross.sh"
    return $status
}

build_for_this_machine() {
    say "Building in $(build_directory dev) and $(build_directory release)"
    quietly configure dev
    quietly build dev korvel-gateway
    quietly configure release
    quietly build release korvel
    launcher=$(build_directory dev)/bin/korvel-gateway
}

# Everything is tried, whatever of it fails.
test_other_machines() {
    local machine failed=()
    need_private_root
    need_packages "${build_packages[@]}" "${gateway_packages[@]}" "${cross_packages[@]}"
    fetch_foreign_packages
    build_for_this_machine
    take_tour "this machine" || die "the tour fails on this machine"
    for machine in "${machines[@]}"; do
        build_for "$machine" || die "the build for $machine failed"
        compile_against_musl "$machine" || failed+=("musl's headers for $machine")
        say "Tests of single functions on $machine"
        run_tests "$machine-tests" || failed+=("tests on $machine")
        compare_tours "$machine" || failed+=("tour on $machine")
    done
    compare_sizes || failed+=("sizes")
    [ ${#failed[@]} -eq 0 ] || die "failed:$(printf ' %s,' "${failed[@]}" | sed 's/,$//')"
    say "All passed on ${machines[*]} in $SECONDS s"
}
