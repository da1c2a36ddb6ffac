#include "service/board.h"

#include "base/json_guard.h"
#include "base/log.h"
#include "base/os.h"

#include <cstdint>

constinit int lan_num = 0;
constinit int lan_phy_num = 0;
constinit int wlan_2g_num = 0;
constinit int wlan_5g_num = 0;

namespace {

constexpr struct {
    const char *object;
    int *count;
} port_kinds[] = {
    {"lan", &lan_num},
    {"lan_phy", &lan_phy_num},
    {"wlan_2g", &wlan_2g_num},
    {"wlan_5g", &wlan_5g_num},
};

// No board has that many ports; a count beyond it would have the daemon write as many list entries per WAN.
constexpr int most_ports_of_a_kind = 255;

int plausible(const char *kind, int count)
{
    if (count <= most_ports_of_a_kind)
        return count;
    log_error("Board describes %d ports of kind %s, taken as %d", count, kind, most_ports_of_a_kind);
    return most_ports_of_a_kind;
}

} // namespace

void nemtra_init_lan_num()
{
    char text[512 + 1];
    if (!read_command("ubus -S call boardinfo all", text)) {
        log_error("[%s][%d] Failed to open ubus call", __func__, 2282);
        return;
    }
    const json_document board(text);
    if (!board) {
        log_error("[%s][%d] Failed to parse all boardinfo data json", __func__, 2276);
        return;
    }
    for (const auto &kind : port_kinds)
        if (json_object *const ports = json_member(json_member(board.root(), kind.object), "numOfPorts"))
            *kind.count = plausible(kind.object, json_object_get_int(ports));
}

int board_port_count()
{
    const int64_t sum = int64_t{lan_num} + lan_phy_num + wlan_2g_num + wlan_5g_num;
    return sum > 0 ? static_cast<int>(sum) : 0;
}
