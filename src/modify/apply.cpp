#include "modify/apply.h"

#include "base/operation.h"
#include "base/os.h"
#include "create/conflicts.h"
#include "create/create.h"
#include "remove/delete_wan.h"
#include "service/reload.h"
#include "service/settings.h"
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

int judge_and_delete(const wan_config *config)
{
    const int conflict = check_conflicts(config);
    if (wan_conflict_refuses(conflict, "modify", config))
        return conflict;
    return wan_delete(config->wanId, /*reload=*/0, /*keep_ids=*/1);
}

void announce_update(uint8_t wan_id)
{
    run_command(update_command(wan_names(wan_id).interface).text);
}

} // namespace

int wan_modify_apply(const wan_config *config)
{
    const wan_id_hold kept(config->wanId);
    int result = 0;
    auto take_away = [&] {
        result = judge_and_delete(config);
        return result == 0;
    };
    auto write_again = [&] {
        result = wan_write(config, config->wanId);
        return result == 0;
    };
    auto announce = [&] {
        reload_system_services(wan_written);
        announce_update(config->wanId);
        return true;
    };
    const operation_work works[] = {work_of(take_away), work_of(write_again), work_of(announce)};
    return operation_run(works, maxWanId) == operation_result::failed ? modification_failed : result;
}
