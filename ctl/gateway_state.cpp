#include "ctl/gateway_state.h"

#include "service/board.h"
#include "wan/wan_names.h"

#include <algorithm>

namespace {

int ports_of(blob_attr *board, const char *kind)
{
    constexpr int64_t most = 255; // as the daemon takes them
    blob_attr *const ports = bus_member(board, kind, BLOBMSG_TYPE_TABLE);
    return static_cast<int>(std::min(bus_number(ports, "numOfPorts"), most));
}

// The last IPv4 address among the next hops of a list of routes.
void read_gateway(blob_attr *holder, wan_config *record)
{
    blob_attr *const routes = bus_member(holder, "route", BLOBMSG_TYPE_ARRAY);
    for (blob_attr *route = nullptr; (route = bus_next(routes, route, BLOBMSG_TYPE_TABLE)) != nullptr;) {
        const char *const next_hop = bus_text(route, "nexthop");
        if (strchr(next_hop, '.'))
            text_ref(record->gateway).set(next_hop);
    }
}

} // namespace

bool load_ports()
{
    static constinit bool asked = false;
    if (!asked) {
        bus_connection bus;
        bus_answer board;
        (void)bus.call("boardinfo", "all", nullptr, board);
        lan_num = ports_of(board.get(), "lan");
        lan_phy_num = ports_of(board.get(), "lan_phy");
        wlan_2g_num = ports_of(board.get(), "wlan_2g");
        wlan_5g_num = ports_of(board.get(), "wlan_5g");
    }
    asked = true;
    return board_port_count() > 0;
}

void read_link_state(bus_connection &bus, wan_config *record)
{
    record->status = record->wanMode == wan_mode_bridged;
    text_ref(record->ip).clear();
    text_ref(record->gateway).clear();
    if (record->wanMode == wan_mode_bridged || (record->ipProtocol & ip_protocol_v4) == 0)
        return;
    char interface[32];
    bus_answer state;
    (void)text_ref(interface).format("network.interface.%s", wan_names(record->wanId).interface);
    (void)bus.call(interface, "status", nullptr, state);
    if (bus_number(state.get(), "up") == 0)
        return;
    record->status = 1;
    blob_attr *const addresses = bus_member(state.get(), "ipv4-address", BLOBMSG_TYPE_ARRAY);
    text_ref(record->ip).set(bus_text(bus_next(addresses, nullptr, BLOBMSG_TYPE_TABLE), "address"));
    read_gateway(state.get(), record);
    // A route that another one has pushed aside is still the interface's own.
    if (text_empty(record->gateway) || strcmp(c_text(record->gateway), "0.0.0.0") == 0)
        read_gateway(bus_member(state.get(), "inactive", BLOBMSG_TYPE_TABLE), record);
}
