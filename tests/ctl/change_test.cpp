// add, modify and del: what reaches the configuration, what is refused before anything is sent, and what is
// said.
#include "ctl/ctl_test.h"
#include "service/policies.h"
#include "service/settings.h"
#include "store/read_config.h"

#include <csignal>

namespace {

class ctl_change_test : public ctl_test {
protected:
    ctl_change_test() { gateway.write_file("/tmp/password", "pass word'\"\\1\n", 0600); }

    program_result add(const program_arguments &options)
    {
        program_arguments words = {"add"};
        words.insert(words.end(), options.begin(), options.end());
        return ctl(words);
    }
    program_arguments pppoe(program_arguments more = {})
    {
        more.insert(more.begin(), {"--pppoe", "alice@isp", "--password-file", "/tmp/password"});
        return more;
    }
    // What is stored of a WAN, as the daemon lays changes over it, without what the link has learnt.
    static wan_config stored(uint8_t id)
    {
        (void)settings_load();
        wan_config record = {};
        record.wanId = id;
        EXPECT_EQ(0, wan_read_stored(uci_loaded("network"), &record));
        if (record.ipMode != ip_mode_static)
            for (const text_ref lease :
                 {text_ref(record.ip), text_ref(record.mask), text_ref(record.gateway),
                  text_ref(record.ipv6Addr), text_ref(record.ipv6Gateway), text_ref(record.ipv6Prefix)})
                lease.clear();
        return record;
    }
    std::string configurations() const
    {
        return gateway.config("network") + gateway.config("firewall") + gateway.config("upnpd");
    }
};

TEST_F(ctl_change_test, adds_a_pppoe_wan_with_two_bound_ports)
{
    start();

    const program_result result =
        add(pppoe({"--vlan", "100", "--prio", "5", "--ports", "lan1,lan2", "--service", "internet,tr069",
                   "--dual", "--mtu", "1480", "--on-demand"}));

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_EQ("WAN 1 (1_TR069_INTERNET_R_VID_100) is created.\n", result.output);
    const wan_config wan = stored(1);
    EXPECT_STREQ("alice@isp", wan.pppUser);
    EXPECT_STREQ("pass word'\"\\1", wan.pppPwd);
    EXPECT_EQ(100, wan.vid);
    EXPECT_EQ(5, wan.prio);
    EXPECT_EQ(1480, wan.mtu);
    EXPECT_EQ(3, wan.ipProtocol);
    EXPECT_EQ(1, wan.pppDialMode);
    EXPECT_EQ(1, wan.napt);
    EXPECT_EQ("11000000", std::string(text_view(wan.bind)));
}

TEST_F(ctl_change_test, a_new_wan_has_what_the_manual_says)
{
    start();

    EXPECT_EQ(0, add({"--vlan", "200"}).status);
    EXPECT_EQ(0, add({"--bridged", "--vlan", "300"}).status);

    const wan_config routed = stored(1), bridged = stored(2);
    EXPECT_EQ(ip_mode_dhcp, routed.ipMode);
    EXPECT_EQ(1, routed.service);
    EXPECT_EQ(1500, routed.mtu);
    EXPECT_EQ(1, routed.napt);
    EXPECT_EQ(1, routed.ipProtocol);
    EXPECT_EQ(0, bridged.wanMode);
    EXPECT_EQ(3, bridged.ipProtocol);
}

TEST_F(ctl_change_test, the_dry_run_prints_the_call_and_changes_nothing)
{
    start();
    const std::string before = configurations();

    const program_result result = add(pppoe({"--vlan", "100", "--dry-run"}));

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_EQ(before, configurations());
    EXPECT_EQ(0, result.output.find("ubus call korvel add '{\"wanMode\":1,"));
    EXPECT_EQ(std::string::npos, result.output.find("pass word"));
    EXPECT_NE(std::string::npos, result.output.find("Nothing was sent.\n"));
    // The printed call, with its secrets, does what it says.
    const program_result whole = add(pppoe({"--vlan", "100", "--dry-run", "--secrets"}));
    EXPECT_EQ(0, run_program({"sh", "-c", lines_of(whole.output).at(0)}).status);
    EXPECT_STREQ("pass word'\"\\1", stored(1).pppPwd);
}

TEST_F(ctl_change_test, the_dry_run_tells_what_the_daemon_would_refuse)
{
    start();
    // A section that is on no list, so that only the daemon's own check finds it.
    gateway.set_config("network",
                       gateway.config("network") +
                           "\nconfig device\n\toption name 'pon.100'\n\toption vid '100'\n\toption "
                           "wanMode '0'\n");

    const program_result result = add({"--vlan", "100", "--dry-run"});
    const json_value as_json = ctl_json({"add", "--vlan", "100", "--dry-run"});

    EXPECT_EQ(code(exit_status::vlan_taken), result.status);
    EXPECT_EQ(0, result.output.find("ubus call korvel add"));
    EXPECT_EQ(as_json.at("ok"), false);
    EXPECT_EQ(as_json.at("exit"), code(exit_status::vlan_taken));
    EXPECT_EQ(as_json.at("arguments").at("vid"), 100);
    EXPECT_EQ(code(exit_status::vlan_taken), add({"--vlan", "100"}).status) << "the daemon's reply";
}

TEST_F(ctl_change_test, wrong_combinations_are_refused_before_anything_is_sent)
{
    gateway.store_wan(routed_pppoe(1, {.vid = 100, .bind = "10000000"}));
    gateway.store_wan(bridged_wan(2, "01000000", {.vid = 200, .mvid = 201, .service = 3}));
    start();
    const std::string before = configurations();
    const exit_status wrong = exit_status::usage;
    const struct {
        program_arguments options;
        exit_status status;
        const char *said; // what is wrong or what would be right
    } rows[] = {
        {{"--static", "--address", "192.0.2.0/24"}, wrong, "network's own address"},
        {{"--static", "--address", "192.0.2.255/24"}, wrong, "network's own address"},
        {{"--static", "--address", "192.0.2.9/24", "--gateway", "198.51.100.1"}, wrong, "192.0.2.0 and on"},
        {{"--static", "--address", "192.0.2.9/24", "--gateway", "192.0.2.9"}, wrong, "give the peer's"},
        {{"--static", "--address", "192.0.2.9"}, wrong, "--address 192.0.2.9/24"},
        {{"--static", "--address", "192.0.2.9", "--mask", "255.0.255.0"}, wrong, "no mask"},
        {{"--static", "--address", "192.0.2.300/24"}, wrong, "no IPv4 address"},
        {{"--static", "--address", "127.0.0.1/8"}, wrong, "no IPv4 address that a WAN can have"},
        {{"--static"}, wrong, "--address ADDRESS/LENGTH"},
        {{"--static", "--ipv6"}, wrong, "--address6"},
        {{"--static", "--ipv6", "--address6", "2001:db8::9/64", "--gateway6", "2001:db8:1::1"},
         wrong,
         "link-local"},
        {{"--static", "--ipv6", "--address6", "2001:db8::9/64", "--prefix6", "2001:db8::1/48"},
         wrong,
         "no IPv6 prefix"},
        {{"--static", "--address", "192.0.2.9/24", "--dns", "auto"}, wrong, "name them"},
        {pppoe({"--mtu", "1500"}), wrong, "--mtu 1492"},
        {{"--pppoe", "alice"}, wrong, "--password-file FILE"},
        {{"--bridged", "--vlan", "100"}, exit_status::vlan_taken, "WAN 1's (1_INTERNET_R_VID_100)"},
        {{"--vlan", "200"}, exit_status::vlan_taken, "WAN 2's"},
        {{"--vlan", "100"}, exit_status::vlan_taken, "--again"},
        {{"--vlan", "7", "--mvlan", "7"}, exit_status::vlan_taken, "has to be another"},
        {{"--vlan", "7", "--mvlan", "201"}, exit_status::vlan_taken, "multicast VLAN 201 is WAN 2's"},
        {{"--mvlan", "7"}, wrong, "--vlan VLAN"},
        {{"--prio", "7"}, wrong, "--vlan VLAN"},
        {{"--vlan", "7", "--dslite", "aftr.example"}, wrong, "--ipv6"},
        {{"--vlan", "7", "--dual", "--dslite", "aftr.example"}, wrong, "--ipv6"},
        {{"--vlan", "7", "--service", "voip", "--ports", "lan3"}, wrong, "--ports none"},
        {{"--vlan", "7", "--ports", "lan1"}, exit_status::port_bound, "lan1 is bound to WAN 1"},
        {{"--vlan", "7", "--ports", "lan3,lan9"}, wrong, "no port lan9; it has lan1,lan2,lan3,lan4,ssid1"},
        {{"--bridged", "--vlan", "7", "--service", "other"}, exit_status::port_required, "--ports lan1"},
        {{"--bridged", "--vlan", "7", "--address", "192.0.2.9/24"}, wrong, "make it routed"},
        {{"--bridged", "--vlan", "7", "--nat"}, wrong, "bridged WAN has no"},
        {{"--vlan", "7", "--address", "192.0.2.9/24"}, wrong, "add --static"},
        {{"--vlan", "7", "--on-demand"}, wrong, "add --pppoe USER"},
        {{"--vlan", "7", "--ipv6", "--nat"}, wrong, "--ipv4 or --dual"},
        {{"--vlan", "7", "--dns6", "2001:db8::1"}, wrong, "--ipv6 or --dual"},
        {{"--vlan", "7", "--dns", "2001:db8::1"}, wrong, "--dns6"},
        {{"--vlan", "7", "--dns", "192.0.2.1,192.0.2.2,192.0.2.3"}, wrong, "two name servers"},
        {{"--vlan", "4096"}, wrong, "0 to 4095"},
        {{"--vlan", "7", "--mtu", "649"}, wrong, "650 to 1500"},
        {{"--vlan", "7", "--prio", "8"}, wrong, "0 to 7"},
        {{"--vlan", "7", "--service", "iptv"}, wrong, "no service"},
        {{"--vlan", "7", "--in", "30s"}, wrong, "for `modify`"},
        {{"--vlan", "7", "3"}, wrong, "one word too many"},
        {{"--pppoe", std::string(65, 'u'), "--password-file", "/tmp/password"}, wrong, "at most 64"},
    };
    for (const auto &row : rows) {
        const program_result result = add(row.options);
        SCOPED_TRACE(row.options.back() + ": " + result.errors);
        EXPECT_EQ(code(row.status), result.status);
        EXPECT_NE(std::string::npos, result.errors.find(row.said)) << row.said;
        EXPECT_EQ("", result.output);
    }
    EXPECT_EQ(before, configurations());
    EXPECT_EQ(0, add({"--vlan", "100", "--again"}).status);
}

TEST_F(ctl_change_test, a_password_comes_from_a_file_or_from_standard_input)
{
    start();
    gateway.write_file("/tmp/empty", "\n");
    gateway.write_file("/tmp/long", std::string(65, 'x') + "\n");
    for (const char *const path : {"/tmp/empty", "/tmp/long", "/tmp/not-there"})
        EXPECT_EQ(code(exit_status::usage), add({"--pppoe", "a", "--password-file", path}).status) << path;
    EXPECT_EQ(code(exit_status::usage), add({"--pppoe", "a", "--password", "x"}).status)
        << "never on a command line";

    const program_result result = run_program(
        {"sh", "-c", "printf 'from input\\r\\nnext' | korvelctl add --pppoe a --password-file - --vlan 9"});

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_STREQ("from input", stored(1).pppPwd);
}

TEST_F(ctl_change_test, an_immediate_modification_loses_nothing)
{
    gateway.store_wan(
        with_own_servers(routed_pppoe(1, {.vid = 100, .prio = 3, .ip_protocol = 3, .bind = "11000000"})));
    gateway.store_wan(routed_static(2, {.vid = 200, .ip_protocol = 3, .bind = "00000000"}));
    gateway.store_wan(
        with_own_servers(routed_dhcp(3, {.vid = 300, .mvid = 301, .ip_protocol = 3, .bind = "00000000"})));
    gateway.store_wan(bridged_wan(4, "00100000", {.vid = 400, .service = 3, .disable_lan_dhcp = 1}));
    gateway.uci_set("network.wan_1.service", "hidden");
    gateway.uci_set("network.wan_1.demand", "300");
    gateway.uci_set("network.wan_3.iphostId", "2");
    gateway.uci_set("custom.gpon.ppp_service_name_hidden", "1");
    gateway.script_interface("wan_2", "absent"); // a link that is down has no addresses to read
    start();
    for (uint8_t id = 1; id <= 4; id++) {
        SCOPED_TRACE(id);
        wan_config expected = stored(id);
        expected.mtu = 1400;

        const program_result result = ctl({"modify", std::to_string(id), "--mtu", "1400"});

        EXPECT_EQ(0, result.status) << result.errors;
        EXPECT_NE(std::string::npos, result.output.find(") is changed.\n"));
        const wan_config now = stored(id);
        for (const arg_rule &rule : arg_rules) {
            const wan_field &field = rule.field;
            if (field.kind == field_kind::text)
                EXPECT_EQ(0, strncmp(field_text(expected, field), field_text(now, field), field.size))
                    << field.name;
            else
                EXPECT_EQ(field_number(expected, field), field_number(now, field)) << field.name;
        }
    }
}

TEST_F(ctl_change_test, a_change_of_mode_does_not_keep_the_old_one_s_addresses)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start();
    ASSERT_TRUE(wait_until([&] { return gateway.call("get", R"({"wanId":1})").at("status") == true; }));

    EXPECT_EQ(code(exit_status::usage), ctl({"modify", "1", "--static"}).status) << "the lease is no setting";
    const program_result result = ctl({"modify", "1", "--static", "--address", "192.0.2.9/24", "--gateway",
                                       "192.0.2.1", "--dns", "192.0.2.53"});

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_EQ("192.0.2.9", *gateway.uci_get("network.wan_1.ipaddr"));
    EXPECT_EQ("255.255.255.0", *gateway.uci_get("network.wan_1.netmask"));
    EXPECT_EQ("192.0.2.53", *gateway.uci_get("network.wan_1.dns"));
}

TEST_F(ctl_change_test, what_a_link_has_learnt_is_not_sent_as_a_setting)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start();
    ASSERT_TRUE(wait_until([&] { return gateway.call("get", R"({"wanId":1})").at("status") == true; }));

    const program_result result = ctl({"modify", "1", "--mtu", "1400", "--dry-run"});

    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_NE(std::string::npos, result.output.find("\"ip\":\"\"")) << result.output;
    EXPECT_EQ(std::string::npos, result.output.find("100.64."));
}

TEST_F(ctl_change_test, a_modification_in_a_while_says_only_what_changes)
{
    gateway.store_wan(routed_pppoe(1, {.vid = 100}));
    start();

    const program_result dry = ctl({"modify", "1", "--vlan", "101", "--in", "2s", "--dry-run"});
    const program_result result = ctl({"modify", "1", "--vlan", "101", "--in", "1s"});

    EXPECT_EQ("ubus call korvel modify '{\"wanId\":1,\"vlanMode\":true,\"vid\":101,\"wait\":2}'",
              lines_of(dry.output).at(0));
    EXPECT_EQ(0, result.status) << result.errors;
    EXPECT_NE(std::string::npos, result.output.find("waits 1s"));
    EXPECT_TRUE(wait_until([&] { return gateway.device_option(1, "vid") == "101"; }));
    EXPECT_STREQ("user1", stored(1).pppUser);
}

TEST_F(ctl_change_test, what_the_daemon_calls_ok_and_could_not_do_is_noticed)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start();
    // Something stands where the record of the change would be.
    gateway.write_file("/etc/config/.korvel.record/in-the-way", "");
    for (const char *const other : {"-2", "-3", "-4"})
        gateway.write_file(std::string("/etc/config/.korvel.record") + other + "/in-the-way", "");

    const program_result result = ctl({"modify", "1", "--vlan", "101"});

    EXPECT_EQ(code(exit_status::refused), result.status) << result.output;
    EXPECT_NE(std::string::npos, result.errors.find("the daemon said OK, but WAN 1 is as it was"));
    for (const char *const record : {"", "-2", "-3", "-4"})
        gateway.remove(std::string("/etc/config/.korvel.record") + record);
}

TEST_F(ctl_change_test, deletes_one_and_all)
{
    for (uint8_t id = 1; id <= 3; id++)
        gateway.store_wan(routed_dhcp(id, {.vid = static_cast<uint16_t>(100 + id)}));
    start();

    EXPECT_EQ("WAN 2 (2_INTERNET_R_VID_102) is deleted.\n", ctl({"del", "2"}).output);
    EXPECT_EQ(code(exit_status::no_such), ctl({"del", "2"}).status);
    EXPECT_EQ(code(exit_status::usage), ctl({"del"}).status);
    EXPECT_EQ(code(exit_status::usage), ctl({"del", "1", "--all"}).status);
    EXPECT_EQ(code(exit_status::usage), ctl({"del", "257"}).status) << "the daemon would take it for 1";
    EXPECT_EQ("1 3", *gateway.uci_get("network.korvel.wanList"));
    EXPECT_EQ("All WANs are deleted, 2 of them.\n", ctl({"del", "--all"}).output);
    EXPECT_FALSE(gateway.device_section(1));
    EXPECT_FALSE(gateway.device_section(3));
}

TEST_F(ctl_change_test, a_call_without_an_answer_is_looked_up)
{
    start();
    held_service network(gateway, "network");
    child_process client({"korvelctl", "add", "--vlan", "100", "--timeout", "8"}, {}, "/tmp/out",
                         "/tmp/errors");
    ASSERT_TRUE(network.entered());
    ASSERT_TRUE(wait_until([&] { return gateway.file("/tmp/errors").find("looking") != std::string::npos; }));

    network.let_go();

    EXPECT_EQ(0, client.wait());
    EXPECT_EQ("WAN 1 (1_INTERNET_R_VID_100) is created. (The answer did not come in time.)\n",
              gateway.file("/tmp/out"));
}

TEST_F(ctl_change_test, what_cannot_be_looked_up_is_not_known)
{
    start();
    held_service network(gateway, "network");
    child_process client({"korvelctl", "add", "--vlan", "100", "--timeout", "3"}, {}, "/tmp/out",
                         "/tmp/errors");
    ASSERT_TRUE(network.entered());
    ASSERT_EQ(0, kill(gateway.korvel_pid(), SIGSTOP));

    EXPECT_EQ(code(exit_status::no_answer), client.wait());

    EXPECT_EQ(0, kill(gateway.korvel_pid(), SIGCONT));
    EXPECT_NE(std::string::npos, gateway.file("/tmp/errors").find("before you repeat it"));
}

TEST_F(ctl_change_test, a_change_that_waits_is_shown_and_can_be_taken_back)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    start();
    EXPECT_EQ(code(exit_status::no_such), ctl({"cancel", "1"}).status);
    ASSERT_EQ(0, ctl({"modify", "1", "--mtu", "1400", "--in", "1h"}).status);

    const program_result status = ctl({"status"});
    const json_value waiting = ctl_json({"status"}).at("waiting");
    const program_result immediate = ctl({"modify", "1", "--vlan", "101"});
    const program_result cancelled = ctl({"cancel", "1"});

    EXPECT_NE(std::string::npos, status.output.find("Waiting: WAN 1 changes mtu in ")) << status.output;
    ASSERT_EQ(1U, waiting.size());
    EXPECT_EQ(waiting.at(0).at("wanId"), 1);
    EXPECT_EQ(waiting.at(0).at("changes").at(0), "mtu");
    EXPECT_NE(std::string::npos, immediate.errors.find("a change of WAN 1 waits (mtu)")) << immediate.errors;
    EXPECT_EQ("The change of WAN 1 that waited is taken back.\n", cancelled.output);
    EXPECT_EQ(0U, ctl_json({"status"}).at("waiting").size());
    EXPECT_EQ(code(exit_status::usage), ctl({"cancel"}).status);
}

} // namespace
