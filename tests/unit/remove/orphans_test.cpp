// Pieces of WANs that belong to no WAN: named at the start, removed by the deletion of all.
#include "remove/orphans.h"

#include "remove/delete_all.h"
#include "support/code_test.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace {

class orphans_test : public code_test {
protected:
    void append(const char *config, const std::string &text)
    {
        gateway.set_config(config, gateway.config(config) + text);
    }

    // One of each kind, beside two WANs that are whole.
    void leave_orphans()
    {
        gateway.store_wan(routed_dhcp(1, {.vid = 101}));
        gateway.store_wan(bridged_wan(2, "1000", {.vid = 102}));
        append("network", "\nconfig device\n\toption type '8021q'\n\toption vid '200'\n"
                          "\nconfig interface 'wan_7'\n\toption proto 'pppoe'\n\toption password 'secret'\n"
                          "\nconfig interface 'wan_7_v6'\n\toption proto 'dhcpv6'\n"
                          "\nconfig interface 'dslite_8'\n\toption proto 'dslite'\n");
        gateway.uci_add_list("network.korvel.wanList", "9");
        gateway.uci_add_list("network.korvel.wanList", "1");
        gateway.uci_add_list("firewall.@zone[1].network", "wan_10");
        gateway.uci_set("omcproxy.@proxy[0].uplink", "wan_13");
        gateway.uci_set("upnpd.config.external_iface", "wan_14");
        gateway.uci_set("dhcp.lan.dns_sync_with_wan", "wan_15");
        for (const char *const path : {"/etc/korvel/rule_wan_11.sh", "/etc/hotplug.d/iface/99-wan_12"})
            gateway.write_file(path, "#!/bin/sh\necho \"$0 $1\" >>/tmp/ran\n", 0755);
        gateway.write_file("/etc/korvel/rule_wan_2.sh", "#!/bin/sh\n", 0755);
        gateway.write_file("/etc/hotplug.d/iface/99-wan_1", "#!/bin/sh\n", 0755);
        gateway.clear_log();
    }
};

TEST_F(orphans_test, each_is_named_and_nothing_is_changed)
{
    leave_orphans();
    const std::string network = gateway.config("network"), firewall = gateway.config("firewall");

    wan_log_orphans();

    const text_lines warnings = gateway.log_texts(LOG_WARNING);
    ASSERT_EQ(12U, warnings.size());
    EXPECT_TRUE(warnings[0].starts_with("Device section cfg")) << warnings[0];
    EXPECT_TRUE(warnings[0].ends_with(" belongs to no WAN, it has no name")) << warnings[0];
    EXPECT_EQ("Interface wan_7 belongs to no WAN", warnings[1]);
    EXPECT_EQ("Interface wan_7_v6 belongs to no WAN", warnings[2]);
    EXPECT_EQ("Interface dslite_8 belongs to no WAN", warnings[3]);
    EXPECT_TRUE(warnings[4].ends_with(" has wan_10, which is no interface")) << warnings[4];
    EXPECT_EQ("omcproxy.uplink is wan_13, which is no WAN", warnings[5]);
    EXPECT_EQ("upnpd.external_iface is wan_14, which is no WAN", warnings[6]);
    EXPECT_EQ("dhcp.dns_sync_with_wan is wan_15, which is no WAN", warnings[7]);
    EXPECT_EQ("Script /etc/korvel/rule_wan_11.sh belongs to no WAN", warnings[8]);
    EXPECT_EQ("Script /etc/hotplug.d/iface/99-wan_12 belongs to no WAN", warnings[9]);
    EXPECT_EQ("Identifier 9 is listed and has no device section", warnings[10]);
    EXPECT_EQ("Identifier 1 is listed more than once", warnings[11]);
    EXPECT_EQ(network, gateway.config("network"));
    EXPECT_EQ(firewall, gateway.config("firewall"));
    EXPECT_FALSE(gateway.exists("/tmp/ran"));
}

TEST_F(orphans_test, a_whole_gateway_has_none)
{
    gateway.store_wan(routed_pppoe(1, {.vid = 101, .ip_protocol = 3}));
    gateway.store_wan(bridged_wan(2, "1000", {.vid = 102}));

    wan_log_orphans();
    EXPECT_EQ(0U, wan_remove_orphans());

    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_WARNING));
}

TEST_F(orphans_test, a_file_whose_name_only_resembles_a_scripts_is_none)
{
    for (const char *const name :
         {"rule_wan_011.sh", "rule_wan_11.sh.bak", "rule_wan_300.sh", "rule_wan_isolate.sh"})
        gateway.write_file(std::string("/etc/korvel/") + name, "#!/bin/sh\n", 0755);
    for (const char *const name : {"99-wan_012", "99-wan_0", "98-wan_12", "99-wan_12x", "99-wan_268"})
        gateway.write_file(std::string("/etc/hotplug.d/iface/") + name, "#!/bin/sh\n", 0755);

    wan_log_orphans();
    EXPECT_EQ(0U, wan_remove_orphans());

    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_WARNING));
}

TEST_F(orphans_test, where_no_directory_can_be_there_are_no_scripts)
{
    fs::remove_all("/etc/korvel");
    gateway.write_file("/etc/korvel", "a file\n", 0644);

    wan_log_orphans();

    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
    fs::remove("/etc/korvel");
}

TEST_F(orphans_test, the_deletion_of_all_leaves_nothing_of_them)
{
    leave_orphans();

    wan_delete_all();

    for (const char *const piece : {"wan_", "dslite_", "'200'", "secret", "wanList"})
        EXPECT_EQ(std::string::npos, gateway.config("network").find(piece)) << piece;
    for (const char *const config : {"firewall", "omcproxy", "upnpd", "dhcp"})
        EXPECT_EQ(std::string::npos, gateway.config(config).find("wan_")) << config;
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_EQ("/etc/hotplug.d/iface/99-wan_12 -r\n/etc/korvel/rule_wan_11.sh -r\n", gateway.file("/tmp/ran"));
    gateway.clear_log();
    wan_log_orphans();
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_WARNING));
}

TEST_F(orphans_test, without_a_list_they_go_too)
{
    append("network", "\nconfig device\n\toption type '8021q'\n\toption vid '200'\n");
    gateway.uci_add_list("firewall.@zone[1].network", "wan_10");

    wan_delete_all();

    EXPECT_EQ(std::string::npos, gateway.config("network").find("'200'"));
    EXPECT_EQ(std::string::npos, gateway.config("firewall").find("wan_10"));
    EXPECT_FALSE(gateway.commands().empty()) << "the services are told";
}

} // namespace
