#!/bin/sh
ebtables -D FORWARD -i "pon.12345" -o "pon.123456" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.12345" -o "pon.123456" -j DROP
ebtables -D FORWARD -i "pon.12345" -o "pon.1234567" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.12345" -o "pon.1234567" -j DROP
ebtables -D FORWARD -i "pon.123456" -o "pon.12345" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.123456" -o "pon.12345" -j DROP
ebtables -D FORWARD -i "pon.123456" -o "pon.1234567" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.123456" -o "pon.1234567" -j DROP
ebtables -D FORWARD -i "pon.123456" -o "pon.12345" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.123456" -o "pon.12345" -j DROP
ebtables -D FORWARD -i "pon.123456" -o "pon.1234567" -j DROP
[ "$1" != "-r" ] && ebtables -I FORWARD -i "pon.123456" -o "pon.1234567" -j DROP
