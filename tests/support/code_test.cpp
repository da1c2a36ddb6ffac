#include "support/code_test.h"

#include "service/settings.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

code_test::code_test()
{
    load_settings();
    gateway.clear_log();
}

void code_test::start_over()
{
    const class gateway fresh;
    load_settings();
    gateway.clear_log();
}

void code_test::load_settings()
{
    memset(uplink_name, 0, sizeof(uplink_name));
    if (settings_load() != 0)
        throw std::runtime_error("the settings cannot be read");
}

void code_test::set_uplink(const std::string &name)
{
    gateway.uci_set("network.korvel.pon_adapt", name);
    load_settings();
}

void code_test::set_ids(std::initializer_list<unsigned> ids)
{
    if (gateway.uci_list("network.korvel.wanList"))
        gateway.uci_delete("network.korvel.wanList");
    for (const unsigned id : ids)
        gateway.uci_add_list("network.korvel.wanList", std::to_string(id));
    gateway.uci_set("network.korvel.maxWanId", std::to_string(std::max(ids)));
    load_settings();
}
