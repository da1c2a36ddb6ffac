#!/bin/sh
# test-version.sh PACKAGE VERSION: in place of the feeds' search for a program that prints its version. The daemon's command
# line is fixed and prints none; a test of the source tree holds the package to the version of the build.
case $1 in
korvel) korvel -h > /dev/null ;;
korvel-tools) ;;
*)
    echo "unknown package: $1" >&2
    exit 1
    ;;
esac
