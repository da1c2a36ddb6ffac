#include "service/board.h"

#include "base/log.h"
#include "base/os.h"
#include "base/json_guard.h"

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
            *kind.count = json_object_get_int(ports);
}

int board_port_count()
{
    return lan_num + lan_phy_num + wlan_2g_num + wlan_5g_num;
}
