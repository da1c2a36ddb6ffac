// What the first boot after an installation or an upgrade makes of the configuration that it finds, and which
// files an upgrade keeps.
#include "support/daemon_test.h"

#include <gtest/gtest.h>

namespace {

class first_boot_test : public daemon_test {
protected:
    void set_korvel_section(const std::string &options)
    {
        std::string network = gateway.config("network");
        network.resize(network.find("config korvel"));
        gateway.set_config("network", network + options);
    }

    std::string option(const char *name) const
    {
        return gateway.uci_get(std::string("network.korvel.") + name).value_or("missing");
    }
};

TEST_F(first_boot_test, a_missing_section_is_added)
{
    set_korvel_section("");

    gateway.install_package();

    EXPECT_EQ("korvel", gateway.uci_get("network.korvel").value_or("missing"));
    EXPECT_EQ("0", option("maxWanId"));
    EXPECT_EQ("pon", option("pon_adapt"));
}

TEST_F(first_boot_test, a_gateway_without_a_network_configuration_gets_one)
{
    gateway.remove("/etc/config/network");
    gateway.remove("/etc/config/firewall");

    gateway.install_package();

    EXPECT_EQ("\nconfig korvel 'korvel'\n\toption pon_adapt 'pon'\n\toption maxWanId '0'\n\n",
              gateway.config("network"));
    EXPECT_FALSE(gateway.exists("/etc/config/firewall"));
}

TEST_F(first_boot_test, the_highest_identifier_is_never_below_one_in_use)
{
    struct {
        const char *section;
        const char *lkname; // of a device section; none when empty
        const char *highest;
    } const cases[] = {
        {"config korvel 'korvel'\n\tlist wanList '1'\n\tlist wanList '12'\n\tlist wanList '3'\n", "", "12"},
        {"config korvel 'korvel'\n\toption maxWanId '0'\n\tlist wanList '2'\n", "", "2"},
        {"config korvel 'korvel'\n\toption maxWanId '9'\n\tlist wanList '2'\n", "", "9"},
        {"config korvel 'korvel'\n\toption maxWanId '2'\n\tlist wanList '2'\n", "7_INTERNET_R_VID_100", "7"},
        {"config korvel 'korvel'\n\toption maxWanId '8'\n\tlist wanList '2'\n", "7_INTERNET_R_VID_100", "8"},
        {"", "11_OTHER_B_TMP", "11"},
        {"config korvel 'korvel'\n\toption maxWanId 'many'\n", "", "0"},
        {"config korvel 'korvel'\n\toption maxWanId ''\n\tlist wanList 'x'\n\tlist wanList '4'\n", "x_y",
         "4"},
        {"config korvel 'korvel'\n\toption maxWanId '1'\n\tlist wanList '99999999999999999999'\n", "", "1"},
    };
    for (const auto &example : cases) {
        SCOPED_TRACE(std::string(example.section) + example.lkname);
        ::gateway fresh;
        set_korvel_section(example.section +
                           (*example.lkname ? "\nconfig device\n\toption name 'pon.9'\n\toption lkname '" +
                                                  std::string(example.lkname) + "'\n"
                                            : ""));

        gateway.install_package();

        EXPECT_EQ(example.highest, option("maxWanId"));
    }
}

TEST_F(first_boot_test, what_is_set_stays_and_a_second_boot_changes_nothing)
{
    set_korvel_section("config korvel 'korvel'\n\toption pon_adapt 'eth1'\n\toption use_min_wan_id '1'\n"
                       "\tlist wanList '4'\n");
    gateway.install_package();
    const std::string network = gateway.config("network");
    const std::string firewall = gateway.config("firewall");
    EXPECT_EQ("eth1", option("pon_adapt"));
    EXPECT_EQ("1", option("use_min_wan_id"));

    gateway.install_package();

    EXPECT_EQ(network, gateway.config("network"));
    EXPECT_EQ(firewall, gateway.config("firewall"));
}

TEST_F(first_boot_test, the_firewall_s_own_sections_stay_where_they_are)
{
    const text_lines before = gateway.uci_options("firewall.@zone[1]");

    gateway.install_package();

    EXPECT_EQ(before, gateway.uci_options("firewall.@zone[1]"));
    EXPECT_EQ("wan", gateway.uci_get("firewall.@zone[1].name").value_or(""));
    EXPECT_EQ("/usr/share/korvel/firewall.include", gateway.uci_get("firewall.korvel.path").value_or(""));
}

// An administrator's choice.
TEST_F(first_boot_test, an_include_that_was_switched_off_stays_off)
{
    gateway.install_package();
    gateway.uci_set("firewall.korvel.enabled", "0");

    gateway.install_package();

    EXPECT_EQ("0", gateway.uci_get("firewall.korvel.enabled").value_or("missing"));
}

// A configuration of a daemon that kept no highest identifier: with 0 the next WAN would be another wan_1.
TEST_F(first_boot_test, a_wan_added_after_an_upgrade_overwrites_none)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.uci_delete("network.korvel.maxWanId");
    gateway.install_package();
    gateway.start_netd();
    gateway.start_korvel();

    EXPECT_EQ(
        result_reply(0, 0, "korvel modify OK."),
        gateway.call(
            "add",
            R"({"wanMode":1,"ipProtocol":1,"ipMode":0,"vlanMode":true,"vid":200,"mtu":1500,"service":2})"));

    EXPECT_EQ((text_lines{"1", "2"}), gateway.uci_list("network.korvel.wanList").value_or(text_lines{}));
    EXPECT_EQ("1_INTERNET_R_VID_100", gateway.device_option(1, "lkname").value_or(""));
    EXPECT_EQ("2_TR069_R_VID_200", gateway.device_option(2, "lkname").value_or(""));
}

// An upgrade keeps what the lists in keep.d name, and the configuration.
TEST_F(first_boot_test, an_upgrade_keeps_the_scripts)
{
    gateway.install_package();
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.store_wan(bridged_wan(2, "1010", {.vid = 200}));
    gateway.start_netd();
    gateway.start_korvel();
    gateway.stop_korvel();

    const program_result kept =
        run_program({"sh", "-c", "find $(cat /lib/upgrade/keep.d/korvel) -type f | sort"});

    EXPECT_EQ("/etc/hotplug.d/iface/99-wan_1\n/etc/korvel/rule_wan_2.sh\n", kept.output);
}

} // namespace
