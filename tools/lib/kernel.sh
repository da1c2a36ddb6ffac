# shellcheck shell=bash disable=SC2154 # common.sh sets source_directory
# Runs the tests that need a kernel of their own: Debian's cloud kernel in a virtual machine, whose files are this
# machine's programs and the gateway's. Nothing of it is installed on this machine, and no hardware help is asked for.

# shellcheck disable=SC2034 # for those that source this
kernel_packages=(qemu-system-x86 busybox iproute2 iptables ebtables netbase util-linux)

kernel_package=linux-image-cloud-amd64
guest_memory=512                      # MiB
guest_disk=4M                         # carries a gateway's files from one boot to the next
guest_seconds=${KERNEL_SECONDS:-1200} # that one boot may take with its tests

# What the tests use of the kernel and it does not have built in.
guest_modules=(virtio_pci virtio_blk veth 8021q bridge ebtable_broute ebtable_filter ebt_mark ebt_ip ebt_ip6
    iptable_mangle xt_mark)

# The name of the package that the other one stands for: linux-image-6.1.0-1-cloud-amd64.
newest_kernel() {
    apt-cache depends "$kernel_package" 2> /dev/null | sed -n 's/^ *Depends: \(linux-image-[0-9].*\)$/\1/p' | head -n 1
}

# download_kernel DIRECTORY: where the package's lists are missing or old, they are renewed first.
download_kernel() {
    local name apt_options=(-o "APT::Sandbox::User=$(id -un)") # another could not write there
    name=$(newest_kernel)
    if [ -n "$name" ] && (cd "$1" && apt-get -qq "${apt_options[@]}" download "$name"); then
        return
    fi
    as_root apt-get -qq update || say "The package lists could not be renewed"
    name=$(newest_kernel)
    [ -n "$name" ] || die "there is no package $kernel_package to take a kernel from"
    (cd "$1" && apt-get -qq "${apt_options[@]}" download "$name") || die "cannot download $name: see the message above"
}

# fetch_kernel DIRECTORY: unpacks the kernel there, unless that was done before.
fetch_kernel() {
    [ ! -e "$1/complete" ] || return 0
    rm -rf "$1"
    mkdir -p "$1"
    say "Fetching $kernel_package"
    download_kernel "$1"
    dpkg-deb -x "$1"/*.deb "$1"
    rm "$1"/*.deb
    busybox depmod -b "$1" "$(kernel_release "$1")"
    touch "$1/complete"
}

# kernel_release DIRECTORY: of the kernel that was unpacked there.
kernel_release() {
    basename "$(echo "$1"/lib/modules/*)"
}

# copy_program GUEST FILE [NAME]: with the libraries that it needs; NAME when it is to be called otherwise.
copy_program() {
    local library
    mkdir -p "$1/usr/sbin"
    cp -L "$2" "$1/usr/sbin/${3:-$(basename "$2")}"
    ldd "$2" | grep -o '/[^ ]*' | while read -r library; do
        [ -e "$1$library" ] || install -D "$library" "$1$library"
    done
}

# find_tool NAME: this machine's program; an ordinary user's PATH may lack some.
find_tool() {
    PATH=$PATH:/usr/sbin:/sbin command -v "$1" || die "there is no program $1"
}

copy_programs() {
    local guest=$1 built=$2 name
    mkdir -p "$guest/bin" "$guest/usr/bin" "$guest/gateway/bin"
    copy_program "$guest" "$(find_tool busybox)"
    mv "$guest/usr/sbin/busybox" "$guest/bin/"
    ln -s busybox "$guest/bin/sh"
    for name in ip flock; do
        copy_program "$guest" "$(find_tool $name)"
    done
    # The tables of the bridge, and of the packets, that the firewall's later form does not have.
    copy_program "$guest" "$(find_tool ebtables-legacy)" ebtables
    copy_program "$guest" "$(find_tool xtables-legacy-multi)" iptables
    cp -rL --parents /usr/lib/*/xtables "$guest"
    for name in ubusd ubus uci gateway-netd gateway-tool korvel-kernel-test; do
        copy_program "$guest" "$built/bin/$name"
    done
}

# The modules that the tests use with those that these need; where the kernel has one built in, there is nothing to copy.
copy_modules() {
    local guest=$1 kernel=$2 release module file
    release=$(kernel_release "$kernel")
    local from=$kernel/lib/modules/$release to=$guest/lib/modules/$release
    mkdir -p "$to"
    cp "$from"/modules.{dep,alias,symbols,builtin,order} "$to"
    for module in "${guest_modules[@]}"; do
        # The line has its file and those of the modules that it needs.
        sed -n "s,^\(.*/$module\.ko\):,\1,p" "$from/modules.dep" | tr ' ' '\n' | while read -r file; do
            [ -z "$file" ] || install -D -m 644 "$from/$file" "$to/$file"
        done
    done
    printf '%s\n' "${guest_modules[@]}" > "$guest/gateway/modules"
}

# The files of a gateway with the package, as an image of it has them.
copy_gateway() {
    local guest=$1 built=$2 name
    cp -r "$source_directory/gateway/rootfs/." "$guest"
    cmake --install "$built" --prefix "$guest" > /dev/null
    ln -s /usr/sbin/ebtables "$guest/gateway/bin/ebtables"
    ln -s /run "$guest/var/run"
    printf 'root:x:0:0:root:/root:/bin/sh\n' > "$guest/etc/passwd"
    printf 'root:x:0:\n' > "$guest/etc/group"
    cp -L /etc/ethertypes /etc/protocols "$guest/etc"
    # The tests put back what was shipped.
    for name in gateway/rootfs/etc openwrt/root/etc; do
        mkdir -p "$guest$source_directory/$name"
        cp -r "$source_directory/$name/." "$guest$source_directory/$name"
    done
    # Below /tmp, which they empty, only what is mounted stays.
    echo "$source_directory" > "$guest/gateway/source"
    mkdir -p "$guest/gateway/netd" "$guest/gateway/fakes"
    touch "$guest/gateway/journal" "$guest/gateway/log"
}

# make_guest DIRECTORY KERNEL BUILT: writes DIRECTORY/initramfs.
make_guest() {
    local guest=$1/guest
    rm -rf "$guest"
    mkdir -p "$guest/var"
    copy_programs "$guest" "$3"
    copy_modules "$guest" "$2"
    copy_gateway "$guest" "$3"
    install -m 755 "$source_directory/tests/kernel/init" "$guest/init"
    (cd "$guest" && find . | busybox cpio -o -H newc -R 0:0 > ../initramfs 2> /dev/null)
}

# boot DIRECTORY KERNEL OPTION...: runs the tests that the options name, as googletest's without its prefix. Succeeds when
# the guest says that they did. The guest's time passes with its instructions, and at once while it waits: however busy this
# machine is, nothing in the guest is late. Its programs lie at the same addresses in each process (norandmaps), so that
# their code is translated once; that halves the time.
boot() {
    local directory=$1 kernel=$2 log=$1/console status=0
    shift 2
    (
        set -o pipefail
        timeout -k 10 "$guest_seconds" qemu-system-x86_64 -accel tcg,thread=single -icount shift=1,sleep=off \
            -machine pc -cpu qemu64 -smp 1 -m $guest_memory -nodefaults -no-user-config -display none \
            -serial stdio -no-reboot -kernel "$kernel"/boot/vmlinuz-* -initrd "$directory/initramfs" \
            -drive "file=$directory/disk,format=raw,if=virtio" \
            -append "console=ttyS0 quiet panic=-1 oops=panic mitigations=off norandmaps ${*/#/tests.}" < /dev/null |
            sed -u 's,\r$,,' | tee "$log"
    ) || status=$?
    [ $status -ne 124 ] || die "the virtual machine did not end within $guest_seconds seconds"
    case $(grep '^kernel lane: status ' "$log" | tail -n 1) in
    'kernel lane: status 0') ;;
    'kernel lane: status '*) return 1 ;;
    *) die "the virtual machine ended without a result (status $status)" ;;
    esac
}

# The numbers of tests that passed and that ran, added up over the boots.
count_results() {
    sed -n 's/^\[ *\(PASSED\|FAILED\) *\] \([0-9]*\) tests\{0,1\}[.,].*/\1 \2/p' "$@" |
        awk '{ count[$1] += $2 } END { printf "%d passed, %d failed\n", count["PASSED"], count["FAILED"] }'
}

# run_on_a_kernel PRESET [NAME]: of a preset that was built; only tests whose names contain NAME.
run_on_a_kernel() {
    local built directory failed=
    built=$(build_directory "$1")
    directory=$built/kernel
    mkdir -p "$directory"
    fetch_kernel "$directory/linux"
    make_guest "$directory" "$directory/linux" "$built"
    rm -f "$directory/disk" "$directory"/console*
    truncate -s $guest_disk "$directory/disk"
    say "Booting a gateway"
    boot "$directory" "$directory/linux" ${2:+"filter=*$2*"} || failed=yes
    mv "$directory/console" "$directory/console-1"
    if [ -z "${2:-}" ] && [ -z "$failed" ]; then
        say "Booting it again, with what it has stored"
        boot "$directory" "$directory/linux" also_run_disabled_tests 'filter=*after_a_boot' || failed=yes
    fi
    say "Tests on a kernel of their own: $(count_results "$directory"/console*)"
    [ -z "$failed" ]
}
