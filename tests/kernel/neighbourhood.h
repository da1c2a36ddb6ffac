// The gateway's neighbours: a host behind each LAN port, a provider on each VLAN of the line and one on the
// line itself, in networks of their own. What they exchange is seen frame by frame.
#pragma once

#include "kernel/wire.h"

#include <functional>
#include <map>
#include <memory>
#include <vector>

inline constexpr unsigned lan_ports = 4;
inline constexpr unsigned vlans[] = {100, 200, 300};

// Where frames enter and leave the gateway.
class place {
public:
    // `feeder` is the gateway's end of the same wire; frames of the host travel on it with the tag, if any.
    place(std::string name, const std::string &network, const std::string &device, const std::string &feeder,
          unsigned tag = 0);

    const std::string &name() const { return name_; }
    wire &host() { return host_; }
    // Sends towards the host, without the gateway's doing: what is sent here arrives, and as the last.
    void feed(const frame &bytes) const;
    void forget();
    // Whether a frame that the host has sent is in the gateway.
    bool has_entered(const std::string &text);

private:
    std::string name_;
    wire host_;
    wire feeder_;
    unsigned tag_;
};

// What becomes of a packet: the names of the places at which it came out, or "prohibited" when its sender was
// told so; "nowhere" when neither happens in time.
using fate = std::string;

class neighbourhood {
public:
    // Makes the networks, once for the machine: LAN ports eth0.1 to eth0.4 in br-lan, the uplink pon.
    neighbourhood();

    place &port(unsigned number) { return *ports_.at(number - 1); } // from 1
    place &line(unsigned vid) { return *lines_.at(vid); }           // 0: untagged

    // The frames, out of nine (IPv4, IPv6, ARP; to a known host, to an unknown one, to everybody), that get
    // from one place to another: all_kinds, "" for none, or their names.
    std::string exchanged(place &from, place &to);
    // Which housekeeping gets from a place to another, and between a place and the gateway's LAN interface.
    std::string housekeeping_between(place &from, place &to);
    std::string housekeeping_to_gateway(place &from);
    std::string housekeeping_from_gateway(place &to);

    // What becomes of a packet to the Internet that the host behind a port sends by way of the gateway, or
    // that the gateway sends itself from one of its addresses.
    fate packet_from_port(unsigned number);
    fate ipv6_packet_from_port(unsigned number);
    fate packet_from_gateway(const std::string &source);

    // Parts of an exchange. A sender can tell whether a frame was sent into the gateway; a receiver can be
    // sent a frame that arrives behind all others, whatever the gateway keeps from it.
    struct frame_kind {
        std::string name;
        std::function<frame(const std::string &text)> make;
    };
    struct sender {
        std::function<void(const frame &bytes)> send;
        std::function<bool(const std::string &text)> sent;
    };
    struct receiver {
        std::function<void(const std::string &text)> send_last;
        std::function<bool(const std::string &text)> got;
    };

private:
    static std::string which_arrive(const sender &from, const receiver &to,
                                    const std::vector<frame_kind> &kinds);
    std::vector<place *> everywhere();
    fate fate_of(const std::function<void(const std::string &text)> &send);

    std::vector<std::unique_ptr<place>> ports_;
    std::map<unsigned, std::unique_ptr<place>> lines_;
    std::unique_ptr<wire> lan_interface_;
};

extern const std::string all_kinds;
extern const std::string all_kinds_of_housekeeping;
