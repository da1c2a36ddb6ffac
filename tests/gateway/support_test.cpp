// What every other test relies on: that a gateway is fresh, that it loses nothing of what happens, and that
// what it shows is what is there.
#include "support/gateway.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

using support_test = gateway_test;

bool contains(const text_lines &all, const std::string &line)
{
    return std::find(all.begin(), all.end(), line) != all.end();
}

TEST_F(support_test, a_new_gateway_is_as_shipped)
{
    gateway.write_file("/tmp/left/over", "x");
    gateway.write_file("/tmp/.uci/network", "network.korvel.maxWanId='9'\n");
    gateway.write_file("/etc/korvel/rule_wan_1.sh", "x", 0755);
    gateway.write_file("/etc/hotplug.d/iface/99-wan_1", "x", 0755);
    gateway.write_file("/etc/init.d/network", "exit 1\n", 0755);
    gateway.set_config("network", "config device\n");
    gateway.set_config("extra", "config device\n");
    gateway.set_ports({.lan = 1});
    gateway.fake_program("ubus", "exit 1");
    gateway.script_interface("lan", "absent");
    gateway.write_file("/gateway/journal", "ip rule\n");
    syslog(LOG_ERR, "old");
    run_program({"ip", "rule", "add", "fwmark", "4096", "lookup", "101"});
    run_program({"ip", "route", "add", "default", "dev", "lo", "table", "101"});
    run_program({"iptables", "-t", "mangle", "-I", "OUTPUT", "-j", "MARK", "--set-mark", "1"});
    run_program({"ebtables", "-I", "FORWARD", "-i", "eth0.1", "-j", "DROP"});
    run_program({"ebtables", "-t", "broute", "-I", "BROUTING", "-i", "eth0.1", "-j", "DROP"});
    run_program({"/usr/sbin/ip", "link", "add", "pon.7", "type", "veth"});
    ASSERT_EQ(gateway.ip_rules().size(), 4U);

    class gateway fresh;

    EXPECT_FALSE(fresh.exists("/tmp/left"));
    EXPECT_FALSE(fresh.exists("/tmp/.uci"));
    EXPECT_EQ(fresh.list_directory("/etc/korvel"), text_lines{});
    EXPECT_EQ(fresh.list_directory("/etc/hotplug.d/iface"), text_lines{});
    EXPECT_EQ(fresh.list_directory("/etc/config"),
              (text_lines{"custom", "dhcp", "firewall", "network", "omcproxy", "upnpd"}));
    EXPECT_EQ(fresh.uci_get("network.korvel.maxWanId"), "0");
    EXPECT_NE(fresh.file("/etc/init.d/network"), "exit 1\n");
    EXPECT_NE(fresh.file("/gateway/boardinfo.json").find(R"("lan":{"numOfPorts":4})"), std::string::npos);
    EXPECT_EQ(run_program({"ubus", "nonsense"}).status, 255) << "the real program, without a bus";
    EXPECT_FALSE(fresh.exists("/gateway/netd/lan"));
    EXPECT_EQ(fresh.commands(), text_lines{});
    EXPECT_TRUE(fresh.log().empty());
    EXPECT_EQ(fresh.ip_rules(), (text_lines{"0: from all lookup local", "32766: from all lookup main",
                                            "32767: from all lookup default"}));
    EXPECT_EQ(fresh.ip_routes("101"), text_lines{});
    EXPECT_EQ(fresh.iptables_mangle_output(), text_lines{});
    EXPECT_EQ(fresh.ebtables_rules(), text_lines{});
    EXPECT_EQ(fresh.broute_rules(), text_lines{});
    EXPECT_EQ(if_nametoindex("pon.7"), 0U);
}

TEST_F(support_test, a_missing_fixture_is_named)
{
    const auto message_of = [](const auto &action) -> std::string {
        try {
            action();
        } catch (const std::exception &error) {
            return error.what();
        }
        return "";
    };

    EXPECT_EQ(message_of([this] { (void)gateway.file("/etc/korvel/none.sh"); }),
              "cannot read /etc/korvel/none.sh: No such file or directory");
    EXPECT_EQ(message_of([] { (void)golden("none/such.sh"); }),
              "cannot read " KORVEL_SOURCE_DIR "/tests/golden/none/such.sh: No such file or directory");
    EXPECT_EQ(message_of([this] { (void)gateway.run_script("/etc/korvel/none.sh"); }),
              "cannot run /etc/korvel/none.sh: No such file or directory");
    EXPECT_EQ(message_of([this] { (void)gateway.mode("/none"); }),
              "cannot stat /none: No such file or directory");
    EXPECT_EQ(message_of([] { run_program({"no-such-program"}); }),
              "cannot start no-such-program: No such file or directory");
    EXPECT_EQ(message_of([] { (void)json_value::parse(R"({"a":1})").at("b"); }),
              R"(no member "b" in {"a":1})");
}

TEST_F(support_test, files_are_written_with_their_directories_and_modes)
{
    gateway.write_file("/etc/korvel/deep/er/file", "text\n", 0750);

    EXPECT_EQ(gateway.file("/etc/korvel/deep/er/file"), "text\n");
    EXPECT_EQ(gateway.mode("/etc/korvel/deep/er/file"), 0750U);
    gateway.chmod("/etc/korvel/deep/er/file", 0600);
    EXPECT_EQ(gateway.mode("/etc/korvel/deep/er/file"), 0600U);
    gateway.remove("/etc/korvel/deep");
    EXPECT_FALSE(gateway.exists("/etc/korvel/deep"));
}

TEST_F(support_test, removing_a_tree_spares_what_is_mounted_into_it)
{
    gateway.write_file("/gateway/kept/file", "text");
    gateway.write_file("/tmp/tree/file", "text");
    gateway.write_file("/tmp/tree/mounted/.keep", "");
    ASSERT_EQ(run_program({"mount", "-t", "tmpfs", "tmpfs", "/tmp/tree/mounted"}).status, 0);
    gateway.write_file("/tmp/tree/mounted/file", "text");

    gateway.remove("/tmp/tree");

    EXPECT_FALSE(gateway.exists("/tmp/tree/file"));
    EXPECT_EQ(gateway.file("/tmp/tree/mounted/file"), "text");
    ASSERT_EQ(run_program({"umount", "/tmp/tree/mounted"}).status, 0);
}

TEST_F(support_test, the_configuration_is_reached_by_place)
{
    gateway.set_config("network",
                       "config device\n\toption name 'br-lan'\n\tlist ports 'a'\n\tlist ports 'b c'\n"
                       "\nconfig interface 'lan'\n\toption proto 'static'\n");

    EXPECT_EQ(gateway.uci_get("network.@device[0].name"), "br-lan");
    EXPECT_EQ(gateway.uci_get("network.@device[0].ports"), "a b c");
    EXPECT_EQ(gateway.uci_list("network.@device[0].ports"), (text_lines{"a", "b c"}));
    EXPECT_EQ(gateway.uci_get("network.lan"), "interface");
    EXPECT_EQ(gateway.uci_options("network.@device[0]"), (text_lines{"name", "ports"}));
    EXPECT_EQ(gateway.uci_get("network.lan.none"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("network.none.proto"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("none.lan.proto"), std::nullopt);
    EXPECT_EQ(gateway.uci_list("network.none.proto"), std::nullopt);
    EXPECT_EQ(gateway.uci_options("network.none"), text_lines{});
}

TEST_F(support_test, configuration_changes_are_committed)
{
    gateway.set_config("network", "config interface 'lan'\n\toption proto 'static'\n");

    gateway.uci_set("network.lan.proto", "it's=a.value");
    gateway.uci_set("network.wan", "interface");
    gateway.uci_add_list("network.wan.dns", "192.0.2.1");
    gateway.uci_add_list("network.wan.dns", "192.0.2.2");

    EXPECT_EQ(gateway.config("network"),
              "\nconfig interface 'lan'\n\toption proto 'it'\\''s=a.value'\n"
              "\nconfig interface 'wan'\n\tlist dns '192.0.2.1'\n\tlist dns '192.0.2.2'\n\n");
    gateway.uci_delete("network.wan");
    EXPECT_EQ(gateway.uci_get("network.wan"), std::nullopt);
    EXPECT_THROW(gateway.uci_set("network.none.proto", "x"), std::runtime_error);
    EXPECT_THROW(gateway.uci_delete("network.none"), std::runtime_error);
}

TEST_F(support_test, pending_changes_of_others_are_seen)
{
    ASSERT_EQ(run_program({"uci", "set", "network.korvel.maxWanId=5"}).status, 0);

    EXPECT_EQ(gateway.uci_get("network.korvel.maxWanId"), "5");
    EXPECT_EQ(gateway.config("network").find("maxWanId '5'"), std::string::npos);
}

TEST_F(support_test, every_log_message_is_kept_in_order)
{
    constexpr int messages = 3000;
    openlog("tested", LOG_PID, LOG_DAEMON);
    for (int i = 0; i < messages; i++)
        syslog(i % 2 ? LOG_ERR : LOG_INFO, "message %d: %s", i, "with: colons");
    closelog();

    const std::vector<log_entry> log = gateway.log();

    ASSERT_EQ(log.size(), static_cast<size_t>(messages));
    for (int i = 0; i < messages; i++)
        ASSERT_EQ(log[static_cast<size_t>(i)],
                  (log_entry{i % 2 ? LOG_ERR : LOG_INFO, "tested",
                             "message " + std::to_string(i) + ": with: colons"}));
}

TEST_F(support_test, messages_of_several_threads_are_all_kept)
{
    constexpr int threads = 4;
    constexpr int messages = 500;
    std::vector<std::thread> writers;
    for (int writer = 0; writer < threads; writer++)
        writers.emplace_back([writer] {
            for (int i = 0; i < messages; i++)
                syslog(LOG_WARNING, "%d of %d", i, writer);
        });
    for (std::thread &writer : writers)
        writer.join();

    const text_lines texts = gateway.log_texts(LOG_WARNING);

    EXPECT_EQ(texts.size(), static_cast<size_t>(threads * messages));
    EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
}

TEST_F(support_test, messages_of_other_programs_are_caught)
{
    gateway.fake_program("shout", "logger -t shouter -p daemon.err 'what happened'");
    ASSERT_EQ(run_program({"busybox", "logger", "-t", "shouter", "-p", "daemon.err", "what happened"}).status,
              0);

    EXPECT_EQ(gateway.log(), (std::vector<log_entry>{{LOG_ERR, "shouter", "what happened"}}));
    gateway.clear_log();
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(support_test, a_fake_program_takes_the_place_of_the_real_one)
{
    gateway.fake_program("ubus", R"(echo "fake $*"; exit 3)");

    const program_result result = run_program({"ubus", "-S", "call"});
    EXPECT_EQ(result.status, 3);
    EXPECT_EQ(result.output, "fake -S call\n");
    EXPECT_EQ(system("ubus > /tmp/by-shell"), 3 << 8);
    EXPECT_EQ(gateway.file("/tmp/by-shell"), "fake \n");
}

TEST_F(support_test, a_script_runs_in_the_routers_shell_with_arguments_and_variables)
{
    gateway.write_file("/tmp/script", R"([[ "abc" = a* ]] && echo "ash $1 $ACTION"; echo bad >&2; exit 5)");

    const program_result result = gateway.run_script("/tmp/script", {"-r"}, {{"ACTION", "ifup"}});

    EXPECT_EQ(result.status, 5);
    EXPECT_EQ(result.output, "ash -r ifup\n");
    EXPECT_EQ(result.errors, "bad\n");
}

TEST_F(support_test, large_output_and_errors_are_read_whole)
{
    const program_result result =
        run_program({"busybox", "ash", "-c",
                     "i=0; while [ $i -lt 20000 ]; do echo line; echo error >&2; i=$((i+1)); done"});

    EXPECT_EQ(result.output.size(), 20000U * 5);
    EXPECT_EQ(result.errors.size(), 20000U * 6);
}

TEST_F(support_test, a_program_that_hangs_ends_the_test_and_not_the_run)
{
    EXPECT_THROW(run_program({"sleep", "60"}, {}, std::chrono::milliseconds(50)), std::runtime_error);
}

TEST_F(support_test, a_child_reports_its_status_or_its_signal)
{
    child_process exits({"busybox", "ash", "-c", "exit 7"});
    EXPECT_EQ(exits.wait(), 7);
    child_process sleeps({"sleep", "60"});
    EXPECT_TRUE(sleeps.running());
    EXPECT_EQ(sleeps.stop(SIGTERM), 128 + SIGTERM);
    EXPECT_FALSE(sleeps.running());
    EXPECT_EQ(sleeps.stop(SIGTERM), 128 + SIGTERM) << "the status stays";
}

TEST_F(support_test, waiting_ends_with_the_condition_or_the_deadline)
{
    int calls = 0;
    EXPECT_TRUE(wait_until([&calls] { return ++calls == 5; }));
    EXPECT_EQ(calls, 5);
    EXPECT_FALSE(wait_until([] { return false; }, std::chrono::milliseconds(20)));
}

TEST_F(support_test, commands_are_the_journal)
{
    ASSERT_EQ(run_program({"ip", "rule", "add", "fwmark", "16384/16384", "prohibit"}).status, 0);
    ASSERT_EQ(system("/etc/init.d/firewall reload"), 0);
    ASSERT_EQ(system("ACTION=ifupdate INTERFACE=wan_1 hotplug-call iface"), 0);

    EXPECT_EQ(gateway.commands(),
              (text_lines{"ip rule add fwmark 16384/16384 prohibit", "/etc/init.d/firewall reload",
                          "hotplug-call iface ACTION=ifupdate INTERFACE=wan_1"}));
    gateway.clear_commands();
    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(support_test, looking_at_rules_leaves_no_command)
{
    (void)gateway.ebtables_rules();
    (void)gateway.broute_rules();
    (void)gateway.ip_rules();
    (void)gateway.ip_routes("101");
    (void)gateway.iptables_mangle_output();

    EXPECT_EQ(gateway.commands(), text_lines{});
}

TEST_F(support_test, rules_are_shown_with_their_chains)
{
    run_program({"ebtables", "-I", "FORWARD", "-i", "pon.100", "-o", "eth0.2", "-j", "DROP"});
    run_program({"ebtables", "-A", "INPUT", "-p", "IPv4", "-i", "ra0", "--ip-proto", "udp", "--ip-dport",
                 "67:68", "-j", "DROP"});
    run_program({"ebtables", "-t", "broute", "-I", "BROUTING", "-i", "eth0.1", "-j", "mark", "--mark-or",
                 "4096", "--mark-target", "CONTINUE"});
    run_program({"ip", "rule", "add", "from", "all", "fwmark", "4096/4096", "prohibit"});
    run_program({"ip", "route", "add", "192.0.2.0/24", "dev", "pon", "scope", "link", "table", "101"});
    run_program({"iptables", "-t", "mangle", "-I", "OUTPUT", "-s", "192.168.1.1", "-d", "192.168.1.0/24",
                 "-j", "MARK", "--set-xmark", "0x0/4096"});

    EXPECT_EQ(gateway.ebtables_rules(),
              (text_lines{"INPUT -p IPv4 -i ra0 --ip-proto udp --ip-dport 67:68 -j DROP",
                          "FORWARD -i pon.100 -o eth0.2 -j DROP"}));
    EXPECT_EQ(gateway.broute_rules(),
              (text_lines{"BROUTING -i eth0.1 -j mark --mark-or 4096 --mark-target CONTINUE"}));
    EXPECT_TRUE(contains(gateway.ip_rules(), "32765: from all fwmark 0x1000/0x1000 prohibit"));
    EXPECT_EQ(gateway.ip_routes("101"), (text_lines{"192.0.2.0/24 dev pon scope link"}));
    EXPECT_EQ(gateway.iptables_mangle_output(),
              (text_lines{"-A OUTPUT -s 192.168.1.1/32 -d 192.168.1.0/24 -j MARK --set-xmark 0x0/0x1000"}));
}

TEST_F(support_test, json_comparisons_mind_the_type)
{
    const json_value value = json_value::parse(R"({"one":1,"yes":true,"text":"1","list":[1,"b"],"no":null})");

    EXPECT_TRUE(value.at("one") == 1);
    EXPECT_FALSE(value.at("one") == true);
    EXPECT_FALSE(value.at("one") == "1");
    EXPECT_TRUE(value.at("yes") == true);
    EXPECT_FALSE(value.at("yes") == 1);
    EXPECT_TRUE(value.at("text") == "1");
    EXPECT_FALSE(value.at("text") == 1);
    EXPECT_EQ(value.at("list").at(1), "b");
    EXPECT_EQ(value.at("list").size(), 2U);
    EXPECT_EQ(value.keys(), (std::vector<std::string>{"one", "yes", "text", "list", "no"}));
    EXPECT_TRUE(value.has("no"));
    EXPECT_FALSE(value.has("none"));
    EXPECT_THROW((void)value.at("text").integer(), std::runtime_error);
    EXPECT_THROW((void)value.at("list").at(2), std::out_of_range);
}

TEST_F(support_test, only_whole_documents_are_json)
{
    for (const char *text : {"", "{", "{,,}", "{1}", "{\"a\":1} x", "{\"a\":1}{"}) {
        SCOPED_TRACE(text);
        EXPECT_FALSE(json_value::parse(text));
    }
    for (const char *text : {"{}", "[1]", " {\"a\":1}\n", "\"x\"", "12"}) {
        SCOPED_TRACE(text);
        EXPECT_TRUE(json_value::parse(text));
    }
}

TEST_F(support_test, calls_tell_status_and_reply)
{
    EXPECT_EQ(gateway.call("get").status, 255) << "no bus";
    gateway.start_bus();
    EXPECT_EQ(gateway.call("get").status, 4) << "no object";
    gateway.start_netd();

    const bus_reply reply = gateway.call_object("boardinfo", "all");
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.at("lan").at("numOfPorts"), 4);
    EXPECT_EQ(gateway.call_object("boardinfo", "none").status, 3);
    EXPECT_EQ(gateway.call_object("boardinfo", "all", "{bad").status, 12);
}

TEST_F(support_test, the_daemon_starts_stops_and_starts_again)
{
    gateway.start_netd();
    gateway.start_korvel();
    EXPECT_EQ(gateway.call("all").status, 0);

    gateway.restart_korvel();
    EXPECT_EQ(gateway.call("all").status, 0);

    EXPECT_EQ(gateway.stop_korvel(SIGKILL), 128 + SIGKILL);
    EXPECT_FALSE(gateway.object_exists("korvel"));
    gateway.start_korvel();
    EXPECT_EQ(gateway.stop_korvel(SIGTERM), 0);
}

TEST_F(support_test, a_daemon_that_ends_at_start_up_is_reported)
{
    gateway.uci_delete("network.korvel.maxWanId");

    EXPECT_THROW(gateway.start_korvel(), std::runtime_error);
    EXPECT_EQ(gateway.log_texts(LOG_ERR), (text_lines{"Failed to get maxWanId"}));
}

// The builders write by themselves what creation writes, so that tests of readers do not depend on the
// writer.
TEST_F(support_test, stored_wans_are_what_creation_stores)
{
    wan_config own_servers = with_own_servers(routed_dhcp(3, {.vid = 300, .service = 2, .ip_protocol = 3}));
    own_servers.ipv6PrefixProxy = 0;
    strcpy(own_servers.secDnsV6, "");
    wan_config on_demand =
        with_own_servers(routed_pppoe(4, {.vid = 400, .service = 4, .ip_protocol = 3}), ip_protocol_v4);
    on_demand.pppDialMode = 1;
    strcpy(on_demand.secDns, "");
    strcpy(on_demand.pppServName, "service");
    wan_config tunnelled = routed_dhcp(5, {.vid = 500, .ip_protocol = 2, .bind = "00000100"});
    tunnelled.ipv6DsLite = 1;
    strcpy(tunnelled.ipv6AddrDsLite, "2001:db8::aaaa");
    wan_config with_host = routed_pppoe(7, {.ip_protocol = 1, .bind = "00000010"});
    with_host.iphostId = 2;
    const wan_config wans[] = {
        routed_dhcp(1, {.vid = 100, .prio = 5, .bind = "10000000"}),
        routed_static(2, {.vid = 200, .mvid = 210, .ip_protocol = 3, .bind = "01000000"}),
        own_servers,
        on_demand,
        tunnelled,
        with_host,
        bridged_wan(6, "00100000", {.vid = 600, .disable_lan_dhcp = 1}),
    };
    const auto without_macs = [](const std::string &network) {
        std::string kept;
        std::istringstream in(network);
        for (std::string line; std::getline(in, line);)
            if (line.find("macaddr") == std::string::npos)
                kept += line + "\n";
        return kept;
    };
    for (const wan_config &wan : wans) {
        SCOPED_TRACE(link_name(wan));
        class gateway stored;
        stored.uci_set("network.korvel.maxWanId", std::to_string(wan.wanId - 1));
        stored.store_wan(wan);
        const std::string expected_network = stored.config("network");
        const std::string expected_firewall = stored.config("firewall");

        class gateway created;
        created.uci_set("network.korvel.maxWanId", std::to_string(wan.wanId - 1));
        created.start_netd();
        created.start_korvel();
        const bus_reply reply = created.call("add", add_request(wan));

        EXPECT_EQ(reply.at("status"), 0) << add_request(wan);
        EXPECT_EQ(without_macs(created.config("network")), without_macs(expected_network));
        EXPECT_EQ(created.config("firewall"), expected_firewall);
    }
}

} // namespace
