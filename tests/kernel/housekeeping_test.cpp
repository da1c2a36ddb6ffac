// DHCP, DHCPv6 and router advertisements of WANs with disableLanDhcp.
#include "kernel/kernel_test.h"

namespace {

// WAN 1, bridged, with port 1, and WAN 2, routed, with port 2, disable it; WAN 3, bridged, with port 3, does
// not, and port 4 is bound to none.
class lan_dhcp : public kernel_test {
protected:
    lan_dhcp()
    {
        given({bridged_wan(1, "1000", {.vid = 100, .service = 3, .disable_lan_dhcp = 1}),
               routed_static(2, {.vid = 200, .disable_lan_dhcp = 1, .bind = "0100"}),
               bridged_wan(3, "0010", {.vid = 300, .service = 3})});
    }

    static std::string all_but(const std::string &missing)
    {
        std::string names = all_kinds_of_housekeeping;
        const size_t place = names.find(", " + missing);
        return names.erase(place, missing.size() + 2);
    }

    // Of what a port sends the gateway gets no request; and nothing tells the port's hosts of the gateway.
    static void expect_kept_from(place &port)
    {
        EXPECT_EQ("DHCPv6 reply, router advertisement", neighbours().housekeeping_to_gateway(port));
        EXPECT_EQ(all_but("router advertisement"), neighbours().housekeeping_from_gateway(port));
    }
    static void expect_all_at(place &port)
    {
        EXPECT_EQ(all_kinds_of_housekeeping, neighbours().housekeeping_to_gateway(port));
        EXPECT_EQ(all_kinds_of_housekeeping, neighbours().housekeeping_from_gateway(port));
    }

    neighbourhood &around = neighbours();
};

TEST_F(lan_dhcp, passes_where_it_is_not_disabled)
{
    expect_all_at(around.port(3));
    expect_all_at(around.port(4));
    EXPECT_EQ(all_kinds_of_housekeeping, around.housekeeping_from_gateway(around.line(300)));
}

TEST_F(lan_dhcp, of_the_gateway_is_kept_from_the_ports_of_a_bridged_wan)
{
    expect_kept_from(around.port(1));
}

TEST_F(lan_dhcp, of_the_gateway_is_kept_from_the_ports_of_a_routed_wan)
{
    expect_kept_from(around.port(2));
    EXPECT_EQ("line 200", around.packet_from_port(2));
}

TEST_F(lan_dhcp, of_the_gateway_is_kept_from_a_bridged_wan)
{
    EXPECT_EQ("DHCPv6 request", around.housekeeping_from_gateway(around.line(100)));
}

TEST_F(lan_dhcp, passes_between_a_bridged_wan_s_ports_and_its_provider)
{
    EXPECT_EQ(all_kinds_of_housekeeping, around.housekeeping_between(around.port(1), around.line(100)));
    EXPECT_EQ(all_kinds_of_housekeeping, around.housekeeping_between(around.line(100), around.port(1)));
}

} // namespace
