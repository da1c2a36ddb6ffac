#include "rules/multicast_vlan.h"

#include "base/config.h"
#include "base/log.h"
#include "base/os.h"
#include "wan/stored_options.h"
#include "wan/wan_names.h"

namespace {

constexpr char port_text[] = R"sh(/userfs/bin/xponigmpcmd port index %u
/userfs/bin/xponigmpcmd port downtagctl 4
/userfs/bin/xponigmpcmd port uptci %u
/userfs/bin/xponigmpcmd port downtci %u
)sh";

struct vlan_pair {
    unsigned vid, mvid;
};
constexpr size_t most_pairs = 8;

size_t collect_pairs(const uci_loaded &network, vlan_pair (&pairs_out)[most_pairs])
{
    size_t count = 0;
    uci_element *element = nullptr;
    uci_foreach_element(network.sections(), element)
    {
        if (count == most_pairs)
            break;
        uci_section *const section = uci_to_section(element);
        const char *const vid = network.plain(section, STORED(vid).name);
        const char *const mvid = network.plain(section, STORED(mvid).name);
        if (strcmp(section->type, "device") == 0 && vid && mvid)
            pairs_out[count++] = {static_cast<unsigned>(text_number(vid)),
                                  static_cast<unsigned>(text_number(mvid))};
    }
    return count;
}

void remove_mapping()
{
    if (file_exists(mvlan_rule_path)) {
        char failure[64];
        text_ref(failure).format("Failed to delete mvlan rule: %s", mvlan_rule_path);
        remove_file(mvlan_rule_path, failure);
    }
    run_command("/userfs/bin/xponigmpcmd clearAll");
}

} // namespace

void wan_write_mvlan_rule()
{
    const uci_loaded network("network");
    if (!network)
        return;
    vlan_pair pairs[most_pairs];
    const size_t count = collect_pairs(network, pairs);
    if (count == 0)
        return remove_mapping();

    script_file script(mvlan_rule_path);
    if (script) {
        script.print("#!/bin/sh\n/userfs/bin/xponigmpcmd clearAll\n");
        for (size_t i = 0; i < count; i++)
            script.print(port_text, static_cast<unsigned>(i + 1), pairs[i].mvid, pairs[i].vid);
    }
    if (!script || !script.commit())
        log_error("Failed to generate mvlan rule: %s", mvlan_rule_path);
}
