# shellcheck shell=bash
# Whether this machine lets a virtual gateway be made, which lives in namespaces of its own.

# in_namespaces [UNSHARE OPTION]...: tries the namespaces of a private root, with a /proc of their own.
in_namespaces() {
    unshare "$@" --mount --pid --net --ipc --uts --propagation unchanged --fork --mount-proc true
}

# Whether this process has the capability of that number.
has_capability() {
    local set
    set=$(sed -n 's/^CapEff:[[:space:]]*//p' /proc/self/status)
    (((0x$set >> $1) & 1))
}

# What a setting of the kernel says; nothing when it has no such setting.
kernel_setting() {
    cat "/proc/sys/${1//.//}" 2> /dev/null || true
}

# What lets this user make a private root, a line each.
remedies() {
    if [ "$(id -u)" -eq 0 ]; then
        echo "start the container with --privileged"
        return
    fi
    [ "$(kernel_setting kernel.unprivileged_userns_clone)" != 0 ] ||
        echo "as root: sysctl kernel.unprivileged_userns_clone=1"
    [ "$(kernel_setting user.max_user_namespaces)" != 0 ] ||
        echo "as root: sysctl user.max_user_namespaces=10000"
    [ "$(kernel_setting kernel.apparmor_restrict_unprivileged_userns)" != 1 ] ||
        echo "as root: sysctl kernel.apparmor_restrict_unprivileged_userns=0"
    echo "run this as root; in a chroot and in most containers nobody else can"
}

# Ends the script with a message when no private root can be made.
need_private_root() {
    local reason
    need_packages util-linux
    if [ "$(id -u)" -eq 0 ] && reason=$(in_namespaces 2>&1); then
        # cap_net_admin: for the gateway's network devices
        has_capability 12 && return
        reason="root may not make network devices"
    elif reason=$(in_namespaces --user --map-root-user 2>&1); then
        return
    fi
    die "no virtual gateway can be made here: $reason
What helps:
$(remedies | sed 's/^/  /')"
}
