// What the scripts and the configuration do not promise: docs/limits.md names these cases. Each shows the
// limit; one that no longer holds has to leave that page.
#include "kernel/kernel_test.h"

#include <fstream>

namespace {

// A provider that no longer answers, for a while.
class silent_provider {
public:
    silent_provider() { change("del"); }
    ~silent_provider() { change("add"); }
    silent_provider(const silent_provider &) = delete;
    silent_provider &operator=(const silent_provider &) = delete;

private:
    static void change(const char *how)
    {
        (void)run_program({"ip", "-n", "isp100", "addr", how, "192.0.2.1/24", "dev", "line.100"});
    }
};

class known_limit : public kernel_test {
protected:
    static wan_config first() { return routed_static(1, {.vid = 100, .ip_protocol = 3, .bind = "1000"}); }
    static wan_config second() { return routed_static(2, {.vid = 200, .ip_protocol = 3, .bind = "0100"}); }

    // Two routed WANs, of which the second is default.
    void given_both()
    {
        given({first(), second()});
        run({"ip", "route", "replace", "default", "via", "192.0.2.1", "dev", "pon.200"});
        run({"ip", "-6", "route", "replace", "default", "via", "2001:db8:2::1", "dev", "pon.200"});
    }
    static int mtu_of(const std::string &device)
    {
        int mtu = 0;
        std::ifstream("/sys/class/net/" + device + "/mtu") >> mtu;
        return mtu;
    }
};

TEST_F(known_limit, after_ifdown_a_bound_port_leaves_by_the_default_wan)
{
    given_both();
    ASSERT_EQ("line 100", neighbours().packet_from_port(1));

    ASSERT_EQ(0, router().call_object("network.interface.wan_1", "down").status);
    settle();

    EXPECT_EQ("line 200", neighbours().packet_from_port(1));
    ASSERT_EQ(0, router().call_object("network.interface.wan_1", "up").status);
    settle();
}

TEST_F(known_limit, events_of_interfaces_with_longer_names_take_away_the_rules)
{
    given_both();
    for (const char *interface : {"wan_10", "wan_1_v6", "wan_1_6"}) {
        SCOPED_TRACE(interface);
        ASSERT_EQ("line 100", neighbours().packet_from_port(1));

        tell("ifdown", interface);

        EXPECT_EQ("line 200", neighbours().packet_from_port(1));
        tell("ifupdate", "wan_1", "pon.100");
    }
}

TEST_F(known_limit, ipv6_of_a_bound_port_is_not_steered)
{
    given_both();

    EXPECT_EQ("line 100", neighbours().packet_from_port(1));
    EXPECT_EQ("line 200", neighbours().ipv6_packet_from_port(1));
}

TEST_F(known_limit, ipv6_of_a_bridged_wan_s_port_is_routed)
{
    given_both();
    const unsigned third = add(bridged_wan(3, "0010", {.vid = 300, .service = 3}));

    EXPECT_EQ("prohibited", neighbours().packet_from_port(3));
    EXPECT_EQ("line 200", neighbours().ipv6_packet_from_port(3));
    del(third);
}

TEST_F(known_limit, status_true_does_not_prove_a_way_out)
{
    given_both();
    const silent_provider nobody;
    run({"ip", "neigh", "flush", "dev", "pon.100"});

    EXPECT_EQ(router().call("get", R"({"wanId":1})").at("status"), true);
    EXPECT_EQ("nowhere", neighbours().packet_from_gateway("192.0.2.10"));
}

TEST_F(known_limit, an_untagged_wan_caps_the_mtu_of_every_vlan)
{
    given_both();
    ASSERT_EQ(1500, mtu_of("pon.100"));
    spoil();

    const unsigned third = add(routed_static(3, {.mtu = 1400}));
    EXPECT_EQ(1400, mtu_of("pon.100"));

    del(third);
    EXPECT_EQ(1400, mtu_of("pon.100"));
    run({"ip", "link", "set", "pon", "mtu", "1500"});
}

// Identifiers above 20 take the mark of the first that is free, here 1.
TEST_F(known_limit, two_wans_with_one_mark_share_the_wan_that_came_up_last)
{
    given({first(), second()}, /*above=*/20);
    ASSERT_EQ("21 22", router().uci_get("network.korvel.wanList"));

    EXPECT_EQ("line 200", neighbours().packet_from_port(1));
    EXPECT_EQ("line 200", neighbours().packet_from_port(2));
}

// Two bridged WANs: 1, untagged, with port 1, and 2 with port 2.
class known_bridge_limit : public kernel_test {
protected:
    known_bridge_limit()
    {
        given({bridged_wan(1, "1000", {.service = 3}),
               bridged_wan(2, "0100", {.vid = 200, .service = 3, .disable_lan_dhcp = 1})});
    }
};

TEST_F(known_bridge_limit, untagged_and_tagged_wans_reach_each_other)
{
    EXPECT_EQ(all_kinds, neighbours().exchanged(neighbours().line(0), neighbours().line(200)));
    EXPECT_EQ(all_kinds, neighbours().exchanged(neighbours().line(200), neighbours().line(0)));
}

TEST_F(known_bridge_limit, a_provider_s_dhcp_and_advertisements_reach_the_gateway)
{
    EXPECT_EQ(all_kinds_of_housekeeping, neighbours().housekeeping_to_gateway(neighbours().line(200)));
}

// Each rule is deleted before it is installed anew. Here the bridge's program is held up in between.
TEST_F(known_bridge_limit, frames_get_through_while_the_rules_are_replaced)
{
    place &unbound = neighbours().port(3);
    place &line = neighbours().line(200);
    ASSERT_EQ("", neighbours().exchanged(unbound, line));
    router().fake_program("ebtables",
                          "case \"$*\" in '-I FORWARD -i eth0.3 -o pon.200'*) touch /tmp/between\n"
                          "while [ ! -e /tmp/go ]; do sleep 0.05; done ;; esac\n"
                          "exec /usr/sbin/ebtables \"$@\"");

    child_process reload({"/etc/init.d/firewall", "reload"});
    ASSERT_TRUE(wait_until([] { return router().exists("/tmp/between"); }));
    EXPECT_EQ(all_kinds, neighbours().exchanged(unbound, line));
    router().write_file("/tmp/go", "");

    EXPECT_EQ(0, reload.wait());
    EXPECT_EQ("", neighbours().exchanged(unbound, line));
    router().remove("/gateway/fakes/ebtables");
}

class ninth_wan_limit : public kernel_test {};

TEST_F(ninth_wan_limit, the_ninth_bridged_wan_reaches_the_others)
{
    make_gateway();
    for (uint8_t id = 1; id <= 8; id++) {
        router().store_wan(bridged_wan(id, "", {.vid = static_cast<uint16_t>(99 + id)}));
        // One that misses its script has the isolation written anew, each time; the ninth is enough.
        router().write_file("/etc/korvel/rule_wan_" + std::to_string(id) + ".sh", "#!/bin/sh\n", 0755);
    }
    router().store_wan(bridged_wan(9, "", {.vid = 200}));
    start();
    await_service();

    EXPECT_EQ("", neighbours().exchanged(neighbours().line(100), neighbours().line(200)));
    EXPECT_EQ(all_kinds, neighbours().exchanged(neighbours().line(200), neighbours().line(100)));
}

} // namespace
