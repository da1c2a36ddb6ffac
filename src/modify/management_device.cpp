#include "modify/management_device.h"

#include "base/config.h"
#include "service/change.h"
#include "service/request.h"
#include "service/settings.h"
#include "store/id_list.h"
#include "store/mac.h"
#include "store/new_id.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

int write_options(const char *section)
{
    int error = config_add_list("network", "@device[0]", "ports", management_device_name);
    error |= config_set_number("network", section, STORED(mtu).name, 1500);
    char protocol[2] = {};
    (void)config_get("network", "korvel", "tr069_ip_protocol", protocol);

    const struct {
        const char *option, *value;
    } options[] = {
        {STORED(ipProtocol).name, text_empty(protocol) ? "3" : protocol},
        {STORED(service).name, "3"},
        {STORED(disableLanDhcp).name, "1"},
        {STORED(vid).name, management_vid},
        {device_type_option, "8021q"},
        {device_uplink_option, uplink_name},
        {STORED(device).name, management_device_name},
    };
    for (const auto &row : options)
        error |= config_set("network", section, row.option, row.value);
    return error;
}

int write_identity(const char *section, uint8_t id)
{
    wan_id_take(id);
    char link_name[16];
    management_link_name(id, link_name);
    int error = config_set("network", section, STORED(wanName).name, link_name);
    char mac[18] = {};
    if (wan_derive_mac(id, mac) == 0)
        error |= config_set("network", section, STORED(mac).name, mac);
    note_wan(wan_action::created, id, link_name, management_device_name, error == 0);
    return error;
}

int add_management_device()
{
    // A change that deletes a section meanwhile would give the new one another name.
    const config_hold hold;
    const uint8_t id = wan_id_choose();
    note_subject("", management_device_name);
    if (id == 0) {
        note_refusal(wan_action::refused, "no identifier is left");
        return -1;
    }
    note_refusal(wan_action::failed, "the configuration cannot be written");
    char section[32] = {};
    if (config_add_section("network", "device", section) != 0)
        return -1;
    const int error = write_options(section);
    wan_port_binding_reset(section);
    return error != 0 ? error : write_identity(section, id);
}

int refuse(request &self)
{
    (void)self.reply.say(-1, "korvel add WAN device ERR!");
    return UBUS_STATUS_INVALID_ARGUMENT;
}

int add_device(request &self)
{
    auto add = [] { return add_management_device() == 0; };
    const operation_work works[] = {work_of(add)};
    if (change_run(works, 0) != operation_result::done)
        return refuse(self);
    return self.reply.say(0, "korvel add WAN device OK.");
}

constexpr method_kind device_addition = {.work = add_device, .refuse = refuse, .reloads_nothing = true};

} // namespace

int wan_handle_add_dev(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *,
                       blob_attr *)
{
    return request_defer(device_addition, lane_name::changes, bus, request, {});
}
