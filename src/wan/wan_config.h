// The life of a WAN's record.
//
// A wan_config is one WAN connection in memory. It is filled from one of three sources: the arguments of a
// request (create/parse_args), the stored configuration together with the network daemon's status
// (store/read_config), or a provisioning file (modify/import). It is read by the configuration writer
// (create/create), the script generators (rules/), the conflict checks (create/conflicts) and the replies of
// `get` and `all` (store/query). Nothing keeps a record from one request to the next, except a modification
// that waits (modify/pending).
//
// The record is plain data without pointers: zero it before use, copy it by value. Zero and empty text are
// what a source leaves in a field that it does not set. Field names are the names on the bus. A text field
// may be full, that is without a terminator: read it through text_view() or with a bounded format. The widths
// are behaviour: what does not fit is cut, and clients see the cut value.
#pragma once

#include <cstdint>

struct wan_config {
    uint8_t wanId;
    char wanName[35];

    uint8_t autoDns;
    uint8_t autoDnsV6;
    // Deliberate: kept in 8 bits, so the 300 s on-demand limit reads back as 44; clients are used to that
    // value.
    uint8_t pppDialMode;
    uint8_t disableLanDhcp;
    uint8_t iphostId;
    uint8_t ipMode;
    uint8_t ipProtocol;
    uint8_t ipv6DsLite;
    uint8_t ipv6PrefixProxy;
    uint8_t napt;
    uint8_t prio;
    uint8_t service;
    uint8_t status;
    uint8_t statusV6;
    uint8_t vlanMode;
    uint8_t wanMode;

    uint16_t mtu;
    uint16_t mvid;
    uint16_t vid;

    uint32_t uptime;

    // One character per LAN port, '1' bound. A stored list of 17 or more entries fills it without a
    // terminator.
    char bind[17];
    char device[12];
    char gateway[16];
    char ip[16];
    char ipSec[16];
    char ipv6Addr[45];
    char ipv6AddrDsLite[65];
    char ipv6Gateway[40];
    char ipv6Prefix[44];
    char ipv6SecAddr[45];
    char mac[18];
    char mask[16];
    char pppPwd[65];
    char pppServName[65];
    char pppUser[65];
    char priDns[16];
    char priDnsV6[40];
    char secDns[16];
    char secDnsV6[40];
};

// wanMode
enum : uint8_t { wan_mode_bridged = 0, wan_mode_routed = 1 };
// ipMode; any value above static dials
enum : uint8_t { ip_mode_dhcp = 0, ip_mode_static = 1, ip_mode_pppoe = 2 };
// ipProtocol is a set of these bits
enum : uint8_t { ip_protocol_v4 = 1, ip_protocol_v6 = 2 };
