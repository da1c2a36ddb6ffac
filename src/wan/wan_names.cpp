#include "wan/wan_names.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr wan_service wan_services[] = {
    {"TR069_INTERNET", /*internet=*/true, /*binds_ports=*/true, /*carries_calls=*/false},
    {"INTERNET", /*internet=*/true, /*binds_ports=*/true, /*carries_calls=*/false},
    {"TR069", /*internet=*/false, /*binds_ports=*/false, /*carries_calls=*/false},
    {"OTHER", /*internet=*/false, /*binds_ports=*/true, /*carries_calls=*/false},
    {"VOIP", /*internet=*/false, /*binds_ports=*/false, /*carries_calls=*/true},
    {"TR069_VOIP", /*internet=*/false, /*binds_ports=*/false, /*carries_calls=*/true},
    {"VOIP_INTERNET", /*internet=*/true, /*binds_ports=*/true, /*carries_calls=*/true},
    {"TR069_VOIP_INTERNET", /*internet=*/true, /*binds_ports=*/true, /*carries_calls=*/true},
};
constexpr wan_service unknown_service = {"OTHER", false, false, false};

// As format() would put them together; but these names are made for every section of a configuration.
[[gnu::noinline]] void join(text_ref name, const char *beginning, const char *number, const char *ending)
{
    size_t length = 0;
    for (const char *const piece : {beginning, number, ending}) {
        const size_t count = std::min(strlen(piece), name.size - 1 - length);
        memcpy(name.data + length, piece, count);
        length += count;
    }
    name.data[length] = '\0';
}

} // namespace

wan_names::wan_names(uint32_t wan_id)
{
    char digits[11];
    text_ref(digits).format("%u", wan_id);
    join(id, "", digits, "");
    join(interface, "wan_", digits, "");
    join(interface_v6, "wan_", digits, "_v6");
    join(dialled_v6, "wan_", digits, "_6");
    join(dslite, "dslite_", digits, "");
}

wan_names::prefix wan_names::device_prefix(uint32_t wan_id)
{
    prefix result;
    text_ref(result.text).format("%u_", wan_id);
    return result;
}

status_command::status_command(const char *interface)
{
    text_ref(text).format("ubus -S call network.interface.%s status", interface);
}

update_command::update_command(const char *interface)
{
    text_ref(text).format("ACTION=\"ifupdate\" INTERFACE=\"%s\" hotplug-call iface &", interface);
}

void management_link_name(uint32_t wan_id, char (&name_out)[16])
{
    text_ref(name_out).format("%d_OTHER_B_TMP", static_cast<int>(wan_id));
}

script_path bridge_rule_path(uint8_t wan_id)
{
    script_path path;
    text_ref(path.text).format("/etc/korvel/rule_wan_%u.sh", wan_id);
    return path;
}

script_path route_rule_path(uint8_t wan_id)
{
    script_path path;
    text_ref(path.text).format("/etc/hotplug.d/iface/99-wan_%u", wan_id);
    return path;
}

const wan_service &wan_service_of(uint8_t code)
{
    return code < std::size(wan_services) ? wan_services[code] : unknown_service;
}

void wan_link_name(uint8_t wan_id, const wan_config &config, char (&name_out)[35])
{
    char vid_label[10];
    if (config.vlanMode == 1)
        text_ref(vid_label).format("VID_%u", config.vid);
    else
        text_ref(vid_label).format("VID_");
    text_ref(name_out).clear();
    text_ref(name_out, 34)
        .format("%u_%s_%s_%s", wan_id, wan_service_of(config.service).name,
                config.wanMode == wan_mode_routed ? "R" : "B", vid_label);
}
