#include "rules/port_names.h"

#include "base/log.h"
#include "base/text.h"
#include "service/board.h"

namespace {

struct port_group {
    const int *count;
    const char *prefix;
    int first; // the first port's number
    int step;
};

// Deliberate: the physical ports count down from 8, they are the switch's upper VLAN interfaces.
constexpr port_group port_groups[] = {
    {&lan_num, "eth0.", 1, 1},
    {&lan_phy_num, "eth0.", 8, -1},
    {&wlan_2g_num, "ra", 0, 1},
    {&wlan_5g_num, "rai", 0, 1},
};

void append_port(char *list, const port_group &group, int n)
{
    const size_t length = strlen(list);
    char name[24];
    text_ref(name).format("%s%d ", group.prefix, group.first + group.step * n);
    if (length + strlen(name) < port_list_size)
        memcpy(list + length, name, strlen(name) + 1);
    else
        log_error("Port list is full, left out: %s", name);
}

void cut_trailing_blank(char *list)
{
    if (list[0] != '\0')
        list[strlen(list) - 1] = '\0';
}

} // namespace

void wan_build_port_lists(const wan_config *wan, char *bound, char *unbound)
{
    size_t position = 0;
    for (const port_group &group : port_groups) {
        for (int n = 0; n < *group.count; n++, position++) {
            const bool is_bound = position < sizeof(wan->bind) && wan->bind[position] == '1';
            char *const list = is_bound ? bound : unbound;
            if (list)
                append_port(list, group, n);
        }
    }
    cut_trailing_blank(bound);
    if (unbound)
        cut_trailing_blank(unbound);
}
