// WANs that a test is about: each builder fills what any such WAN has, a test states only what matters to it.
#pragma once

#include "rules/rule_ctx.h"

#include <string>
#include <vector>

// What a test may want different. Zero and empty mean what they mean in the record, with one exception: a vid
// other than 0 makes the WAN tagged.
struct wan_options {
    uint16_t vid = 0;
    uint16_t mvid = 0;
    uint8_t prio = 0;
    uint8_t service = 1; // INTERNET
    uint8_t ip_protocol = ip_protocol_v4;
    uint16_t mtu = 1500;
    uint8_t disable_lan_dhcp = 0;
    const char *bind = "";
};

wan_config routed_dhcp(uint8_t id, const wan_options &options = {});
// User "user<id>", password "secret<id>"; the link MTU is 8 below options.mtu, as the record holds it.
wan_config routed_pppoe(uint8_t id, const wan_options &options = {});
// 192.0.2.<9 + id>/24 behind 192.0.2.1, with 2001:db8:<id>::10/64 where IPv6 is asked for.
wan_config routed_static(uint8_t id, const wan_options &options = {});
wan_config bridged_wan(uint8_t id, const char *bind, const wan_options &options = {});

// The WAN with name servers of its own where these protocols would have it learn them: 192.0.2.1 and
// 192.0.2.2, 2001:db8::1 and 2001:db8::2.
wan_config with_own_servers(wan_config config, uint8_t protocols = ip_protocol_v4 | ip_protocol_v6);

// What creation hands to the script writers for this WAN.
wan_rule_ctx rule_ctx(const wan_config &config);

// The display name that creation gives the WAN, such as "3_INTERNET_R_VID_100", and its device, such as
// "pon.100".
std::string link_name(const wan_config &config);
std::string device_name(const wan_config &config);

// The interfaces of a routed WAN, in the order in which creation makes them; none for a bridged one.
std::vector<std::string> interface_names(const wan_config &config);

// The WAN's sections in the `network` configuration as creation leaves them, in the form of a configuration
// file. The device section has a MAC address that ends in the identifier, and a port binding of as many
// entries as `bind` has.
std::string uci_device_section(const wan_config &config);
std::string uci_interface_sections(const wan_config &config);

// The arguments of a request `add` for this WAN, as JSON; with wanId also those of `modify`.
std::string add_request(const wan_config &config);
std::string modify_request(const wan_config &config, int wait_seconds = 0);
