// Every name that is made from a WAN's identifier or from what it is for, in one place, and those of the
// management device. The name of a WAN's network device is made by the setting that it begins with
// (service/settings).
#pragma once

#include "base/text.h"
#include "wan/wan_config.h"

#include <string_view>

// The sections and texts of one WAN in the configuration. The widths are behaviour: an identifier text has at
// most three digits.
struct wan_names {
    char id[4];            // "7", the entry in network.korvel.wanList
    char interface[8];     // "wan_7", IPv4 or the only interface
    char interface_v6[12]; // "wan_7_v6", the IPv6 interface of a WAN with ipMode DHCP
    char dialled_v6[12];   // "wan_7_6", which the network daemon itself adds to a WAN that dials
    char dslite[12];       // "dslite_7"

    explicit wan_names(uint32_t wan_id);
    // The text by which the WAN's device section is known: what its `lkname` begins with. Deliberate: built
    // in 4 bytes, so that from identifier 100 on it has no underscore and also matches longer identifiers
    // with the same digits.
    struct prefix {
        char text[4];
    };
    static prefix device_prefix(uint32_t wan_id);
};

// The part of an interface's name by which the sweep knows it as a WAN's.
inline constexpr char wan_interface_mark[] = "wan_";

// The shell command that has the network daemon tell an interface's status. Deliberate: built in 48 bytes,
// one too few for "wan_100_v6" and its like, whose status is therefore never had.
struct status_command {
    char text[48];
    explicit status_command(const char *interface);
};

// The shell command that announces a changed interface to the hotplug system and does not wait.
struct update_command {
    char text[64];
    explicit update_command(const char *interface);
};

// The management device: its VLAN, the name of its network device and its link name, which has the identifier
// as a signed number and is built in 16 bytes.
inline constexpr char management_vid[] = "4094";
inline constexpr char management_device_name[] = "pon.4094";
void management_link_name(uint32_t wan_id, char (&name_out)[16]);

// Paths of a WAN's scripts, 64 bytes.
struct script_path {
    char text[64];
};
script_path bridge_rule_path(uint8_t wan_id); // /etc/korvel/rule_wan_<id>.sh
script_path route_rule_path(uint8_t wan_id);  // /etc/hotplug.d/iface/99-wan_<id>
inline constexpr char isolate_rule_path[] = "/etc/korvel/rule_wan_isolate.sh";
inline constexpr char mvlan_rule_path[] = "/etc/korvel/rule_mvlan.sh";

// What a WAN is for: the meaning of the record's `service`. Any code beyond the table is named "OTHER" and
// belongs to no group.
enum : uint8_t { service_other = 3 };
struct wan_service {
    const char *name;
    bool internet;      // multicast proxy, UPnP and default routes follow it
    bool binds_ports;   // LAN ports may be bound to it
    bool carries_calls; // the telephony service follows it
};
const wan_service &wan_service_of(uint8_t code);

// The link name, "<id>_<service>_<R|B>_VID_<vid>", kept as `lkname` of the device section and shown as
// wanName. It is built in 34 bytes, one less than the field has.
void wan_link_name(uint8_t wan_id, const wan_config &config, char (&name_out)[35]);
