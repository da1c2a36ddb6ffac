// WANs from their creation to their deletion, over the bus: what stands in the configurations meanwhile, and
// that nothing is left of them in the end.
#include "support/daemon_test.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

const text_lines deletion_reloads = {"/etc/init.d/network reload", "/etc/init.d/firewall reload",
                                     "/etc/init.d/miniupnpd reload", "/etc/init.d/omcproxy reload"};
const text_lines no_ip_rules = {"0: from all lookup local", "32766: from all lookup main",
                                "32767: from all lookup default"};

// Files below a directory whose name or text holds one of the words, each with that word.
text_lines traces_of(const text_lines &words, const std::string &directory)
{
    text_lines found;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(directory)) {
        if (!entry.is_regular_file())
            continue;
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string text(std::istreambuf_iterator<char>(in), {});
        for (const std::string &word : words)
            if (entry.path().filename().string().find(word) != std::string::npos ||
                text.find(word) != std::string::npos)
                found.push_back(entry.path().string() + ": " + word);
    }
    return found;
}

class wan_life_test : public daemon_test {
protected:
    // The demonstration's three: dialled with two ports, DHCP, bridged.
    static wan_config dialled()
    {
        return routed_pppoe(1, {.vid = 100, .prio = 5, .ip_protocol = 3, .bind = "11000000"});
    }
    static wan_config by_dhcp() { return routed_dhcp(2, {.vid = 200, .service = 2, .ip_protocol = 3}); }
    static wan_config bridged()
    {
        return bridged_wan(3, "00100000", {.vid = 300, .mvid = 301, .service = 3, .disable_lan_dhcp = 1});
    }

    void start(const netd_options &options = {})
    {
        gateway.start_netd(options);
        gateway.start_korvel();
        gateway.clear_commands();
    }

    void add(const wan_config &wan) { EXPECT_EQ(gateway.call("add", add_request(wan)).at("status"), 0); }

    bus_reply del(unsigned id) const { return gateway.call("del", "{\"wanId\":" + std::to_string(id) + "}"); }

    // All configurations, by name and text.
    text_lines configurations() const
    {
        text_lines all;
        for (const std::string &name : gateway.list_directory("/etc/config"))
            all.push_back(name + ":\n" + gateway.config(name));
        return all;
    }
};

TEST_F(wan_life_test, three_wans_are_configured_in_four_services)
{
    const std::string dhcp = gateway.config("dhcp");
    const std::string custom = gateway.config("custom");
    start();

    add(dialled());
    add(by_dhcp());
    add(bridged());

    for (const std::string name : {"network", "firewall", "omcproxy", "upnpd"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(gateway.config(name), golden("uci/three_wans/" + name));
    }
    EXPECT_EQ(gateway.config("dhcp"), dhcp);
    EXPECT_EQ(gateway.config("custom"), custom);
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), (text_lines{"rule_mvlan.sh", "rule_wan_3.sh"}));
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), (text_lines{"99-wan_1", "99-wan_2"}));
    EXPECT_EQ(run_program({"uci", "changes"}).output, "") << "nothing is left pending";
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(wan_life_test, a_deleted_wan_leaves_no_trace_anywhere)
{
    const text_lines before = configurations();
    start({.links = true, .hotplug = true});
    for (const wan_config &wan : {dialled(), by_dhcp(), bridged()})
        add(wan);
    gateway.uci_set("dhcp.lan.dns_sync_with_wan", "wan_1");
    gateway.uci_set("dhcp.lan.v6dns_sync_with_wan", "wan_1_6");
    gateway.uci_set("network.lan.ip6class", "wan_2_v6");
    gateway.reload_netd();
    gateway.settle_netd();
    run_program({"env", "ACTION=ifupdate", "INTERFACE=wan_1", "hotplug-call", "iface"});
    (void)gateway.run_script("/etc/korvel/rule_wan_3.sh");
    ASSERT_NE(gateway.ip_rules(), no_ip_rules);
    ASSERT_FALSE(gateway.ebtables_rules().empty());
    ASSERT_FALSE(gateway.broute_rules().empty());
    ASSERT_FALSE(gateway.ip_routes("101").empty());
    ASSERT_TRUE(gateway.uci_get("dhcp.lan.dhcp_option"));

    for (const unsigned id : {2U, 1U, 3U}) {
        SCOPED_TRACE(id);
        EXPECT_EQ(del(id), result_reply(0, 0, "korvel del OK."));

        const std::string number = std::to_string(id);
        EXPECT_EQ(traces_of({"wan_" + number, "pon." + number, "lkname '" + number, "wanList '" + number},
                            "/etc/config"),
                  text_lines{});
        EXPECT_EQ(traces_of({"wan_" + number}, "/etc/korvel"), text_lines{});
        EXPECT_EQ(traces_of({"wan_" + number}, "/etc/hotplug.d"), text_lines{});
        gateway.settle_netd();
        EXPECT_EQ(gateway.ip_routes("10" + number), text_lines{});
        EXPECT_FALSE(gateway.object_exists("network.interface.wan_" + number));
    }

    EXPECT_EQ(gateway.ip_rules(), no_ip_rules);
    EXPECT_EQ(gateway.ebtables_rules(), text_lines{});
    EXPECT_EQ(gateway.broute_rules(), text_lines{});
    EXPECT_EQ(gateway.iptables_mangle_output(), text_lines{});
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(run_program({"uci", "changes"}).output, "");
    gateway.set_config("omcproxy", "\nconfig proxy\n\tlist downlink 'lan'\n\n"); // it went with its uplink
    EXPECT_EQ(configurations(), before);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(wan_life_test, a_wan_is_deleted_before_its_services_are_reloaded)
{
    start();
    add(dialled());
    gateway.clear_commands();
    gateway.write_file("/etc/init.d/network",
                       "#!/bin/sh\ngateway-tool journal \"$0\" \"$@\"\ncp /etc/config/network /tmp/seen\n",
                       0755);

    EXPECT_EQ(del(1), result_reply(0, 0, "korvel del OK."));

    EXPECT_EQ(gateway.file("/tmp/seen"), gateway.config("network"));
    EXPECT_EQ(gateway.uci_get("network.wan_1"), std::nullopt);
    const text_lines commands = gateway.commands();
    ASSERT_GE(commands.size(), deletion_reloads.size());
    EXPECT_EQ(text_lines(commands.end() - static_cast<ptrdiff_t>(deletion_reloads.size()), commands.end()),
              deletion_reloads);
}

TEST_F(wan_life_test, deleting_needs_an_identifier)
{
    start();
    add(dialled());
    const text_lines before = configurations();
    gateway.clear_commands();

    for (const char *arguments : {"{}", "{\"id\":1}"})
        EXPECT_EQ(gateway.call("del", arguments), result_reply(2, -1, "korvel del ERR!")) << arguments;

    EXPECT_EQ(configurations(), before);
    EXPECT_EQ(gateway.commands(), text_lines{});
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(wan_life_test, deleting_a_wan_that_is_not_there_is_refused_and_logged)
{
    start();
    add(dialled());
    const text_lines before = configurations();
    gateway.clear_commands();

    for (const unsigned id : {0U, 2U, 256U}) {
        SCOPED_TRACE(id);
        gateway.clear_log();

        EXPECT_EQ(del(id), result_reply(2, -1, "korvel del ERR!"));

        EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to delete wan_" + std::to_string(id % 256)});
    }
    EXPECT_EQ(configurations(), before);
    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(wan_life_test, identifiers_are_cut_to_8_bits_before_deleting)
{
    start();
    add(dialled());

    EXPECT_EQ(del(256 + 1), result_reply(0, 0, "korvel del OK."));

    EXPECT_EQ(gateway.device_section(1), std::nullopt);
}

TEST_F(wan_life_test, a_deletion_that_fails_in_part_is_reported_and_the_rest_done)
{
    start();
    add(dialled());
    gateway.remove("/etc/config/firewall");

    EXPECT_EQ(del(1), result_reply(2, -1, "korvel del ERR!"));

    EXPECT_EQ(gateway.device_section(1), std::nullopt);
    ASSERT_EQ(gateway.log_texts(LOG_ERR).size(), 1U);
    EXPECT_TRUE(gateway.log_texts(LOG_ERR)[0].starts_with("Failed to delete wan_1: "));
}

TEST_F(wan_life_test, deleting_the_last_wan_lets_identifiers_start_over)
{
    start();
    add(dialled());
    add(by_dhcp());
    (void)del(1);
    add(dialled());
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "2 3");
    (void)del(2);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "3");

    (void)del(3);

    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    add(dialled());
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "1");
}

TEST_F(wan_life_test, deleting_all_sends_no_reply_and_leaves_nothing)
{
    start();
    for (const wan_config &wan : {dialled(), by_dhcp(), bridged()})
        add(wan);
    gateway.clear_commands();

    EXPECT_EQ(gateway.call("delAll"), (bus_reply{0, ""}));

    EXPECT_EQ(traces_of({"wan_", "pon."}, "/etc/config"), text_lines{});
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(gateway.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{});
    const text_lines commands = gateway.commands();
    ASSERT_GE(commands.size(), 5U);
    EXPECT_EQ(text_lines(commands.end() - 5, commands.end()),
              (text_lines{deletion_reloads[0], deletion_reloads[1], deletion_reloads[2], deletion_reloads[3],
                          "/etc/init.d/call reload"}));
    add(dialled());
    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), "1");
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(wan_life_test, deleting_all_answers_alike_whatever_happens)
{
    start();
    EXPECT_EQ(gateway.call("delAll"), (bus_reply{0, ""})) << "no WAN";
    EXPECT_EQ(gateway.call("delAll", R"({"wanId":1})"), (bus_reply{0, ""})) << "arguments";
    add(dialled());
    gateway.uci_add_list("network.korvel.wanList", "9");
    EXPECT_EQ(gateway.call("delAll"), (bus_reply{0, ""})) << "a deletion fails";
    EXPECT_EQ(gateway.log_texts(LOG_WARNING),
              text_lines{"Error happened when deleting all wan, force clear uci config: -1"});
    gateway.remove("/etc/config/network");
    EXPECT_EQ(gateway.call("delAll"), (bus_reply{0, ""})) << "no configuration";
}

} // namespace
