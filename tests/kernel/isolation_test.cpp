// Who reaches whom through the bridge, after each thing that may happen to a router().
#include "kernel/kernel_test.h"

namespace {

// WAN 1 on VLAN 100 with port 1, WAN 2 on VLAN 200 with port 2; ports 3 and 4 are bound to none.
class isolation : public kernel_test {
protected:
    static wan_config first() { return bridged_wan(1, "1000", {.vid = 100, .service = 3}); }
    static wan_config second() { return bridged_wan(2, "0100", {.vid = 200, .service = 3}); }

    static wan_config untagged() { return bridged_wan(1, "1000", {.service = 3}); }

    static void expect_passing(place &one, place &other)
    {
        EXPECT_EQ(all_kinds, neighbours().exchanged(one, other)) << one.name() << " to " << other.name();
        EXPECT_EQ(all_kinds, neighbours().exchanged(other, one)) << other.name() << " to " << one.name();
    }
    static void expect_apart(place &one, place &other)
    {
        EXPECT_EQ("", neighbours().exchanged(one, other)) << one.name() << " to " << other.name();
        EXPECT_EQ("", neighbours().exchanged(other, one)) << other.name() << " to " << one.name();
    }

    // All that is promised of two bridged WANs: who passes, who does not, and that the gateway routes nothing
    // for the bound ports.
    static void expect_isolated()
    {
        neighbourhood &around = neighbours();
        expect_passing(around.port(1), around.line(100));
        expect_passing(around.port(2), around.line(200));
        expect_passing(around.port(3), around.port(4));
        for (const unsigned number : {2U, 3U, 4U})
            expect_apart(around.port(number), around.line(100));
        for (const unsigned number : {1U, 3U, 4U})
            expect_apart(around.port(number), around.line(200));
        expect_apart(around.line(100), around.line(200));
        EXPECT_EQ("prohibited", around.packet_from_port(1));
        EXPECT_EQ("prohibited", around.packet_from_port(2));
    }

    // What an unlucky neighbour may have done.
    static void lose_the_rules()
    {
        run({"ebtables", "-F"});
        run({"ebtables", "-t", "broute", "-F"});
        run({"ip", "rule", "flush"});
        run({"ip", "rule", "add", "lookup", "main", "pref", "32766"});
        ASSERT_EQ(text_lines{}, router().ebtables_rules());
    }
};

TEST_F(isolation, holds_after_add)
{
    given({first(), second()});

    expect_isolated();
}

// What the other cases rely on: without the rules everything gets everywhere, and that is seen.
TEST_F(isolation, leaks_are_seen_where_no_rules_are_applied)
{
    given({first(), second()});

    lose_the_rules();

    expect_passing(neighbours().port(3), neighbours().line(100));
    expect_passing(neighbours().port(1), neighbours().line(200));
    expect_passing(neighbours().line(100), neighbours().line(200));
    run({"/usr/libexec/korvel/apply-rules"});
}

TEST_F(isolation, holds_after_modify)
{
    given({first(), second()});
    modify(bridged_wan(1, "0010", {.vid = 300, .service = 3}));
    expect_passing(neighbours().port(3), neighbours().line(300));
    expect_apart(neighbours().port(1), neighbours().line(300));

    modify(first());

    expect_isolated();
}

TEST_F(isolation, holds_after_del_of_a_neighbour)
{
    given({first(), second()});
    const unsigned third = add(bridged_wan(3, "0010", {.vid = 300, .service = 3}));
    expect_apart(neighbours().line(100), neighbours().line(300));

    del(third);

    expect_isolated();
}

TEST_F(isolation, holds_after_a_restart_of_the_daemon)
{
    given({first(), second()});

    run({"/etc/init.d/korvel", "restart"});
    await_service();

    expect_isolated();
}

TEST_F(isolation, holds_after_a_restart_of_the_daemon_that_lost_scripts_and_rules)
{
    given({first(), second()});
    run({"/etc/init.d/korvel", "stop"});
    lose_the_rules();
    router().remove("/etc/korvel");

    run({"/etc/init.d/korvel", "start"});
    await_service();

    expect_isolated();
}

TEST_F(isolation, holds_after_a_firewall_reload)
{
    given({first(), second()});
    lose_the_rules();

    run({"/etc/init.d/firewall", "reload"});

    expect_isolated();
}

TEST_F(isolation, holds_after_a_restart_of_the_network_daemon)
{
    given({first(), second()});

    run({"/etc/init.d/network", "restart"});
    settle();

    expect_isolated();
}

// The machine is started twice: the first time this leaves a gateway's files on its disk, the second time the
// gateway boots with them, in a kernel that knows of no rules.
constexpr char disk[] = "/dev/vda";

TEST_F(isolation, is_stored_for_the_next_boot)
{
    given({first(), second()});

    run({"tar", "-cf", disk, "-C", "/", "etc"});
    run({"sync"});
}

TEST_F(isolation, DISABLED_holds_after_a_boot)
{
    make_gateway();
    for (const char *directory : {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface", "/etc/uci-defaults"})
        router().remove(directory);
    run({"tar", "-xf", disk, "-C", "/"});
    ASSERT_EQ(2U, router().uci_list("network.korvel.wanList").value_or(text_lines{}).size());
    ASSERT_EQ(text_lines{}, router().ebtables_rules());

    run({"/etc/init.d/boot", "boot"});
    router().start_netd({.links = true, .hotplug = true, .kernel_vlans = true});
    run({"/etc/init.d/firewall", "start"});
    run({"/etc/init.d/korvel", "boot"});
    await_service();

    expect_isolated();
}

TEST_F(isolation, of_an_untagged_wan_holds_towards_unbound_ports)
{
    given({untagged(), second()});

    expect_passing(neighbours().port(1), neighbours().line(0));
    expect_apart(neighbours().port(3), neighbours().line(0));
}

} // namespace
