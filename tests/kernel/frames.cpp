#include "kernel/frames.h"

#include <algorithm>
#include <arpa/inet.h>
#include <stdexcept>

namespace {

constexpr uint16_t type_ipv4 = 0x0800;
constexpr uint16_t type_arp = 0x0806;
constexpr uint16_t type_vlan = 0x8100;
constexpr uint16_t type_ipv6 = 0x86dd;
constexpr uint8_t next_udp = 17;
constexpr uint8_t next_icmpv6 = 58;
constexpr size_t addresses_size = 12; // both, in front of the type
constexpr size_t least_frame = 60;

constexpr mac_address everybody = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr mac_address all_ipv6_nodes = {0x33, 0x33, 0, 0, 0, 1};
constexpr mac_address nobody = {0x02, 0, 0, 0, 0, 0xee};

using bytes = std::vector<uint8_t>;

void add(bytes &to, const bytes &more)
{
    to.insert(to.end(), more.begin(), more.end());
}

void add(bytes &to, const std::string &text)
{
    to.insert(to.end(), text.begin(), text.end());
}

void add16(bytes &to, size_t value)
{
    to.push_back(static_cast<uint8_t>(value >> 8));
    to.push_back(static_cast<uint8_t>(value));
}

bytes ip_address(int family, const std::string &text)
{
    bytes address(family == AF_INET ? 4 : 16);
    if (inet_pton(family, text.c_str(), address.data()) != 1)
        throw std::runtime_error("no address: " + text);
    return address;
}

// Of the Internet protocols' headers: the ones' complement of the sum of 16-bit words.
size_t checksum(const bytes &words)
{
    size_t sum = 0;
    for (size_t i = 0; i < words.size(); i++)
        sum += static_cast<size_t>(words[i]) << (i % 2 ? 0 : 8);
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return ~sum & 0xffff;
}

frame ethernet(const mac_address &from, const mac_address &to, uint16_t type, const bytes &payload)
{
    frame made(to.begin(), to.end());
    made.insert(made.end(), from.begin(), from.end());
    add16(made, type);
    add(made, payload);
    made.resize(std::max(made.size(), least_frame));
    return made;
}

bytes udp(const ip_ends &ends, const std::string &text)
{
    bytes made;
    add16(made, ends.source_port);
    add16(made, ends.destination_port);
    add16(made, 8 + text.size());
    add16(made, 0); // not checked
    add(made, text);
    return made;
}

bytes ipv4(const ip_ends &ends, const bytes &payload)
{
    bytes made = {0x45, 0};
    add16(made, 20 + payload.size());
    add(made, bytes{0, 0, 0, 0, 64, next_udp, 0, 0});
    add(made, ip_address(AF_INET, ends.source));
    add(made, ip_address(AF_INET, ends.destination));
    bytes sum;
    add16(sum, checksum(made));
    std::copy(sum.begin(), sum.end(), made.begin() + 10);
    add(made, payload);
    return made;
}

bytes ipv6(const ip_ends &ends, uint8_t next, uint8_t hops, const bytes &payload)
{
    bytes made = {0x60, 0, 0, 0};
    add16(made, payload.size());
    made.push_back(next);
    made.push_back(hops);
    add(made, ip_address(AF_INET6, ends.source));
    add(made, ip_address(AF_INET6, ends.destination));
    add(made, payload);
    return made;
}

// A question for an address that nobody has. The text takes the place of the padding.
frame arp_request(const mac_address &from, const mac_address &to, const std::string &text)
{
    bytes made = {0, 1, 8, 0, 6, 4, 0, 1};
    made.insert(made.end(), from.begin(), from.end());
    add(made, ip_address(AF_INET, "198.18.0.1"));
    made.resize(made.size() + 6);
    add(made, ip_address(AF_INET, "198.18.0.2"));
    add(made, text);
    return ethernet(from, to, type_arp, made);
}

mac_address destination(protocol what, delivery how, const mac_address &known)
{
    if (how == delivery::known)
        return known;
    if (how == delivery::unknown)
        return nobody;
    return what == protocol::ipv6 ? all_ipv6_nodes : everybody;
}

} // namespace

std::string name_of(protocol what, delivery how)
{
    constexpr const char *protocols[] = {"IPv4", "IPv6", "ARP"};
    constexpr const char *deliveries[] = {"unicast", "flooded unicast", "broadcast"};
    return std::string(protocols[static_cast<int>(what)]) + " " + deliveries[static_cast<int>(how)];
}

frame plain_frame(protocol what, delivery how, const mac_address &from, const mac_address &known,
                  const std::string &text)
{
    const mac_address to = destination(what, how, known);
    if (what == protocol::arp)
        return arp_request(from, to, text);
    if (what == protocol::ipv4)
        return udp_frame(from, to, {"198.18.0.1", "198.18.0.2"}, text);
    return udp6_frame(from, to, {"fe80::1", how == delivery::everybody ? "ff02::1" : "fe80::2"}, text);
}

frame udp_frame(const mac_address &from, const mac_address &to, const ip_ends &ends, const std::string &text)
{
    return ethernet(from, to, type_ipv4, ipv4(ends, udp(ends, text)));
}

frame udp6_frame(const mac_address &from, const mac_address &to, const ip_ends &ends, const std::string &text)
{
    return ethernet(from, to, type_ipv6, ipv6(ends, next_udp, 64, udp(ends, text)));
}

std::string name_of(housekeeping what)
{
    constexpr const char *names[] = {"DHCP request", "DHCP reply", "DHCPv6 request", "DHCPv6 reply",
                                     "router advertisement"};
    return names[static_cast<int>(what)];
}

frame housekeeping_frame(housekeeping what, const mac_address &from, const std::string &text)
{
    switch (what) {
    case housekeeping::dhcp_request:
        return udp_frame(from, everybody, {"0.0.0.0", "255.255.255.255", 68, 67}, text);
    case housekeeping::dhcp_reply:
        return udp_frame(from, everybody, {"198.18.0.1", "255.255.255.255", 67, 68}, text);
    case housekeeping::dhcpv6_request:
        return udp6_frame(from, {0x33, 0x33, 0, 1, 0, 2}, {"fe80::1", "ff02::1:2", 546, 547}, text);
    case housekeeping::dhcpv6_reply:
        return udp6_frame(from, all_ipv6_nodes, {"fe80::1", "ff02::1", 547, 546}, text);
    case housekeeping::router_advertisement:
        break;
    }
    bytes advertisement = {134, 0, 0, 0, 64, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    add(advertisement, text);
    return ethernet(from, all_ipv6_nodes, type_ipv6,
                    ipv6({"fe80::1", "ff02::1"}, next_icmpv6, 255, advertisement));
}

frame with_tag(const frame &plain, unsigned vid)
{
    bytes tag;
    add16(tag, type_vlan);
    add16(tag, vid);
    frame made = plain;
    made.insert(made.begin() + addresses_size, tag.begin(), tag.end());
    return made;
}

bool is_prohibition(const frame &bytes)
{
    constexpr size_t protocol_place = 23; // in the frame
    constexpr size_t icmp_place = 34;
    constexpr uint8_t icmp = 1;
    constexpr uint8_t unreachable = 3;
    constexpr uint8_t administratively = 13;
    return bytes.size() > icmp_place + 1 && bytes[12] == 8 && bytes[13] == 0 &&
           bytes[protocol_place] == icmp && bytes[icmp_place] == unreachable &&
           bytes[icmp_place + 1] == administratively;
}

bool holds(const frame &all, const std::string &text)
{
    return std::search(all.begin(), all.end(), text.begin(), text.end()) != all.end();
}
