#include "netd/device_status.h"

#include "netd/links.h"
#include "netd/reply_parts.h"

#include <cstdlib>

void add_device_status(blob_buf *reply, const std::string &device, const config_section *section,
                       bool present)
{
    const std::string type = section ? section->text("type") : "";
    add_bool(reply, "present", present);
    add_text(reply, "type", type.empty() ? "Network device" : type);
    add_bool(reply, "up", present);
    if (section && section->is_vlan()) {
        add_text(reply, "parent", section->text("ifname"));
        add_int(reply, "vid", section->number("vid", 0));
        add_texts(reply, "egress_qos_mapping", section->list("egress_qos_mapping"));
    }
    if (type == "bridge")
        add_texts(reply, "bridge-members", section->list("ports"));
    if (const std::string mtu = device_attribute(device, "mtu"); !mtu.empty())
        add_int(reply, "mtu", atoi(mtu.c_str()));
    if (const std::string address = device_attribute(device, "address"); !address.empty())
        add_text(reply, "macaddr", address);
}
