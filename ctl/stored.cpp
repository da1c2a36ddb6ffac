#include "ctl/stored.h"

#include "create/conflicts.h"
#include "ctl/gateway_state.h"
#include "service/settings.h"
#include "store/read_config.h"

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
    return wan_read_stored(network, record_out) == 0;
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
