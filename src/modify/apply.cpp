#include "modify/apply.h"

#include "base/os.h"
#include "base/stop_signals.h"
#include "create/conflicts.h"
#include "create/create.h"
#include "remove/delete_wan.h"
#include "service/reload.h"
#include "store/new_id.h"
#include "store/read_config.h"
#include "wan/wan_names.h"

namespace {

int check_conflicts(const wan_config *config)
{
    char section[section_name_size] = {};
    char device[12] = {};
    (void)wan_find_device(config->wanId, section, device); // a WAN that does not exist excludes nothing
    return wan_check_conflicts(config, section);
}

int rewrite(const wan_config *config)
{
    const stop_hold hold; // in between the WAN is nowhere
    const wan_id_hold kept(config->wanId);
    const int deleted = wan_delete(config->wanId, /*reload=*/0, /*keep_ids=*/1);
    return deleted != 0 ? deleted : wan_write(config, config->wanId);
}

void announce_update(uint8_t wan_id)
{
    run_command(update_command(wan_names(wan_id).interface).text);
}

} // namespace

int wan_modify_apply(const wan_config *config)
{
    const int conflict = check_conflicts(config);
    if (wan_conflict_refuses(conflict, "modify", config))
        return conflict;
    const int result = rewrite(config);
    if (result != 0)
        return result;
    reload_system_services(wan_written);
    announce_update(config->wanId);
    return 0;
}
