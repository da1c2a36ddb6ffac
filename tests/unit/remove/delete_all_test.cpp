// Deleting every WAN: by the list, or by force.
#include "remove/delete_all.h"

#include "service/settings.h"
#include "wan/wan_names.h"
#include "support/code_test.h"
#include "support/small_disk.h"

namespace {

const text_lines reloads = {"/etc/init.d/network reload", "/etc/init.d/firewall reload",
                            "/etc/init.d/miniupnpd reload", "/etc/init.d/omcproxy reload",
                            "/etc/init.d/call reload"};
const text_lines clear_and_reloads = [] {
    text_lines commands = reloads;
    commands.insert(commands.begin(), "/userfs/bin/xponigmpcmd clearAll");
    return commands;
}();

class delete_all_test : public code_test {
protected:
    delete_all_test() { gateway.set_ports({.lan = 4}); }

    void store(const wan_config &wan)
    {
        gateway.store_wan(wan);
        load_settings();
    }

    // A script that notes how it is run.
    void leave_script(const std::string &path)
    {
        gateway.write_file(path, "#!/bin/sh\necho \"$0 $*\" >>/tmp/ran\n", 0755);
    }

    std::string runs() const { return gateway.exists("/tmp/ran") ? gateway.file("/tmp/ran") : ""; }

    // Twenty unnamed device sections among named ones and sections of other types.
    void store_many_sections()
    {
        std::string network = "config device\n\toption name 'br-lan'\n\toption type 'bridge'\n"
                              "\nconfig korvel 'korvel'\n\toption pon_adapt 'pon'\n\toption maxWanId '20'\n";
        for (int i = 1; i <= 20; i++) {
            const std::string number = std::to_string(i);
            network += "\nconfig device\n\toption name 'pon." + number + "'\n";
            if (i % 3 == 0)
                network += "\nconfig device 'named_" + number + "'\n\toption name 'x." + number + "'\n";
            if (i % 4 == 0)
                network += "\nconfig route\n\toption table '" + number + "'\n";
            if (i % 5 == 0)
                network += "\nconfig interface 'wan_" + number + "'\n\toption proto 'dhcp'\n";
        }
        gateway.set_config("network", network);
        load_settings();
    }
};

TEST_F(delete_all_test, every_listed_wan_goes_with_its_scripts)
{
    const std::string lan = *gateway.uci_get("network.@device[0].ports");
    store(routed_dhcp(1, {.vid = 100, .ip_protocol = 3}));
    store(bridged_wan(2, "0100", {.vid = 200, .mvid = 201}));
    store(bridged_wan(3, "0010", {.vid = 300}));
    for (const char *path : {"/etc/hotplug.d/iface/99-wan_1", "/etc/korvel/rule_wan_2.sh",
                             "/etc/korvel/rule_wan_3.sh", isolate_rule_path})
        leave_script(path);
    gateway.write_file(mvlan_rule_path, "old", 0755);

    wan_delete_all();

    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(maxWanId.load(), 0U);
    EXPECT_EQ(gateway.uci_get("network.@device[1]"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.@device[0].ports"), lan);
    EXPECT_EQ(gateway.config("network").find("wan_"), std::string::npos);
    EXPECT_EQ(gateway.uci_get("firewall.@zone[1].network"), std::nullopt);
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
    EXPECT_EQ(runs(), "/etc/hotplug.d/iface/99-wan_1 -r\n/etc/korvel/rule_wan_2.sh -r\n"
                      "/etc/korvel/rule_wan_isolate.sh -r\n/etc/korvel/rule_wan_3.sh -r\n");
    text_lines commands = clear_and_reloads;
    commands.insert(commands.begin(), "/etc/init.d/network reload"); // for the interface wan_1_v6
    EXPECT_EQ(gateway.commands(), commands);
    EXPECT_TRUE(gateway.log().empty());
}

// A list that lost its last value is there, empty, until somebody commits the change.
TEST_F(delete_all_test, with_no_wan_left_the_services_are_reloaded_all_the_same)
{
    set_ids({1});
    ASSERT_EQ(run_program({"uci", "del_list", "network.korvel.wanList=1"}).status, 0);
    leave_script(isolate_rule_path);
    gateway.write_file(mvlan_rule_path, "old", 0755);

    wan_delete_all();

    EXPECT_EQ(runs(), "/etc/korvel/rule_wan_isolate.sh -r\n");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(gateway.commands(), clear_and_reloads);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "1") << "nothing was deleted";
    EXPECT_EQ(gateway.uci_get("network.@device[0].name"), "br-lan");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(delete_all_test, without_a_list_and_without_a_wan_nothing_is_reloaded)
{
    leave_script(isolate_rule_path);

    wan_delete_all();

    EXPECT_EQ(gateway.commands(), text_lines{});
    EXPECT_TRUE(gateway.log().empty());
    EXPECT_TRUE(gateway.exists(isolate_rule_path)) << "that is the list's business";
}

TEST_F(delete_all_test, without_a_list_everything_is_swept_and_that_is_logged)
{
    for (const char *list : {"", "\toption wanList '1'\n"}) {
        SCOPED_TRACE(list);
        start_over();
        store_many_sections();
        std::string network = gateway.config("network");
        const std::string korvel = "\toption maxWanId '20'\n";
        network.insert(network.find(korvel) + korvel.size(), list);
        gateway.set_config("network", network);

        wan_delete_all();

        EXPECT_EQ(gateway.uci_get("network.@device[1]"), std::nullopt);
        EXPECT_EQ(gateway.uci_get("network.@interface[0]"), std::nullopt);
        EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), std::nullopt);
        EXPECT_EQ(gateway.log_texts(LOG_WARNING),
                  text_lines{"Failed to get wan list, force clear uci config"});
        EXPECT_EQ(gateway.log().size(), 1U);
        EXPECT_EQ(gateway.commands(), reloads);
    }
}

TEST_F(delete_all_test, without_the_own_section_nothing_happens)
{
    for (const char *config : {"config device\n\toption name 'pon.1'\n", "", "config korvel\n"}) {
        SCOPED_TRACE(config);
        gateway.set_config("network", config);

        wan_delete_all();

        EXPECT_EQ(gateway.config("network"), config);
    }
    gateway.remove("/etc/config/network");
    wan_delete_all();
    EXPECT_EQ(gateway.commands(), text_lines{});
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(delete_all_test, a_wan_that_cannot_be_deleted_leads_to_the_sweep)
{
    store(routed_dhcp(1, {.vid = 100}));
    store(bridged_wan(2, "0100", {.vid = 200}));
    set_ids({1, 7, 2}); // 7 has no device
    leave_script("/etc/hotplug.d/iface/99-wan_7");
    gateway.uci_set("network.globals2", "globals");

    wan_delete_all();

    EXPECT_EQ(gateway.uci_get("network.@device[1]"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.wan_1"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(gateway.uci_get("network.globals2"), "globals");
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to delete wan_7"});
    EXPECT_EQ(gateway.log_texts(LOG_WARNING),
              text_lines{"Error happened when deleting all wan, force clear uci config: -1"});
    EXPECT_EQ(runs(), "/etc/hotplug.d/iface/99-wan_7 -r\n") << "the sweep goes through the list's scripts";
    EXPECT_EQ(gateway.commands(), (text_lines{"/userfs/bin/xponigmpcmd clearAll", // after the deletions
                                              "/userfs/bin/xponigmpcmd clearAll", // after the sweep's scripts
                                              reloads[0], reloads[1], reloads[2], reloads[3], reloads[4]}));
}

TEST_F(delete_all_test, identifiers_are_cut_to_8_bits)
{
    store(routed_dhcp(3, {.vid = 100}));
    set_ids({256 + 3});

    wan_delete_all();

    EXPECT_EQ(gateway.device_section(3), std::nullopt);
}

TEST_F(delete_all_test, an_isolation_script_that_cannot_be_removed_is_logged)
{
    store(routed_dhcp(1, {.vid = 100}));
    leave_script(isolate_rule_path);
    small_disk disk("/etc/korvel");
    disk.make_read_only();

    wan_delete_all();

    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              text_lines{"Failed to delete bridge isolate rule: /etc/korvel/rule_wan_isolate.sh"});
    EXPECT_EQ(runs(), "/etc/korvel/rule_wan_isolate.sh -r\n");
}

TEST_F(delete_all_test, the_sweep_deletes_every_section_that_it_names)
{
    store_many_sections();

    EXPECT_EQ(wan_force_clear(), 20U + 6U + 4U) << "unnamed devices, named ones, interfaces";

    EXPECT_EQ(gateway.config("network"),
              "\nconfig device\n\toption name 'br-lan'\n\toption type 'bridge'\n"
              "\nconfig korvel 'korvel'\n\toption pon_adapt 'pon'\n\toption maxWanId '0'\n"
              "\nconfig route\n\toption table '4'\n\nconfig route\n\toption table '8'\n"
              "\nconfig route\n\toption table '12'\n\nconfig route\n\toption table '16'\n"
              "\nconfig route\n\toption table '20'\n\n");
    EXPECT_EQ(maxWanId.load(), 0U);
    EXPECT_EQ(gateway.commands(), text_lines{}) << "no list, no scripts";
}

TEST_F(delete_all_test, the_sweep_knows_what_to_keep)
{
    const std::string kept = "\nconfig device\n\toption name 'br-lan'\n"
                             "\nconfig device 'no_name'\n\toption type 'bridge'\n"
                             "\nconfig device 'names'\n\tlist name 'pon.1'\n"
                             "\nconfig interface 'lan'\n\toption name 'wan_1'\n"
                             "\nconfig interface 'wan'\n\toption proto 'dhcp'\n"
                             "\nconfig interface 'dslite_1'\n\toption proto 'dslite'\n"
                             "\nconfig route 'wan_1_route'\n\toption table '1'\n"
                             "\nconfig korvel 'korvel'\n\toption maxWanId '0'\n";
    gateway.set_config("network", kept + "\nconfig device 'swept'\n\toption name 'br-lan2'\n"
                                         "\nconfig interface 'my_wan_x'\n\toption proto 'dhcp'\n"
                                         "\nconfig interface 'wan_1_v6'\n\toption proto 'dhcp'\n");

    EXPECT_EQ(wan_force_clear(), 3U);

    EXPECT_EQ(gateway.config("network"), kept + "\n");
}

TEST_F(delete_all_test, the_sweep_counts_the_list_and_takes_its_scripts_back)
{
    set_ids({3, 256 + 4, 5});
    for (const char *path : {"/etc/hotplug.d/iface/99-wan_3", "/etc/korvel/rule_wan_3.sh",
                             "/etc/korvel/rule_wan_4.sh", "/etc/hotplug.d/iface/99-wan_9", isolate_rule_path})
        leave_script(path);
    gateway.write_file(mvlan_rule_path, "old", 0755);

    EXPECT_EQ(wan_force_clear(), 3U);

    EXPECT_EQ(runs(), "/etc/hotplug.d/iface/99-wan_3 -r\n/etc/korvel/rule_wan_3.sh -r\n"
                      "/etc/korvel/rule_wan_4.sh -r\n/etc/korvel/rule_wan_isolate.sh -r\n");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{"99-wan_9"});
    EXPECT_EQ(gateway.commands(), text_lines{"/userfs/bin/xponigmpcmd clearAll"});
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(maxWanId.load(), 0U);
}

TEST_F(delete_all_test, the_sweep_of_nothing_counts_nothing_but_lets_identifiers_start_over)
{
    gateway.uci_set("network.korvel.maxWanId", "7");
    load_settings();

    EXPECT_EQ(wan_force_clear(), 0U);

    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(maxWanId.load(), 0U);
    gateway.remove("/etc/config/network");
    EXPECT_EQ(wan_force_clear(), 0U) << "no configuration at all";
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(delete_all_test, what_the_sweep_cannot_write_is_logged)
{
    store(routed_dhcp(1, {.vid = 100}));
    const std::string device = *gateway.device_section(1);
    const std::string before = gateway.config("network");
    small_disk disk("/etc/config");
    disk.make_read_only();

    EXPECT_EQ(wan_force_clear(), 3U) << "the list's entry, the interface, the device";

    EXPECT_EQ(gateway.config("network"), before);
    EXPECT_EQ(gateway.log_texts(LOG_ERR),
              (text_lines{"Failed to reset maxWanId", "Failed to delete section wan_1",
                          "Failed to delete section " + device}));
}

// What another program has left pending is committed by the first write, which may rename unnamed sections.
TEST_F(delete_all_test, pending_changes_of_others_do_not_lead_the_sweep_astray)
{
    store_many_sections();
    ASSERT_EQ(run_program({"uci", "delete", "network.@device[1]"}).status, 0);
    ASSERT_EQ(run_program({"uci", "delete", "network.@route[0]"}).status, 0);

    EXPECT_EQ(wan_force_clear(), 19U + 6U + 4U);

    EXPECT_EQ(gateway.uci_get("network.@device[0].name"), "br-lan");
    EXPECT_EQ(gateway.uci_get("network.@device[1]"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.@route[3].table"), "20");
}

} // namespace
