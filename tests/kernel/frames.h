// Ethernet frames for tests. Each carries a text by which it is known again.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

using mac_address = std::array<uint8_t, 6>;
using frame = std::vector<uint8_t>; // from the Ethernet header on

enum class protocol { ipv4, ipv6, arp };
// To the address of a host that the bridge knows, to one that nobody has, to everybody.
enum class delivery { known, unknown, everybody };
std::string name_of(protocol what, delivery how);

// A frame of no consequence for those who get it. `known` is the address of the host that it is for.
frame plain_frame(protocol what, delivery how, const mac_address &from, const mac_address &known,
                  const std::string &text);

struct ip_ends {
    std::string source;
    std::string destination;
    uint16_t source_port = 9000;
    uint16_t destination_port = 9000;
};
frame udp_frame(const mac_address &from, const mac_address &to, const ip_ends &ends, const std::string &text);
frame udp6_frame(const mac_address &from, const mac_address &to, const ip_ends &ends,
                 const std::string &text);

// What keeps a LAN's addresses: requests and replies of DHCP, of DHCPv6, and a router's advertisement.
enum class housekeeping { dhcp_request, dhcp_reply, dhcpv6_request, dhcpv6_reply, router_advertisement };
inline constexpr housekeeping all_housekeeping[] = {housekeeping::dhcp_request, housekeeping::dhcp_reply,
                                                    housekeeping::dhcpv6_request, housekeeping::dhcpv6_reply,
                                                    housekeeping::router_advertisement};
std::string name_of(housekeeping what);
frame housekeeping_frame(housekeeping what, const mac_address &from, const std::string &text);

// The frame with an 802.1Q tag.
frame with_tag(const frame &plain, unsigned vid);

// Whether a router says that it may not pass on a packet.
bool is_prohibition(const frame &bytes);

bool holds(const frame &bytes, const std::string &text);
