#include "service/settings.h"

#include "base/config.h"
#include "base/log.h"

constinit std::atomic<uint32_t> maxWanId{0};
constinit char uplink_name[12] = {};
constinit char vlan_prefix[10] = {};

int settings_load()
{
    uint32_t highest = 0;
    if (uci_get_int("korvel", "maxWanId", &highest) != 0) {
        log_error("Failed to get maxWanId");
        return -1;
    }
    maxWanId = highest;

    (void)config_get("network", "korvel", "pon_adapt", uplink_name);
    if (text_empty(uplink_name)) {
        log_error("Failed to get value: network.korvel.pon_adapt");
        text_ref(uplink_name).set("pon");
    }
    (void)text_ref(vlan_prefix).format("%s.", uplink_name);
    return 0;
}

void wan_device_name(const wan_config &config, text_ref name_out)
{
    if (config.vlanMode == 1)
        name_out.format("%s%u", vlan_prefix, config.vid);
    else
        name_out.format("%s", uplink_name);
}

int uci_get_int(const char *section, const char *option, uint32_t *value_out)
{
    char text[12] = {};
    const int result = config_get("network", section, option, text);
    if (result == 0)
        *value_out = static_cast<uint32_t>(text_number(text));
    return result;
}
