#include "service/reload.h"

#include "support/gateway.h"

namespace {

class reload_test : public gateway_test {};

TEST_F(reload_test, services_are_reloaded_in_the_order_given)
{
    reload_services({"omcproxy", "dnsmasq", "firewall"});

    EXPECT_EQ((text_lines{"/etc/init.d/omcproxy reload", "/etc/init.d/dnsmasq reload",
                          "/etc/init.d/firewall reload"}),
              gateway.commands());
}

TEST_F(reload_test, a_service_that_is_not_installed_does_not_keep_the_next_from_reloading)
{
    gateway.remove("/etc/init.d/dnsmasq");

    reload_services({"dnsmasq", "firewall"});

    EXPECT_EQ(text_lines{"/etc/init.d/firewall reload"}, gateway.commands());
}

} // namespace
