#include "ctl/stored.h"

#include "create/conflicts.h"
#include "ctl/words.h"
#include "service/settings.h"
#include "store/read_config.h"

bool load_stored_settings()
{
    static constinit int result = 1;
    if (result == 1)
        result = settings_load();
    return result == 0;
}

bool read_stored(uint8_t wan_id, wan_config *record_out)
{
    if (!load_stored_settings())
        return false;
    *record_out = {};
    record_out->wanId = wan_id;
    if (wan_read_stored(record_out) != 0)
        return false;
    if (record_out->wanMode != wan_mode_routed || record_out->ipMode != ip_mode_static)
        for (const text_ref lease : {text_ref(record_out->ip), text_ref(record_out->mask),
                                     text_ref(record_out->gateway), text_ref(record_out->ipv6Addr),
                                     text_ref(record_out->ipv6Gateway), text_ref(record_out->ipv6Prefix)})
            lease.clear();
    return true;
}

int stored_conflict(const wan_config &record, uint8_t own_id)
{
    char section[section_name_size] = {}, device[12] = {};
    (void)load_ports();
    if (own_id != 0)
        (void)wan_find_device(own_id, section, device);
    return wan_check_conflicts(&record, own_id != 0 ? section : nullptr);
}
