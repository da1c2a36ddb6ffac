#!/bin/sh
# test.sh PACKAGE VERSION: whether an installed package works; run where it was installed. See test-version.sh for why no
# version is looked at.
set -e

# Each script is understood by the shell that will run it.
check_korvel() {
    korvel -h | grep -q '^Usage: korvel \[-dh\]$'
    for script in /etc/init.d/korvel /etc/hotplug.d/iface/90-korvel-rules /usr/libexec/korvel/* /usr/share/korvel/*; do
        sh -n "$script"
    done
    # With nothing to apply.
    /usr/libexec/korvel/apply-rules
}

case $1 in
korvel) check_korvel ;;
korvel-tools) korvelctl --help | grep -q '^Usage: korvelctl ' ;;
*)
    echo "unknown package: $1" >&2
    exit 1
    ;;
esac
