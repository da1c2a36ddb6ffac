#include "modify/apply.h"

#include "base/config.h"
#include "base/os.h"
#include "create/conflicts.h"
#include "create/create.h"
#include "remove/delete_wan.h"
#include "service/change.h"
#include "service/reload.h"
#include "store/new_id.h"
#include "store/read_config.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

void note_names(const char *section, const char (&device)[12])
{
    char link_name[sizeof(wan_config::wanName)] = {};
    (void)config_get("network", section, STORED(wanName).name, link_name);
    note_subject(link_name, text_view(device));
}

int check_conflicts(const wan_config *config, uint8_t *other_out)
{
    char section[section_name_size] = {};
    char device[12] = {};
    if (wan_find_device(config->wanId, section, device) == 0) // one that does not exist excludes nothing
        note_names(section, device);
    return wan_check_conflicts(config, section, other_out);
}

int judge_and_delete(const wan_config *config)
{
    uint8_t other = 0;
    const int conflict = check_conflicts(config, &other);
    if (wan_conflict_refuses(conflict, "modify", config, other))
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
    return change_run(works, config->wanId) == operation_result::failed ? modification_failed : result;
}
