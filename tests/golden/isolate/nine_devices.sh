#!/bin/sh
ebtables -D FORWARD -i "pon.1" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.1" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.1" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.2" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.2" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.3" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.3" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.4" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.4" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.5" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.5" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.6" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.6" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.8" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.8" -j DROP
ebtables -D FORWARD -i "pon.7" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.7" -o "pon.9" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.1" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.1" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.2" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.2" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.3" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.3" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.4" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.4" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.5" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.5" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.6" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.6" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.7" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.7" -j DROP
ebtables -D FORWARD -i "pon.8" -o "pon.9" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.8" -o "pon.9" -j DROP
