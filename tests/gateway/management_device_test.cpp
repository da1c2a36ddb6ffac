// The management device: what `addDev` writes, and what it leaves when it fails.
#include "support/daemon_test.h"
#include "support/small_disk.h"

#include <algorithm>

namespace {

const bus_reply added = result_reply(0, 0, "korvel add WAN device OK.");
const bus_reply failed = result_reply(2, -1, "korvel add WAN device ERR!");

class management_device_test : public daemon_test {
protected:
    std::string option(unsigned id, const std::string &name)
    {
        return gateway.device_option(id, name).value_or("no such option");
    }

    // Starts the daemon with an option of its section set before.
    void start_with(const std::string &name, const std::string &value)
    {
        gateway.uci_set("network.korvel." + name, value);
        gateway.start_korvel();
    }
};

// The LAN bridge under another name, so that no address can be read from it.
class missing_bridge {
public:
    missing_bridge() { rename("br-lan", "br-none"); }
    ~missing_bridge() { rename("br-none", "br-lan"); }
    missing_bridge(const missing_bridge &) = delete;
    missing_bridge &operator=(const missing_bridge &) = delete;

private:
    static void rename(const char *from, const char *to)
    {
        for (const program_arguments &command : {program_arguments{"ip", "link", "set", from, "down"},
                                                 {"ip", "link", "set", from, "name", to},
                                                 {"ip", "link", "set", to, "up"}})
            EXPECT_EQ(0, run_program(command).status);
    }
};

TEST_F(management_device_test, all_options_are_written_in_their_order)
{
    gateway.start_korvel();

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ((text_lines{"mtu", "IpProtocolType", "service_mode", "disableLanDhcp", "vid", "type", "ifname",
                          "name", "lkname", "macaddr"}),
              gateway.uci_options("network." + gateway.device_section(1).value_or("")));
    EXPECT_EQ("1500", option(1, "mtu"));
    EXPECT_EQ("3", option(1, "IpProtocolType"));
    EXPECT_EQ("3", option(1, "service_mode"));
    EXPECT_EQ("1", option(1, "disableLanDhcp"));
    EXPECT_EQ("4094", option(1, "vid"));
    EXPECT_EQ("8021q", option(1, "type"));
    EXPECT_EQ("pon", option(1, "ifname"));
    EXPECT_EQ("pon.4094", option(1, "name"));
    EXPECT_EQ("1_OTHER_B_TMP", option(1, "lkname"));
    EXPECT_EQ("00:11:22:33:44:56", option(1, "macaddr"));
}

TEST_F(management_device_test, nothing_but_the_device_is_made_and_no_service_is_told)
{
    gateway.start_korvel();
    gateway.clear_commands();
    const std::string firewall = gateway.config("firewall");

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ("eth0.1 eth0.2 eth0.3 eth0.4 ra0 ra1 rai0 rai1 pon.4094",
              gateway.uci_get("network.@device[0].ports"));
    EXPECT_EQ(firewall, gateway.config("firewall"));
    EXPECT_FALSE(gateway.uci_get("network.wan_1").has_value());
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(management_device_test, the_ip_protocol_follows_the_setting_by_its_first_character)
{
    constexpr struct {
        const char *setting, *written;
    } cases[] = {{"1", "1"}, {"2", "2"}, {"12", "1"}, {"3", "3"}, {"x", "x"}};
    gateway.start_korvel();
    unsigned id = 0;
    for (const auto &row : cases) {
        SCOPED_TRACE(row.setting);
        gateway.uci_set("network.korvel.tr069_ip_protocol", row.setting);

        EXPECT_EQ(added, gateway.call("addDev"));

        EXPECT_EQ(row.written, option(++id, "IpProtocolType"));
    }
}

TEST_F(management_device_test, an_empty_ip_protocol_means_both)
{
    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig korvel 'korvel'\n\toption tr069_ip_protocol ''\n");
    gateway.start_korvel();

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ("3", option(1, "IpProtocolType"));
}

TEST_F(management_device_test, the_link_follows_the_uplink_but_the_name_does_not)
{
    start_with("pon_adapt", "veip0");

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ("veip0", option(1, "ifname"));
    EXPECT_EQ("pon.4094", option(1, "name"));
}

TEST_F(management_device_test, each_call_makes_one_more_device_and_uses_up_an_identifier)
{
    gateway.start_korvel();
    ASSERT_EQ(0, gateway.call("add", add_request(routed_dhcp(1))).at("status").integer());

    EXPECT_EQ(added, gateway.call("addDev"));
    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ((text_lines{"1", "2", "3"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ("3", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ("2_OTHER_B_TMP", option(2, "lkname"));
    EXPECT_EQ("3_OTHER_B_TMP", option(3, "lkname"));
    EXPECT_EQ("00:11:22:33:44:57", option(2, "macaddr"));
    const text_lines ports = gateway.uci_list("network.@device[0].ports").value_or(text_lines{});
    EXPECT_EQ(2, std::count(ports.begin(), ports.end(), "pon.4094"));
}

TEST_F(management_device_test, gaps_of_the_list_are_filled_when_that_is_set)
{
    gateway.uci_add_list("network.korvel.wanList", "1");
    gateway.uci_add_list("network.korvel.wanList", "3");
    start_with("use_min_wan_id", "1");

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ((text_lines{"1", "3", "2"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ("2_OTHER_B_TMP", option(2, "lkname"));
}

TEST_F(management_device_test, an_identifier_that_a_wan_has_is_passed_over)
{
    gateway.store_wan(routed_dhcp(2));
    gateway.uci_set("network.korvel.maxWanId", "255");
    gateway.start_korvel();

    EXPECT_EQ(added, gateway.call("addDev"));
    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ((text_lines{"2", "1", "3"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ("255", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ("1_OTHER_B_TMP", option(1, "lkname"));
    EXPECT_EQ("3_OTHER_B_TMP", option(3, "lkname"));
}

// Between the deletion and the writing of a WAN that is modified its identifier stands nowhere.
TEST_F(management_device_test, the_identifier_of_a_wan_that_is_being_modified_is_passed_over)
{
    for (const uint8_t id : {uint8_t{1}, uint8_t{2}})
        gateway.store_wan(routed_dhcp(id, {.vid = id, .ip_protocol = 3}));
    gateway.uci_set("network.korvel.use_min_wan_id", "1");
    gateway.start_korvel();
    held_service network(gateway, "network");
    ASSERT_EQ(0, gateway.call("modify", modify_request(routed_dhcp(1, {.vid = 100}), 1)).at("status"));
    ASSERT_TRUE(network.entered());
    ASSERT_EQ(text_lines{"2"}, gateway.uci_list("network.korvel.wanList"));

    EXPECT_EQ(added, gateway.call("addDev"));

    network.let_go();
    ASSERT_TRUE(updates_reach(1, 1));
    EXPECT_EQ((text_lines{"2", "3", "1"}), gateway.uci_list("network.korvel.wanList"));
    EXPECT_EQ("1_INTERNET_R_VID_100", option(1, "lkname"));
    EXPECT_EQ("3_OTHER_B_TMP", option(3, "lkname"));
}

TEST_F(management_device_test, without_an_address_to_derive_from_there_is_none_and_that_is_no_failure)
{
    gateway.start_korvel();
    gateway.clear_log();
    const missing_bridge bridge;

    EXPECT_EQ(added, gateway.call("addDev"));

    EXPECT_EQ((text_lines{"mtu", "IpProtocolType", "service_mode", "disableLanDhcp", "vid", "type", "ifname",
                          "name", "lkname"}),
              gateway.uci_options("network." + gateway.device_section(1).value_or("")));
    EXPECT_EQ(text_lines{"Failed to read file: /sys/class/net/br-lan/address"}, gateway.log_texts(LOG_ERR));
}

TEST_F(management_device_test, when_the_section_cannot_be_added_nothing_is_written)
{
    gateway.start_korvel();
    const std::string before = gateway.config("network");
    small_disk disk("/etc/config");
    disk.make_read_only();

    EXPECT_EQ(failed, gateway.call("addDev"));

    EXPECT_EQ(before, gateway.config("network"));
}

TEST_F(management_device_test, a_failed_write_leaves_everything_as_it_was)
{
    gateway.start_korvel();
    // Room for a part of the new section; what is longer needs a second page.
    constexpr size_t page = 4096;
    constexpr size_t room = 60;
    gateway.uci_set("network.globals.padding", "p");
    gateway.uci_set("network.globals.padding",
                    std::string(1 + page - room - gateway.config("network").size(), 'p'));
    const std::string before = gateway.config("network");
    small_disk disk("/etc/config");
    disk.fill(/*pages_left=*/1);

    EXPECT_EQ(failed, gateway.call("addDev"));

    disk.empty_again();
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_EQ(text_lines{}, unreadable_configurations());
    EXPECT_EQ(added, gateway.call("addDev"));
    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList")) << "no identifier was used up";
}

} // namespace
