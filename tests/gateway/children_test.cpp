// What the daemon's children start with: the services and tools that it runs are to find what they find when
// an operator starts them.
#include "support/daemon_test.h"

namespace {

class children_test : public daemon_test {
protected:
    children_test()
    {
        // Notes the signals that would not reach the program, and the descriptors that it has.
        gateway.write_file("/tmp/describe",
                           "#!/bin/sh\n{ grep -E '^Sig(Blk|Ign)' /proc/self/status; ls /proc/self/fd; }"
                           " >/tmp/started-$1\n",
                           0755);
        EXPECT_EQ(0, run_program({"sh", "-c", "/tmp/describe by-hand"}).status);
    }

    // Has a service's script note what it was started with.
    void watch_service(const std::string &name)
    {
        gateway.write_file("/etc/init.d/" + name, "#!/bin/sh\n/tmp/describe " + name + "\n", 0755);
    }

    // The same for the bus tool when it asks about this object.
    void watch_question(const std::string &object)
    {
        gateway.fake_program("ubus", "case \"$*\" in *\" " + object + " \"*) /tmp/describe " + object +
                                         ";; esac\nPATH=${PATH#*:}\nexec ubus \"$@\"");
    }

    std::string started(const std::string &name) const { return gateway.file("/tmp/started-" + name); }
};

TEST_F(children_test, a_service_starts_as_if_by_hand)
{
    gateway.start_netd();
    gateway.start_korvel();
    watch_service("firewall");

    ASSERT_EQ(0, gateway.call("add", add_request(routed_dhcp(1))).at("status").integer());

    EXPECT_EQ(started("by-hand"), started("firewall"));
}

TEST_F(children_test, a_service_starts_as_if_by_hand_when_a_waiting_change_tells_it)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.start_netd();
    gateway.start_korvel();
    watch_service("firewall");

    ASSERT_EQ(0, gateway.call("modify", modify_request(routed_dhcp(1), 1)).at("status").integer());
    ASSERT_TRUE(updates_reach(1, 1));

    EXPECT_EQ(started("by-hand"), started("firewall"));
}

TEST_F(children_test, the_bus_tool_starts_as_if_by_hand)
{
    gateway.store_wan(routed_dhcp(1));
    gateway.start_netd();
    watch_question("boardinfo");
    gateway.start_korvel();
    EXPECT_EQ(started("by-hand"), started("boardinfo"));
    watch_question("network.interface.wan_1");

    EXPECT_EQ(0, gateway.call("get", R"({"wanId":1})").status);

    EXPECT_EQ(started("by-hand"), started("network.interface.wan_1"));
}

} // namespace
