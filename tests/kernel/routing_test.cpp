// Which WAN the packets of bound ports, of others and of the gateway itself take.
#include "kernel/kernel_test.h"

namespace {

// WAN 1 on VLAN 100 with port 1, WAN 2 on VLAN 200 with port 2; ports 3 and 4 are bound to none. The one that
// came up last is default.
class routing : public kernel_test {
protected:
    static wan_config first() { return routed_static(1, {.vid = 100, .ip_protocol = 3, .bind = "1000"}); }
    static wan_config second() { return routed_static(2, {.vid = 200, .ip_protocol = 3, .bind = "0100"}); }

    static void expect_bound_ports_on_their_wans()
    {
        EXPECT_EQ("line 100", neighbours().packet_from_port(1));
        EXPECT_EQ("line 200", neighbours().packet_from_port(2));
    }
    static void expect_own_packets_by_address()
    {
        EXPECT_EQ("line 100", neighbours().packet_from_gateway("192.0.2.10"));
        EXPECT_EQ("line 200", neighbours().packet_from_gateway("192.0.2.11"));
    }
    static void make_default(const char *device)
    {
        run({"ip", "route", "replace", "default", "via", "192.0.2.1", "dev", device});
    }
};

TEST_F(routing, of_bound_ports_and_own_packets_does_not_ask_which_wan_is_default)
{
    given({first(), second()});
    for (const char *device : {"pon.100", "pon.200"}) {
        SCOPED_TRACE(device);
        make_default(device);

        expect_bound_ports_on_their_wans();
        expect_own_packets_by_address();
        EXPECT_EQ(device == std::string("pon.100") ? "line 100" : "line 200",
                  neighbours().packet_from_port(3));
    }
}

// What the other cases rely on: without the rules every packet takes the default WAN, and that is seen.
TEST_F(routing, by_the_default_wan_is_seen_where_no_rules_are_in_force)
{
    given({first(), second()});
    make_default("pon.200");

    run({"sh", "/etc/hotplug.d/iface/99-wan_1", "-r"});

    EXPECT_EQ("line 200", neighbours().packet_from_port(1));
    EXPECT_EQ("line 200", neighbours().packet_from_gateway("192.0.2.10"));
    tell("ifupdate", "wan_1", "pon.100");
}

TEST_F(routing, holds_after_modify_and_del_of_a_neighbour)
{
    given({first(), second()});
    modify(routed_static(1, {.vid = 300, .ip_protocol = 3, .bind = "1000"}));
    make_default("pon.200");
    EXPECT_EQ("line 300", neighbours().packet_from_port(1));
    modify(first());
    const unsigned third = add(routed_static(3, {.vid = 300, .bind = "0010"}));
    EXPECT_EQ("line 300", neighbours().packet_from_port(3));

    del(third);

    make_default("pon.100");
    expect_bound_ports_on_their_wans();
    expect_own_packets_by_address();
    EXPECT_EQ("line 100", neighbours().packet_from_port(3));
}

TEST_F(routing, holds_after_restarts_and_a_firewall_reload)
{
    given({first(), second()});

    run({"/etc/init.d/korvel", "restart"});
    await_service();
    run({"/etc/init.d/firewall", "reload"});
    expect_bound_ports_on_their_wans();

    run({"/etc/init.d/network", "restart"});
    settle();
    expect_bound_ports_on_their_wans();
    expect_own_packets_by_address();
}

TEST_F(routing, is_prohibited_while_a_link_is_down_and_nobody_has_noticed)
{
    given({first(), second()});
    make_default("pon.200");

    run({"ip", "link", "set", "pon.100", "down"});

    EXPECT_EQ("prohibited", neighbours().packet_from_port(1));
    EXPECT_EQ("line 200", neighbours().packet_from_port(2));
    run({"/etc/init.d/network", "restart"}); // makes it anew
    settle();
}

} // namespace
