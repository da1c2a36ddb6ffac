// What deletion takes away of a WAN, and what it leaves of the others.
#include "remove/delete_wan.h"

#include "service/settings.h"
#include "wan/wan_names.h"
#include "support/code_test.h"
#include "support/small_disk.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

namespace {

int identifier_failure =
    0; // what taking an identifier off the list results in, without doing it; 0: as usual

} // namespace

extern "C" {

int __real_mxuci_del_list(const char *config, const char *section, const char *option, const char *value);
int __wrap_mxuci_del_list(const char *config, const char *section, const char *option, const char *value)
{
    if (identifier_failure != 0 && strcmp(option, "wanList") == 0)
        return identifier_failure;
    return __real_mxuci_del_list(config, section, option, value);
}
}

namespace {

constexpr int with_reload = 1, without_reload = 0, keeping_ids = 1, dropping_ids = 0;

const text_lines reloads = {"/etc/init.d/network reload", "/etc/init.d/firewall reload",
                            "/etc/init.d/miniupnpd reload", "/etc/init.d/omcproxy reload"};

text_lines joined(text_lines first, const text_lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

class delete_wan_test : public code_test {
protected:
    delete_wan_test() { gateway.set_ports({.lan = 4}); }
    ~delete_wan_test() override { identifier_failure = 0; }

    // Stores the WAN with scripts that note how they are run.
    void store(const wan_config &wan)
    {
        gateway.store_wan(wan);
        load_settings();
        leave_script("/etc/hotplug.d/iface/99-wan_" + std::to_string(wan.wanId));
        leave_script("/etc/korvel/rule_wan_" + std::to_string(wan.wanId) + ".sh");
    }

    void leave_script(const std::string &path)
    {
        gateway.write_file(path, "#!/bin/sh\necho \"$0 $*\" >>/tmp/ran\n", 0755);
    }

    // How the scripts were run so far, in order.
    std::string runs() const { return gateway.exists("/tmp/ran") ? gateway.file("/tmp/ran") : ""; }

    // Every configuration's text.
    std::string whole_configuration() const
    {
        std::string text;
        for (const std::string &name : gateway.list_directory("/etc/config"))
            text += gateway.config(name);
        return text;
    }
};

TEST_F(delete_wan_test, a_routed_wan_leaves_no_trace)
{
    gateway.uci_set("network.korvel.maxWanId", "9");
    store(routed_dhcp(1, {.vid = 200}));
    const std::string before = whole_configuration();
    wan_config wan = routed_dhcp(3, {.vid = 100, .ip_protocol = 2, .bind = "1010"});
    wan.ipv6DsLite = 1;
    wan_config dialled = routed_pppoe(4, {.vid = 101, .ip_protocol = 3});
    store(wan);
    store(dialled);

    EXPECT_EQ(wan_delete(3, with_reload, dropping_ids), 0);
    EXPECT_EQ(wan_delete(4, without_reload, dropping_ids), 0);

    EXPECT_EQ(whole_configuration(), before);
    EXPECT_EQ(gateway.list_directory("/etc/hotplug.d/iface"), text_lines{"99-wan_1"});
    EXPECT_EQ(runs(), "/etc/hotplug.d/iface/99-wan_3 -r\n/etc/hotplug.d/iface/99-wan_4 -r\n");
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_3.sh"))
        << "a routed WAN's is none of deletion's business";
    EXPECT_EQ(gateway.commands(), reloads);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(delete_wan_test, every_reference_to_a_routed_wan_goes_with_it)
{
    struct {
        const char *place, *value;
        bool goes;
        const char *beside; // null, or an option made from it
    } const cases[] = {
        {"upnpd.config.external_iface", "wan_1", true, nullptr},
        {"upnpd.config.external_iface", "wan_11", false, nullptr},
        {"upnpd.config.external_iface", "wan_1_v6", false, nullptr},
        {"dhcp.lan.dns_sync_with_wan", "wan_1", true, "dhcp.lan.dhcp_option"},
        {"dhcp.lan.dns_sync_with_wan", "wan_2", false, "dhcp.lan.dhcp_option"},
        {"dhcp.lan.dns_sync_with_wan", "wan_1_v6", false, "dhcp.lan.dhcp_option"},
        {"dhcp.lan.v6dns_sync_with_wan", "wan_1", true, "dhcp.lan.dns"},
        {"dhcp.lan.v6dns_sync_with_wan", "wan_1_v6", true, "dhcp.lan.dns"},
        {"dhcp.lan.v6dns_sync_with_wan", "wan_11", true, "dhcp.lan.dns"}, // the name is in it
        {"dhcp.lan.v6dns_sync_with_wan", "wan_2_v6", false, "dhcp.lan.dns"},
        {"network.lan.ip6class", "wan_1", true, nullptr},
        {"network.lan.ip6class", "wan_1_v6", true, nullptr},
        {"network.lan.ip6class", "wan_2_v6", false, nullptr},
        {"network.lan.ip6class", "ab wan_1", true, nullptr},    // 8 characters
        {"network.lan.ip6class", "abcd wan_1", false, nullptr}, // cut behind the ninth
        {"network.lan.ip6class", "abc wan_1 x", true, nullptr}, // ends at the ninth
        {"dhcp.lan.dns_sync_with_wan", "wan_1     x", false, "dhcp.lan.dhcp_option"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.place) + " " + row.value);
        start_over();
        gateway.uci_set(row.place, row.value);
        if (row.beside)
            gateway.uci_add_list(row.beside, "6,192.0.2.1");
        store(routed_dhcp(1, {.vid = 100}));

        EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

        EXPECT_EQ(gateway.uci_get(row.place).has_value(), !row.goes);
        if (row.beside) {
            EXPECT_EQ(gateway.uci_get(row.beside).has_value(), !row.goes);
        }
        EXPECT_TRUE(gateway.log().empty());
    }
}

TEST_F(delete_wan_test, the_multicast_proxy_goes_with_its_uplink)
{
    struct {
        const char *uplink;
        bool goes;
    } const cases[] = {{"wan_1", true}, {"wan_1_v6", false}, {"wan_2", false}, {"wan_11", false}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.uplink);
        start_over();
        gateway.set_config("omcproxy", std::string("config proxy\n\toption uplink '") + row.uplink +
                                           "'\n\nconfig proxy\n\toption uplink 'wan_1'\n");
        store(routed_dhcp(1, {.vid = 100, .ip_protocol = 3}));

        EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

        EXPECT_EQ(gateway.uci_get("omcproxy.@proxy[1]").has_value(), !row.goes);
        EXPECT_EQ(gateway.uci_get("omcproxy.@proxy[0].uplink"), row.goes ? "wan_1" : row.uplink)
            << "only the first section counts";
    }
}

TEST_F(delete_wan_test, references_to_a_bridged_wans_name_stay)
{
    gateway.uci_set("upnpd.config.external_iface", "wan_1");
    store(bridged_wan(1, "1000", {.vid = 100}));

    EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), "wan_1");
}

TEST_F(delete_wan_test, a_wan_with_an_ipv6_interface_alone_is_routed)
{
    store(routed_dhcp(1, {.vid = 100, .ip_protocol = 2}));
    gateway.uci_set("dhcp.lan.v6dns_sync_with_wan", "wan_1_v6");

    EXPECT_EQ(wan_delete(1, with_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.uci_get("dhcp.lan.v6dns_sync_with_wan"), std::nullopt);
    EXPECT_FALSE(gateway.exists("/etc/hotplug.d/iface/99-wan_1"));
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_1.sh"));
    EXPECT_EQ(runs(), "/etc/hotplug.d/iface/99-wan_1 -r\n");
}

TEST_F(delete_wan_test, a_bridged_wan_leaves_the_bridge_its_vlans_and_the_isolation)
{
    store(bridged_wan(1, "1000", {.vid = 10}));
    store(bridged_wan(2, "0100", {.vid = 20}));
    store(bridged_wan(3, "0010", {.vid = 30}));
    gateway.set_config("network",
                       gateway.config("network") +
                           "\nconfig bridge-vlan\n\tlist ports 'eth0.1'\n\tlist ports 'pon.30:t'\n"
                           "\nconfig bridge-vlan\n\tlist ports 'pon.30:t'\n\tlist ports 'eth0.2'\n");
    leave_script(isolate_rule_path);

    EXPECT_EQ(wan_delete(3, with_reload, dropping_ids), 0);

    EXPECT_EQ(whole_configuration().find("pon.30"), std::string::npos);
    EXPECT_EQ(gateway.uci_get("network.@device[0].ports"),
              "eth0.1 eth0.2 eth0.3 eth0.4 ra0 ra1 rai0 rai1 pon.10 pon.20");
    EXPECT_EQ(gateway.uci_get("network.@bridge-vlan[0].ports"), "eth0.1");
    EXPECT_EQ(gateway.uci_get("network.@bridge-vlan[1].ports"), "eth0.2");
    EXPECT_EQ(runs(), "/etc/korvel/rule_wan_3.sh -r\n/etc/korvel/rule_wan_isolate.sh -r\n");
    EXPECT_FALSE(gateway.exists("/etc/korvel/rule_wan_3.sh"));
    EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_3"))
        << "a bridged WAN's is none of deletion's business";
    EXPECT_EQ(gateway.file(isolate_rule_path), golden("isolate/two_devices.sh"));
    EXPECT_EQ(gateway.commands(), reloads);
    EXPECT_TRUE(gateway.log().empty());
}

// Deliberate: what was found last is looked for in every later bridge VLAN.
TEST_F(delete_wan_test, a_bridge_vlan_entry_is_found_by_its_start_and_remembered)
{
    store(bridged_wan(1, "1000", {.vid = 10}));
    gateway.set_config("network",
                       gateway.config("network") +
                           "\nconfig bridge-vlan 'a'\n\tlist ports 'pon.10:u*'\n\tlist ports 'pon.10'\n"
                           "\nconfig bridge-vlan 'b'\n\tlist ports 'x.pon.10'\n\tlist ports 'pon.10:u*'\n"
                           "\nconfig bridge-vlan 'c'\n\toption ports 'pon.10'\n"
                           "\nconfig route 'd'\n\tlist ports 'pon.10'\n"
                           "\nconfig bridge-vlan 'e'\n\tlist ports 'pon.100:t'\n\tlist ports 'pon.10'\n");

    EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.uci_get("network.a.ports"), "pon.10") << "the first entry that begins with the name";
    EXPECT_EQ(gateway.uci_get("network.b.ports"), "x.pon.10");
    EXPECT_EQ(gateway.uci_get("network.c.ports"), "pon.10") << "no list";
    EXPECT_EQ(gateway.uci_get("network.d.ports"), "pon.10") << "no bridge VLAN";
    EXPECT_EQ(gateway.uci_get("network.e.ports"), "pon.10") << "only the beginning is compared";
}

TEST_F(delete_wan_test, bridge_vlan_entries_are_compared_in_twelve_characters)
{
    store(bridged_wan(1, "1000", {.vid = 10}));
    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig bridge-vlan 'a'\n\tlist ports 'pon.10:12345'\n"
                                      "\nconfig bridge-vlan 'b'\n\tlist ports 'pon.10:123456'\n");

    EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.uci_get("network.a.ports"), std::nullopt) << "12 characters";
    EXPECT_EQ(gateway.uci_get("network.b.ports"), "pon.10:123456") << "13: its copy is another entry";
}

TEST_F(delete_wan_test, a_wan_that_does_not_exist_changes_nothing)
{
    store(routed_dhcp(1, {.vid = 100}));
    const std::string before = whole_configuration();
    for (const uint8_t id : {uint8_t{0}, uint8_t{2}, uint8_t{11}}) {
        SCOPED_TRACE(id);
        gateway.clear_log();

        EXPECT_EQ(wan_delete(id, with_reload, dropping_ids), -1);

        EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to delete wan_" + std::to_string(id)});
        EXPECT_EQ(whole_configuration(), before);
        EXPECT_EQ(gateway.commands(), text_lines{});
    }
    gateway.remove("/etc/config/network");
    EXPECT_EQ(wan_delete(1, with_reload, dropping_ids), -1) << "no configuration at all";
}

TEST_F(delete_wan_test, the_last_wan_lets_identifiers_start_over)
{
    store(routed_dhcp(3, {.vid = 100}));
    store(routed_dhcp(5, {.vid = 200}));

    EXPECT_EQ(wan_delete(3, without_reload, dropping_ids), 0);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "5");
    EXPECT_EQ(maxWanId.load(), 5U);

    EXPECT_EQ(wan_delete(5, without_reload, dropping_ids), 0);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_EQ(maxWanId.load(), 0U);
}

TEST_F(delete_wan_test, a_wan_that_is_written_again_keeps_the_identifiers)
{
    store(routed_dhcp(3, {.vid = 100}));

    EXPECT_EQ(wan_delete(3, without_reload, keeping_ids), 0);

    EXPECT_EQ(gateway.uci_get("network.korvel.wanList"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "3");
    EXPECT_EQ(maxWanId.load(), 3U);
}

TEST_F(delete_wan_test, the_callers_flags_decide_what_is_reloaded)
{
    const text_lines network = {reloads[0]};
    const text_lines call = {"/etc/init.d/call reload"};
    const text_lines clear = {"/userfs/bin/xponigmpcmd clearAll"};
    const wan_config internet = routed_dhcp(1, {.vid = 100, .mvid = 200});
    const wan_config internet_v6 = routed_dhcp(1, {.vid = 100, .ip_protocol = 3});
    const wan_config voip = routed_dhcp(1, {.vid = 100, .service = 4});
    const wan_config voip_v6 = routed_dhcp(1, {.vid = 100, .service = 4, .ip_protocol = 2});
    const wan_config voip_dialled_v6 = routed_pppoe(1, {.vid = 100, .service = 4, .ip_protocol = 3});
    const wan_config bridged = bridged_wan(1, "1", {.vid = 100, .mvid = 200});
    const wan_config bridged_voip = bridged_wan(1, "1", {.vid = 100, .service = 6});
    struct {
        const char *what;
        wan_config wan;
        int reload, keep_ids;
        text_lines commands;
    } const cases[] = {
        {"del", internet, with_reload, dropping_ids, joined(clear, reloads)},
        {"del without multicast", internet_v6, with_reload, dropping_ids, reloads},
        {"del voip", voip, with_reload, dropping_ids, joined(reloads, call)},
        {"del bridged", bridged, with_reload, dropping_ids, joined(clear, reloads)},
        {"del bridged voip", bridged_voip, with_reload, dropping_ids, joined(reloads, call)},
        {"delAll", internet, without_reload, dropping_ids, {}},
        {"delAll IPv6", internet_v6, without_reload, dropping_ids, network},
        {"delAll voip", voip, without_reload, dropping_ids, {}},
        {"delAll voip IPv6", voip_v6, without_reload, dropping_ids, network},
        {"delAll bridged", bridged, without_reload, dropping_ids, {}},
        {"modify", internet, without_reload, keeping_ids, {}},
        {"modify IPv6", internet_v6, without_reload, keeping_ids, network},
        {"modify voip", voip, without_reload, keeping_ids, call},
        {"modify voip IPv6", voip_v6, without_reload, keeping_ids, joined(network, call)},
        {"modify dialled IPv6", voip_dialled_v6, without_reload, keeping_ids, call},
        {"modify bridged", bridged, without_reload, keeping_ids, {}},
        {"modify bridged voip", bridged_voip, without_reload, keeping_ids, call},
        {"both flags", internet, with_reload, keeping_ids, reloads},
        {"both flags voip", voip_v6, with_reload, keeping_ids, joined(reloads, call)},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.what);
        start_over();
        store(row.wan);

        EXPECT_EQ(wan_delete(1, row.reload, row.keep_ids), 0);

        EXPECT_EQ(gateway.commands(), row.commands);
    }
}

TEST_F(delete_wan_test, the_telephony_follows_its_four_services_only)
{
    for (uint8_t service = 0; service < 10; service++) {
        SCOPED_TRACE(service);
        start_over();
        store(routed_dhcp(1, {.vid = 100, .service = service}));

        EXPECT_EQ(wan_delete(1, without_reload, keeping_ids), 0);

        EXPECT_EQ(gateway.commands().size(), service >= 4 && service <= 7 ? 1U : 0U);
    }
}

TEST_F(delete_wan_test, a_service_that_is_not_stored_reads_as_0)
{
    store(routed_dhcp(1, {.vid = 100, .service = 4}));
    gateway.uci_delete("network." + *gateway.device_section(1) + ".service_mode");

    EXPECT_EQ(wan_delete(1, without_reload, keeping_ids), 0);

    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(delete_wan_test, the_multicast_script_is_rebuilt_from_the_wans_that_remain)
{
    store(routed_dhcp(1, {.vid = 100, .mvid = 200}));
    store(routed_dhcp(2, {.vid = 7, .mvid = 8}));

    EXPECT_EQ(wan_delete(2, with_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.file(mvlan_rule_path), golden("mvlan/one_pair.sh"));
    EXPECT_EQ(gateway.commands(), reloads);
}

TEST_F(delete_wan_test, what_cannot_be_written_is_logged_and_returned_and_the_rest_is_done)
{
    store(routed_dhcp(1, {.vid = 100}));
    gateway.uci_set("upnpd.config.external_iface", "wan_1");
    gateway.remove("/etc/config/firewall");

    const int result = wan_delete(1, with_reload, dropping_ids);

    EXPECT_NE(result, 0);
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to delete wan_1: " + std::to_string(result)});
    EXPECT_EQ(gateway.uci_get("upnpd.config.external_iface"), std::nullopt);
    EXPECT_EQ(gateway.device_section(1), std::nullopt);
    EXPECT_FALSE(gateway.exists("/etc/hotplug.d/iface/99-wan_1"));
    EXPECT_EQ(gateway.commands(), reloads);
}

TEST_F(delete_wan_test, a_failure_at_the_beginning_is_still_the_result_when_all_else_went_well)
{
    for (const wan_config &wan :
         {routed_dhcp(1, {.vid = 100, .ip_protocol = 3}), bridged_wan(1, "1000", {.vid = 100})}) {
        SCOPED_TRACE(wan.wanMode);
        start_over();
        const std::string before = whole_configuration();
        store(wan);
        const std::string stored = whole_configuration();
        identifier_failure = 9;

        EXPECT_EQ(wan_delete(1, with_reload, keeping_ids), 9);
        EXPECT_EQ(whole_configuration(), stored) << "nobody would write the WAN again";

        EXPECT_EQ(wan_delete(1, with_reload, dropping_ids), 9);
        EXPECT_EQ(gateway.log_texts(LOG_ERR),
                  (text_lines{"Failed to delete wan_1: 9", "Failed to delete wan_1: 9"}));
        EXPECT_EQ(gateway.commands(), reloads);
        identifier_failure = 0;
        gateway.uci_delete("network.korvel.wanList");
        gateway.uci_set("network.korvel.maxWanId", "0");
        EXPECT_EQ(whole_configuration(), before);
    }
}

TEST_F(delete_wan_test, a_read_only_configuration_stays_whole)
{
    store(routed_dhcp(1, {.vid = 100}));
    const std::string before = whole_configuration();
    small_disk disk("/etc/config");
    disk.make_read_only();

    const int result = wan_delete(1, with_reload, dropping_ids);

    EXPECT_NE(result, 0);
    EXPECT_EQ(whole_configuration(), before);
    EXPECT_EQ(gateway.log_texts(LOG_ERR), text_lines{"Failed to delete wan_1: " + std::to_string(result)});
}

// From the 256th section on, generated names have ten characters.
TEST_F(delete_wan_test, a_section_behind_a_thousand_others_is_deleted)
{
    std::string network = gateway.config("network");
    for (int i = 0; i < 1000; i++)
        network += "\nconfig route\n\toption table '9'\n";
    gateway.set_config("network", network);
    store(routed_dhcp(1, {.vid = 100, .service = 4}));
    store(routed_dhcp(2, {.vid = 200}));
    ASSERT_EQ(gateway.device_section(1)->size(), 10U);

    EXPECT_EQ(wan_delete(1, without_reload, keeping_ids), 0);

    EXPECT_EQ(gateway.device_section(1), std::nullopt);
    EXPECT_EQ(gateway.device_option(2, "name"), "pon.200");
    EXPECT_EQ(gateway.commands(), text_lines{"/etc/init.d/call reload"}) << "its options were read";
    EXPECT_EQ(gateway.uci_get("network.@route[999].table"), "9");
}

TEST_F(delete_wan_test, a_section_named_by_a_person_is_deleted)
{
    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig device 'a_device_that_somebody_named_at_length'\n"
                                      "\toption name 'pon.100'\n\toption lkname '1_VOIP_R_VID_100'\n"
                                      "\toption service_mode '4'\n\nconfig interface 'wan_1'\n");
    set_ids({1});

    EXPECT_EQ(wan_delete(1, without_reload, keeping_ids), 0);

    EXPECT_EQ(gateway.device_section(1), std::nullopt);
    EXPECT_EQ(gateway.commands(), text_lines{"/etc/init.d/call reload"});
}

// The first write commits what another program has left pending, which may rename unnamed sections.
TEST_F(delete_wan_test, pending_changes_of_others_do_not_lead_the_deletion_astray)
{
    gateway.set_config("network", "config route\n\toption table '9'\n" + gateway.config("network"));
    store(routed_dhcp(1, {.vid = 100}));
    store(routed_dhcp(2, {.vid = 200}));
    ASSERT_EQ(run_program({"uci", "delete", "network.@route[0]"}).status, 0);

    EXPECT_EQ(wan_delete(1, without_reload, dropping_ids), 0);

    EXPECT_EQ(gateway.device_section(1), std::nullopt);
    EXPECT_EQ(gateway.device_option(2, "name"), "pon.200");
    EXPECT_EQ(gateway.uci_get("network.@route[0]"), std::nullopt);
}

} // namespace
