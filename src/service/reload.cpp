#include "service/reload.h"

#include "base/os.h"

namespace {

struct system_service {
    const char *name;
    unsigned changes; // those of wan_change that concern it
};

// In the order in which they are reloaded.
constexpr system_service system_services[] = {
    {"network", wan_written | wan_deleted | all_wans_deleted | dhcpv6_deleted},
    {"dnsmasq", wan_written},
    {"firewall", wan_written | wan_deleted | all_wans_deleted},
    {"miniupnpd", wan_written | wan_deleted | all_wans_deleted},
    {"omcproxy", wan_written | wan_deleted | all_wans_deleted},
    {"call", all_wans_deleted | call_wan_deleted},
};

} // namespace

void reload_system_services(wan_change change)
{
    for (const system_service &service : system_services) {
        if ((service.changes & change) == 0)
            continue;
        char command[64];
        text_ref(command).format("/etc/init.d/%s reload", service.name);
        run_command(command);
    }
}
