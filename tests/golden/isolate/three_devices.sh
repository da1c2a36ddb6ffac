#!/bin/sh
ebtables -D FORWARD -i "pon.10" -o "pon.20" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.10" -o "pon.20" -j DROP
ebtables -D FORWARD -i "pon.10" -o "pon.30" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.10" -o "pon.30" -j DROP
ebtables -D FORWARD -i "pon.20" -o "pon.10" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.20" -o "pon.10" -j DROP
ebtables -D FORWARD -i "pon.20" -o "pon.30" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.20" -o "pon.30" -j DROP
ebtables -D FORWARD -i "pon.30" -o "pon.10" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.30" -o "pon.10" -j DROP
ebtables -D FORWARD -i "pon.30" -o "pon.20" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.30" -o "pon.20" -j DROP
