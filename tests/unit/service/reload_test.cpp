#include "service/reload.h"

#include "support/gateway.h"

namespace {

class reload_test : public gateway_test {
protected:
    // The system services that a change has reloaded, in order.
    text_lines reloaded(wan_change change)
    {
        gateway.clear_commands();
        reload_system_services(change);
        text_lines names;
        for (const std::string &command : gateway.commands())
            names.push_back(command.substr(0, command.rfind(" reload")).substr(sizeof("/etc/init.d/") - 1));
        return names;
    }
};

TEST_F(reload_test, each_change_concerns_its_services_in_one_order)
{
    EXPECT_EQ((text_lines{"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy"}), reloaded(wan_written));
    EXPECT_EQ((text_lines{"network", "firewall", "miniupnpd", "omcproxy"}), reloaded(wan_deleted));
    EXPECT_EQ((text_lines{"network", "firewall", "miniupnpd", "omcproxy", "call"}),
              reloaded(all_wans_deleted));
    EXPECT_EQ(text_lines{"network"}, reloaded(dhcpv6_deleted));
    EXPECT_EQ(text_lines{"call"}, reloaded(call_wan_deleted));
}

TEST_F(reload_test, a_service_is_told_to_reload_by_its_init_script)
{
    reload_system_services(dhcpv6_deleted);

    EXPECT_EQ(text_lines{"/etc/init.d/network reload"}, gateway.commands());
}

TEST_F(reload_test, a_service_that_is_not_installed_does_not_keep_the_next_from_reloading)
{
    gateway.remove("/etc/init.d/firewall");

    EXPECT_EQ((text_lines{"network", "miniupnpd", "omcproxy"}), reloaded(wan_deleted));
}

} // namespace
