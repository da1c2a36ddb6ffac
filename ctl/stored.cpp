#include "ctl/stored.h"

#include "base/log.h"
#include "create/conflicts.h"
#include "ctl/gateway_state.h"
#include "service/settings.h"
#include "store/read_config.h"
#include "wan/wan_names.h"

namespace {

// Replaces a field by its option, or empties it when there is none.
void read_anew(const uci_loaded &network, uci_section *interface, const stored_option &option,
               wan_config *record)
{
    memset(reinterpret_cast<char *>(record) + option.field.offset, 0, option.field.size);
    (void)wan_read_option(network, interface, option, record);
}

// What queries hide, or leave to the link to tell.
void read_hidden(const uci_loaded &network, wan_config *record)
{
    const wan_names names(record->wanId);
    uci_section *const interface = network.section(names.interface);
    for (const text_ref server : {text_ref(record->priDns), text_ref(record->secDns),
                                  text_ref(record->priDnsV6), text_ref(record->secDnsV6)})
        server.clear();
    wan_read_dns(network, interface, record);
    wan_read_dns(network, network.section(names.interface_v6), record);
    read_anew(network, interface, STORED(iphostId), record);
    read_anew(network, interface, STORED(napt), record);
    for (const stored_option &option : stored_options)
        if (record->ipMode == ip_mode_static &&
            (option.place == option_place::static_v4 || option.place == option_place::static_v6))
            read_anew(network, interface, option, record);
    if (record->ipMode == ip_mode_pppoe) {
        read_anew(network, interface, STORED(pppServName), record);
        record->pppDialMode = record->pppDialMode != 0;
    }
}

} // namespace

bool load_stored_settings()
{
    static constinit int result = 1;
    if (result == 1)
        result = settings_load();
    return result == 0;
}

bool read_stored(const uci_loaded &network, uint8_t wan_id, wan_config *record_out)
{
    *record_out = {};
    record_out->wanId = wan_id;
    wan_reading reading = {record_out, nullptr, 0};
    wan_read_configured(network, &reading);
    if (reading.failure)
        log_error("%s", reading.failure);
    else if (record_out->wanMode == wan_mode_routed)
        read_hidden(network, record_out);
    return !reading.failure;
}

bool read_stored(uint8_t wan_id, wan_config *record_out)
{
    return load_stored_settings() && read_stored(uci_loaded("network"), wan_id, record_out);
}

int stored_conflict(const wan_config &record, uint8_t own_id)
{
    char section[section_name_size] = {}, device[12] = {};
    (void)load_ports();
    if (own_id != 0)
        (void)wan_find_device(own_id, section, device);
    return wan_check_conflicts(&record, own_id != 0 ? section : nullptr);
}
