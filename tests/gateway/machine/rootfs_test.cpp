// The gateway's own scripts: ipcalc.sh, hotplug-call, the init scripts and the functions of network.sh.
#include "machine/inside.h"

#include <gtest/gtest.h>

namespace {

TEST(ipcalc, networks_follow_from_address_and_length)
{
    struct {
        const char *arguments;
        const char *output; // blank-separated
    } const cases[] = {
        {"198.51.100.23/24",
         "IP=198.51.100.23 NETMASK=255.255.255.0 BROADCAST=198.51.100.255 NETWORK=198.51.100.0 PREFIX=24"},
        {"10.1.2.3/20", "IP=10.1.2.3 NETMASK=255.255.240.0 BROADCAST=10.1.15.255 NETWORK=10.1.0.0 PREFIX=20"},
        {"100.64.3.9/32",
         "IP=100.64.3.9 NETMASK=255.255.255.255 BROADCAST=100.64.3.9 NETWORK=100.64.3.9 PREFIX=32"},
        {"1.2.3.4/0", "IP=1.2.3.4 NETMASK=0.0.0.0 BROADCAST=255.255.255.255 NETWORK=0.0.0.0 PREFIX=0"},
        {"10.1.2.3 255.255.255.252",
         "IP=10.1.2.3 NETMASK=255.255.255.252 BROADCAST=10.1.2.3 NETWORK=10.1.2.0 PREFIX=30"},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(example.arguments);
        const inside_result result =
            run_in_gateway(std::string("echo $(ipcalc.sh ") + example.arguments + ")");
        EXPECT_EQ(std::string(example.output) + "\n", result.output);
    }
}

TEST(ipcalc, what_is_no_network_prints_nothing_to_evaluate)
{
    for (const char *arguments :
         {"", "''", "1.2.3/24", "1.2.3.4/33", "1.2.3.4/x", "300.1.1.1/8", "1.2.3.4 255.0.255.0", "x"}) {
        SCOPED_TRACE(arguments);
        EXPECT_EQ("1\n",
                  run_in_gateway(std::string("ipcalc.sh ") + arguments + " 2>/dev/null; echo $?").output);
    }
}

TEST(hotplug_call, scripts_are_sourced_in_order_each_in_a_shell_of_its_own)
{
    const inside_result result = run_in_gateway(
        "cd /etc/hotplug.d/iface; echo 'echo third' > 99-z;"
        "echo 'echo first $1 $ACTION $INTERFACE $HOTPLUG_TYPE; LEAK=1; return; echo never' > 10-a;"
        "echo 'echo second ${LEAK:-clean}; exit 4' > 20-b;"
        "ACTION=ifup INTERFACE=wan_1 DEVICE=pon.100 hotplug-call iface; cat /gateway/journal");

    EXPECT_EQ("first iface ifup wan_1 iface\nsecond clean\nthird\n"
              "hotplug-call iface ACTION=ifup INTERFACE=wan_1 DEVICE=pon.100\n",
              result.output);
}

TEST(hotplug_call, a_subsystem_without_scripts_is_fine)
{
    EXPECT_EQ("hotplug-call button ACTION=pressed\n",
              run_in_gateway("ACTION=pressed hotplug-call button; cat /gateway/journal").output);
}

TEST(init_scripts, every_request_is_noted)
{
    for (const char *name : {"dnsmasq", "firewall", "miniupnpd", "omcproxy", "call"}) {
        const std::string request = std::string("/etc/init.d/") + name + " reload";
        SCOPED_TRACE(request);
        EXPECT_EQ(request + "\n", run_in_gateway(request + "; cat /gateway/journal").output);
    }
}

// Includes "reloaded" (for both generations), "compatible" (for the later one only), "earlier" (for the
// earlier one only) and three for nobody, each of which prints its name.
constexpr char includes[] = R"(
add() { echo "echo $1" > /tmp/$1; printf "set firewall.$1=include\nset firewall.$1.path=/tmp/$1\n"
n=$1; shift; for o; do printf "set firewall.$n.$o\n"; done; }
{ add reloaded type=script fw4_compatible=1 reload=1; add compatible type=script fw4_compatible=1
add earlier type=script reload=1; add off type=script enabled=0 fw4_compatible=1
add rules type=restore reload=1; add plain type=script; } | uci batch
)";

TEST(init_scripts, the_firewall_runs_the_includes_that_its_generation_runs)
{
    EXPECT_EQ("reloaded\ncompatible\n",
              run_in_gateway(std::string(includes) + "/etc/init.d/firewall reload").output);
    EXPECT_EQ("reloaded\nearlier\n", run_in_gateway(std::string(includes) +
                                                    "echo 3 > /gateway/firewall; /etc/init.d/firewall reload")
                                         .output);
    EXPECT_EQ("reloaded\ncompatible\nearlier\nplain\n",
              run_in_gateway(std::string(includes) + "echo 3 > /gateway/firewall; /etc/init.d/firewall start")
                  .output);
    EXPECT_EQ("", run_in_gateway(std::string(includes) + "/etc/init.d/firewall stop").output);
}

TEST(init_scripts, a_boot_does_once_what_packages_left_to_be_done)
{
    const inside_result result =
        run_in_gateway("rm -f /etc/uci-defaults/*; echo 'echo first; LEAK=1' > /etc/uci-defaults/10-a;"
                       "echo 'echo second ${LEAK:-clean}; exit 1' > /etc/uci-defaults/20-b;"
                       "/etc/init.d/boot boot; ls /etc/uci-defaults; /etc/init.d/boot boot");

    EXPECT_EQ("first\nsecond clean\n20-b\nsecond clean\n", result.output);
}

// The bus tool of this gateway prints the given text and notes how it was called.
std::string with_ubus_printing(const std::string &text)
{
    return "printf '#!/bin/sh\\necho \"$@\" >> /tmp/ubus_calls\\ncat /tmp/reply\\n' > /tmp/ubus; chmod 755 "
           "/tmp/ubus;"
           "mv -f /tmp/ubus /gateway/bin/ubus; printf '%s' '" +
           text + "' > /tmp/reply; ";
}

TEST(init_scripts, network_reload_and_restart_tell_the_network_daemon)
{
    const inside_result result = run_in_gateway(
        with_ubus_printing("") + "/etc/init.d/network reload; /etc/init.d/network restart; "
                                 "/etc/init.d/network status; cat /gateway/journal /tmp/ubus_calls");

    EXPECT_EQ("/etc/init.d/network reload\n/etc/init.d/network restart\n/etc/init.d/network status\n"
              "-S call network reload\n-S call network restart\n",
              result.output);
}

// Members of an interface in the network daemon's dump.
constexpr char up_status[] =
    R"("up":true,"l3_device":"pon.100","ipv4-address":[{"address":"198.51.100.23","mask":24},{"address":"198.51.100.24","mask":25}],)"
    R"("route":[{"target":"10.0.0.0","mask":8,"nexthop":"198.51.100.2"},{"target":"0.0.0.0","mask":0,"nexthop":"198.51.100.1"}],)"
    R"("dns-server":["192.0.2.1","2001:db8::1"],"inactive":{"route":[],"dns-server":["192.0.2.2"]})";

constexpr char no_default_route_status[] =
    R"("up":true,"route":[],"dns-server":[],"inactive":{"route":[{"target":"0.0.0.0","mask":0,"nexthop":"198.51.100.1"}],)"
    R"("dns-server":["192.0.2.2"]})";

constexpr char down_status[] = R"("up":false,"data":{})";

// All interfaces, of which wan_1 has this status.
std::string dump(const std::string &status)
{
    return R"({"interface":[{"interface":"lan","up":true,"l3_device":"br-lan","ipv4-address":[{"address":"192.168.1.1",)"
           R"("mask":24}]},{"interface":"wan_1",)" +
           status + "}]}";
}

TEST(network_functions, answers_come_from_the_interface_s_part_of_the_dump)
{
    struct {
        std::string dump;
        const char *call;
        const char *output; // exit status and value, "-" when unset
    } const cases[] = {
        {dump(up_status), "network_get_ipaddr VALUE wan_1", "0 198.51.100.23"},
        {dump(up_status), "network_get_subnet VALUE wan_1", "0 198.51.100.23/24"},
        {dump(up_status), "network_get_gateway VALUE wan_1", "0 198.51.100.1"},
        {dump(up_status), "network_get_device VALUE wan_1", "0 pon.100"},
        {dump(up_status), "network_get_dnsserver VALUE wan_1", "0 192.0.2.1 2001:db8::1"},
        {dump(up_status), "network_get_dnsserver VALUE wan_1 1", "0 192.0.2.1 2001:db8::1 192.0.2.2"},
        {dump(no_default_route_status), "network_get_gateway VALUE wan_1", "1 -"},
        {dump(no_default_route_status), "network_get_gateway VALUE wan_1 1", "0 198.51.100.1"},
        {dump(no_default_route_status), "network_get_dnsserver VALUE wan_1", "1 -"},
        {dump(down_status), "network_get_ipaddr VALUE wan_1", "1 -"},
        {dump(down_status), "network_get_subnet VALUE wan_1", "1 -"},
        {dump(down_status), "network_get_gateway VALUE wan_1 1", "1 -"},
        {dump(down_status), "network_get_device VALUE wan_1", "1 -"},
        {dump(up_status), "network_get_ipaddr VALUE lan", "0 192.168.1.1"},
        {dump(up_status), "network_get_ipaddr VALUE wan_2", "1 -"},
        {"", "network_get_ipaddr VALUE wan_1", "1 -"},
        {"no json", "network_get_device VALUE wan_1", "1 -"},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(std::string(example.call) + " of " + example.dump);
        const inside_result result =
            run_in_gateway(with_ubus_printing(example.dump) + ". /lib/functions/network.sh; VALUE=old; " +
                           example.call + "; echo $? ${VALUE--}");
        EXPECT_EQ(std::string(example.output) + "\n", result.output);
    }
}

TEST(network_functions, the_network_daemon_is_asked_once_about_all_interfaces)
{
    EXPECT_EQ("pon.100 192.168.1.1\n-S call network.interface dump\n",
              run_in_gateway(with_ubus_printing(dump(up_status)) +
                             ". /lib/functions/network.sh; network_get_device DEVICE wan_1;"
                             "network_get_ipaddr LAN lan; echo $DEVICE $LAN; cat /tmp/ubus_calls")
                  .output);
}

TEST(network_functions, what_was_learnt_can_be_forgotten)
{
    EXPECT_EQ("- pon.100\n", run_in_gateway(with_ubus_printing(dump(down_status)) +
                                            ". /lib/functions/network.sh; network_get_device OLD wan_1;"
                                            "printf '%s' '" +
                                            dump(up_status) +
                                            "' > /tmp/reply; network_flush_cache;"
                                            "network_get_device NEW wan_1; echo ${OLD--} $NEW")
                                 .output);
}

} // namespace
