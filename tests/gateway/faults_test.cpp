// What goes wrong around a running daemon: requests that are no requests, configurations that are damaged,
// disks that are full, scripts and services that are gone. Each time the daemon must say so, live on, and
// lose nothing that it was not asked to remove.
#include "support/daemon_test.h"
#include "support/small_disk.h"

#include "base/bus_headers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <thread>

namespace {

constexpr char done[] = "korvel modify OK.";
const bus_reply added = result_reply(0, 0, done);
const bus_reply not_added = result_reply(0, -1, "korvel modify ERR!");
constexpr const char *configurations[] = {"network", "firewall", "omcproxy", "upnpd", "dhcp"};

class faults_test : public daemon_test {
protected:
    void start_with(std::initializer_list<wan_config> wans)
    {
        gateway.start_netd();
        gateway.start_korvel();
        silence_services();
        for (const wan_config &wan : wans)
            ASSERT_EQ(added, gateway.call("add", add_request(wan)));
        gateway.clear_log();
    }

    std::string all_configurations() const
    {
        std::string text;
        for (const char *const name : configurations)
            text += gateway.config(name);
        return text;
    }

    bool logged(int priority, const std::string &text) const
    {
        const text_lines texts = gateway.log_texts(priority);
        return std::find(texts.begin(), texts.end(), text) != texts.end();
    }

    // The daemon still works: what it is asked for it does.
    void expect_serves()
    {
        ASSERT_TRUE(gateway.korvel_running());
        EXPECT_EQ(added, gateway.call("add", R"({"wanMode":1,"ipProtocol":1,"vlanMode":true,"vid":4000})"));
    }
};

// A client of the bus that sends what no library would make.
class raw_client {
public:
    raw_client() : bus_(ubus_connect(nullptr), ubus_free)
    {
        if (!bus_ || ubus_lookup_id(bus_.get(), "korvel", &object_) != 0)
            throw std::runtime_error("the raw client finds no korvel");
    }
    raw_client(const raw_client &) = delete;
    raw_client &operator=(const raw_client &) = delete;

    // Calls with these bytes in place of the arguments; returns the bus status.
    int call(const char *method, const std::string &bytes)
    {
        std::vector<uint32_t> message(1 + (bytes.size() + 3) / 4);
        message[0] = htonl(static_cast<uint32_t>(sizeof(message[0]) + bytes.size()));
        memcpy(message.data() + 1, bytes.data(), bytes.size());
        return ubus_invoke(bus_.get(), object_, method, reinterpret_cast<blob_attr *>(message.data()),
                           nullptr, nullptr, 10000);
    }

private:
    std::unique_ptr<ubus_context, decltype(&ubus_free)> bus_;
    uint32_t object_ = 0;
};

// One argument as it travels, with freely chosen lengths: the attribute's, its name's, and the bytes.
std::string argument(unsigned type, unsigned length, const std::string &name, unsigned name_length,
                     const std::string &value)
{
    std::string bytes;
    const unsigned head = 0x80000000U | type << 24 | length;
    for (const int shift : {24, 16, 8, 0})
        bytes += static_cast<char>(head >> shift & 0xff);
    bytes += static_cast<char>(name_length >> 8 & 0xff);
    bytes += static_cast<char>(name_length & 0xff);
    bytes += name + '\0';
    while (bytes.size() % 4 != 0)
        bytes += '\0';
    return bytes + value;
}

TEST_F(faults_test, broken_messages_are_answered_and_change_nothing)
{
    const std::string one("\0\0\0\1", 4);
    const struct {
        const char *trace;
        std::string bytes;
    } cases[] = {
        {"nothing", ""},
        {"a single byte", "x"},
        {"text", "this is no message at all, not even by accident"},
        {"zeros", std::string(64, '\0')},
        {"all bits", std::string(64, '\xff')},
        {"longer than the message", argument(BLOBMSG_TYPE_INT32, 5000, "wanId", 5, one)},
        {"shorter than its own head", argument(BLOBMSG_TYPE_INT32, 2, "wanId", 5, one)},
        {"name longer than the argument", argument(BLOBMSG_TYPE_INT32, 20, "wanId", 60000, one)},
        {"name without its end", argument(BLOBMSG_TYPE_INT32, 20, "wanIdwanId", 4, one)},
        {"number of two bytes", argument(BLOBMSG_TYPE_INT32, 14, "wanId", 5, "\1\1")},
        {"number of no bytes", argument(BLOBMSG_TYPE_INT32, 12, "wanId", 5, "")},
        {"unknown type", argument(0x7e, 16, "wanId", 5, one)},
        {"text without its end", argument(BLOBMSG_TYPE_STRING, 20, "bind", 4, "11111111")},
    };
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    const pid_t daemon = gateway.korvel_pid();
    raw_client client;
    for (const auto &row : cases) {
        for (const char *const method : {"add", "del", "get", "modify"}) {
            SCOPED_TRACE(std::string(row.trace) + ", " + method);
            EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, client.call(method, row.bytes));
        }
    }
    EXPECT_EQ(before, all_configurations());
    EXPECT_EQ(daemon, gateway.korvel_pid());
    expect_serves();
}

TEST_F(faults_test, random_bytes_change_nothing)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    raw_client client;
    std::mt19937 random(7);
    for (int i = 0; i < 200; i++) {
        std::string bytes(random() % 200, '\0');
        for (char &byte : bytes)
            byte = static_cast<char>(random());
        for (const char *const method : {"add", "del", "get", "modify"})
            EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, client.call(method, bytes));
    }
    EXPECT_EQ(before, all_configurations());
    expect_serves();
}

TEST_F(faults_test, an_argument_of_another_type_counts_as_missing)
{
    const struct {
        const char *method, *request;
        bus_reply reply;
    } cases[] = {
        {"add", R"({"wanMode":"1"})", result_reply(2, -1, "korvel get ERR! Invalid WAN mode.")},
        {"add", R"({"wanMode":true})", result_reply(2, -1, "korvel get ERR! Invalid WAN mode.")},
        {"add", R"({"wanMode":[1]})", result_reply(2, -1, "korvel get ERR! Invalid WAN mode.")},
        {"get", R"({"wanId":"1"})", result_reply(2, -1, "korvel get ERR! Invalid WAN ID.")},
        {"get", R"({"wanId":{"a":1}})", result_reply(2, -1, "korvel get ERR! Invalid WAN ID.")},
        {"del", R"({"wanId":"1"})", result_reply(2, -1, "korvel del ERR!")},
        {"del", R"({"wanId":1.5})", result_reply(2, -1, "korvel del ERR!")},
        {"modify", R"({"wanId":false,"mtu":1400})",
         result_reply(2, -1, "korvel modify ERR! Invalid WAN ID.")},
    };
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    for (const auto &row : cases) {
        SCOPED_TRACE(row.request);
        EXPECT_EQ(row.reply, gateway.call(row.method, row.request));
    }
    EXPECT_EQ(before, all_configurations());
    EXPECT_EQ(added, gateway.call("modify", R"({"wanId":1,"wanMode":1,"ipProtocol":1,"mtu":"1400"})"));
    EXPECT_EQ("0", gateway.device_option(1, "mtu"));
}

TEST_F(faults_test, texts_longer_than_any_field_are_refused)
{
    constexpr struct {
        const char *name, *display;
    } cases[] = {{"bind", "BIND"},          {"priDns", "PRI_DNS"}, {"secDnsV6", "SEC_DNS_V6"},
                 {"ipv6Addr", "IPV6_ADDR"}, {"pppPwd", "PPP_PWD"}, {"ipv6AddrDsLite", "DS_LITE_ADDR"}};
    start_with({});
    const std::string before = all_configurations();
    for (const auto &row : cases) {
        SCOPED_TRACE(row.name);
        const std::string request =
            std::string("{\"wanMode\":1,\"") + row.name + "\":\"" + std::string(100000, 'x') + "\"}";
        EXPECT_EQ(result_reply(0, -1, std::string("korvel add ERR! Invalid ") + row.display + "."),
                  gateway.call("add", request));
    }
    EXPECT_EQ(before, all_configurations());
    expect_serves();
}

TEST_F(faults_test, identifiers_that_name_no_wan_are_refused_and_nothing_is_lost)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string before = all_configurations();
    for (const char *const id : {"0", "256", "2", "77", "255", "511", "-1", "2147483647"}) {
        SCOPED_TRACE(id);
        const std::string request = std::string("{\"wanId\":") + id + "}";
        EXPECT_EQ(result_reply(2, -1, "korvel get ERR!"), gateway.call("get", request));
        EXPECT_EQ(result_reply(2, -1, "korvel del ERR!"), gateway.call("del", request));
    }
    EXPECT_EQ(before, all_configurations());
}

// Every request that changes something, with the reply it gets when nothing can be written.
struct hindered_request {
    const char *method;
    std::string request;
    bus_reply reply;
};

std::vector<hindered_request> hindered_requests()
{
    return {
        {"add", add_request(routed_dhcp(0, {.vid = 300})), not_added},
        {"add", add_request(bridged_wan(0, "0001", {.vid = 400})), not_added},
        {"modify", modify_request(routed_dhcp(1, {.vid = 500})), added},
        {"addDev", "{}", result_reply(2, -1, "korvel add WAN device ERR!")},
        {"del", R"({"wanId":1})", result_reply(2, -1, "korvel del ERR!")},
        {"del", R"({"wanId":2})", result_reply(2, -1, "korvel del ERR!")},
        {"delAll", "{}", {0, ""}},
    };
}

TEST_F(faults_test, a_configuration_that_cannot_be_written_stays_whole_and_that_is_logged)
{
    start_with({routed_dhcp(1, {.vid = 100}), bridged_wan(2, "1000", {.vid = 200})});
    const std::string before = all_configurations();
    const struct {
        const char *trace;
        void (small_disk::*break_it)();
    } cases[] = {{"read-only", &small_disk::make_read_only}, {"full", nullptr}};
    for (const auto &row : cases) {
        small_disk disk("/etc/config");
        if (row.break_it)
            (disk.*row.break_it)();
        else
            disk.fill();
        for (const hindered_request &hindered : hindered_requests()) {
            SCOPED_TRACE(std::string(row.trace) + ", " + hindered.method + " " + hindered.request);
            gateway.clear_log();

            EXPECT_EQ(hindered.reply, gateway.call(hindered.method, hindered.request));

            EXPECT_EQ(before, all_configurations());
            ASSERT_FALSE(gateway.log_texts(LOG_ERR).empty());
            EXPECT_TRUE(gateway.log_texts(LOG_ERR).back().starts_with("Nothing was changed: /etc/config/"));
        }
    }
    expect_serves();
}

TEST_F(faults_test, a_network_configuration_that_does_not_parse_is_left_as_it_is)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    const std::string good = gateway.config("network");
    const std::string broken = good + "config interface 'unfinished\n";
    gateway.set_config("network", broken);
    const struct {
        const char *method, *request;
        bus_reply reply;
        const char *message;
    } cases[] = {
        {"get", R"({"wanId":1})", result_reply(2, -1, "korvel get ERR!"),
         "Failed to get wan device and pon name"},
        {"all", "{}", {0, ""}, nullptr},
        {"add", R"({"wanMode":1,"ipProtocol":1})", not_added,
         "Nothing was changed: /etc/config/network: it cannot be parsed"},
        {"modify", R"({"wanId":1,"wanMode":1})", added, "Failed to delete wan_1"},
        {"addDev", "{}", result_reply(2, -1, "korvel add WAN device ERR!"), nullptr},
        {"del", R"({"wanId":1})", result_reply(2, -1, "korvel del ERR!"), "Failed to delete wan_1"},
        {"delAll", "{}", {0, ""}, nullptr},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.method);
        gateway.clear_log();

        EXPECT_EQ(row.reply, gateway.call(row.method, row.request));

        EXPECT_EQ(broken, gateway.config("network"));
        EXPECT_TRUE(!row.message || logged(LOG_ERR, row.message));
    }
    gateway.set_config("network", good);
    EXPECT_EQ(0, gateway.call("get", R"({"wanId":1})").status);
}

TEST_F(faults_test, without_its_section_or_a_readable_configuration_the_daemon_does_not_start)
{
    const std::string shipped = gateway.config("network");
    const std::string cases[] = {
        shipped.substr(0, shipped.find("config korvel")),
        shipped + "config interface 'unfinished\n",
        "\x7f"
        "ELF",
    };
    gateway.start_bus();
    for (const std::string &text : cases) {
        SCOPED_TRACE(text.size());
        gateway.set_config("network", text);
        gateway.clear_log();

        EXPECT_EQ(1, gateway.run_korvel({"-d"}).status);

        EXPECT_EQ(text_lines{"Failed to get maxWanId"}, gateway.log_texts(LOG_ERR));
        EXPECT_EQ(text, gateway.config("network"));
    }
}

TEST_F(faults_test, a_section_that_vanishes_costs_no_wan)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    gateway.uci_delete("network.korvel");

    EXPECT_EQ(0, gateway.call("get", R"({"wanId":1})").status);
    EXPECT_EQ((bus_reply{0, ""}), gateway.call("all"));
    EXPECT_EQ((bus_reply{0, ""}), gateway.call("delAll"));
    EXPECT_EQ("pon.100", gateway.device_option(1, "name"));
    EXPECT_EQ("pon.100", gateway.uci_get("network.wan_1.device"));
    expect_serves();
}

TEST_F(faults_test, a_list_of_another_shape_is_lived_with)
{
    const struct {
        const char *trace, *lines;
        bus_reply all;
    } cases[] = {
        {"text", "\tlist wanList 'abc'\n", result_reply(2, -1, "korvel read all WAN ERR!")},
        {"nothing in it", "\tlist wanList ''\n", result_reply(2, -1, "korvel read all WAN ERR!")},
        {"never used", "\tlist wanList '77'\n", result_reply(2, -1, "korvel read all WAN ERR!")},
        {"too large", "\tlist wanList '99999999999999999999'\n",
         result_reply(2, -1, "korvel read all WAN ERR!")},
        {"missing", "", {0, ""}},
    };
    const std::string shipped = gateway.config("network");
    gateway.start_bus();
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        std::string text = shipped;
        text.insert(text.find("\toption pon_adapt"), row.lines);
        gateway.set_config("network", text);

        gateway.start_korvel();

        EXPECT_EQ(row.all, gateway.call("all"));
        EXPECT_EQ(text, gateway.config("network"));
        expect_serves();
        EXPECT_EQ(0, gateway.call("delAll").status);
        EXPECT_EQ(0, gateway.stop_korvel());
    }
}

TEST_F(faults_test, a_list_that_is_a_plain_option_answers_an_empty_wan)
{
    gateway.store_wan(routed_dhcp(1, {.vid = 100}));
    gateway.uci_delete("network.korvel.wanList");
    gateway.uci_set("network.korvel.wanList", "1");
    gateway.start_korvel();

    const bus_reply all = gateway.call("all");

    EXPECT_EQ(std::vector<std::string>{"0"}, all.json().keys());
    EXPECT_EQ("", all.at("0").at("wanName"));
    expect_serves();
    EXPECT_EQ((text_lines{"1", "2"}), gateway.uci_list("network.korvel.wanList"));
}

TEST_F(faults_test, scripts_that_were_deleted_by_hand_are_not_missed)
{
    start_with({routed_dhcp(1, {.vid = 100}), bridged_wan(2, "1000", {.vid = 200})});
    gateway.remove("/etc/hotplug.d/iface/99-wan_1");
    gateway.remove("/etc/korvel/rule_wan_2.sh");
    gateway.clear_log();

    for (const unsigned id : {1U, 2U})
        EXPECT_EQ(result_reply(0, 0, "korvel del OK."),
                  gateway.call("del", "{\"wanId\":" + std::to_string(id) + "}"));

    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(faults_test, scripts_that_cannot_be_run_are_removed_all_the_same)
{
    start_with({routed_dhcp(1, {.vid = 100}), bridged_wan(2, "1000", {.vid = 200})});
    gateway.chmod("/etc/hotplug.d/iface/99-wan_1", 0);
    gateway.write_file("/etc/korvel/rule_wan_2.sh",
                       "\x7f"
                       "ELF no script",
                       0755);
    gateway.clear_log();

    for (const unsigned id : {1U, 2U})
        EXPECT_EQ(result_reply(0, 0, "korvel del OK."),
                  gateway.call("del", "{\"wanId\":" + std::to_string(id) + "}"));

    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_EQ(text_lines{}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(faults_test, what_stands_in_a_scripts_place_and_cannot_be_removed_is_logged)
{
    start_with({routed_dhcp(1, {.vid = 100})});
    gateway.remove("/etc/hotplug.d/iface/99-wan_1");
    gateway.write_file("/etc/hotplug.d/iface/99-wan_1/inner", "");
    gateway.clear_log();

    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));

    EXPECT_EQ(text_lines{"Failed to delete wan_1 route rule: /etc/hotplug.d/iface/99-wan_1"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(faults_test, scripts_that_cannot_be_written_leave_no_piece_and_no_wan)
{
    const struct {
        const char *directory;
        wan_config wan;
        const char *message;
    } cases[] = {
        {"/etc/korvel", bridged_wan(1, "1000", {.vid = 100}),
         "Failed to generate wan_1 bridge rule: /etc/korvel/rule_wan_1.sh"},
        {"/etc/hotplug.d/iface", routed_dhcp(1, {.vid = 200}),
         "Failed to generate wan_1 route rule: /etc/hotplug.d/iface/99-wan_1"},
        {"/etc/korvel", routed_dhcp(1, {.vid = 300, .mvid = 301}),
         "Failed to generate mvlan rule: /etc/korvel/rule_mvlan.sh"},
    };
    start_with({});
    const std::string before = all_configurations();
    for (const bool read_only : {true, false}) {
        for (const auto &row : cases) {
            SCOPED_TRACE(std::string(read_only ? "read-only: " : "full: ") + row.message);
            small_disk disk(row.directory);
            if (read_only)
                disk.make_read_only();
            else
                disk.fill();
            gateway.clear_log();
            gateway.clear_commands();

            EXPECT_EQ(not_added, gateway.call("add", add_request(row.wan)));

            EXPECT_TRUE(logged(LOG_ERR, row.message)) << testing::PrintToString(gateway.log());
            EXPECT_EQ(std::string("Nothing was changed: ") + strchr(row.message, '/') +
                          (read_only ? ": Read-only file system" : ": No space left on device"),
                      gateway.log_texts(LOG_ERR).back());
            if (!read_only)
                disk.empty_again();
            EXPECT_EQ(text_lines{}, gateway.list_directory(row.directory));
            EXPECT_EQ(before, all_configurations());
            EXPECT_EQ(text_lines{}, gateway.commands());
        }
    }
}

TEST_F(faults_test, without_their_directories_scripts_are_not_written_and_the_wans_are_made)
{
    start_with({});
    gateway.remove("/etc/korvel");
    gateway.remove("/etc/hotplug.d/iface");

    EXPECT_EQ(added, gateway.call("add", add_request(bridged_wan(1, "1000", {.vid = 100}))));
    EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(2, {.vid = 200, .mvid = 201}))));

    EXPECT_EQ((text_lines{"Failed to generate wan_1 bridge rule: /etc/korvel/rule_wan_1.sh",
                          "Failed to generate wan_2 route rule: /etc/hotplug.d/iface/99-wan_2",
                          "Failed to generate mvlan rule: /etc/korvel/rule_mvlan.sh"}),
              gateway.log_texts(LOG_ERR));
    EXPECT_FALSE(gateway.exists("/etc/korvel"));
    EXPECT_FALSE(gateway.exists("/etc/hotplug.d/iface"));
    EXPECT_EQ("1 2", gateway.uci_get("network.korvel.wanList"));

    gateway.restart_korvel();
    EXPECT_TRUE(gateway.exists("/etc/korvel/rule_wan_1.sh"));
    EXPECT_TRUE(gateway.exists("/etc/hotplug.d/iface/99-wan_2"));
}

TEST_F(faults_test, what_stands_in_a_scripts_place_is_logged_and_keeps_no_later_change_from_being_made)
{
    start_with({});
    gateway.write_file("/etc/hotplug.d/iface/99-wan_1/inner", "");

    EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(1, {.vid = 100}))));

    EXPECT_EQ(text_lines{"Failed to put into place: /etc/hotplug.d/iface/99-wan_1: Is a directory"},
              gateway.log_texts(LOG_ERR));
    EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(2, {.vid = 200}))));
    EXPECT_EQ("1 2", gateway.uci_get("network.korvel.wanList"));
    EXPECT_EQ((text_lines{"99-wan_1", "99-wan_2"}), gateway.list_directory("/etc/hotplug.d/iface"));
}

TEST_F(faults_test, services_that_fail_or_are_missing_fail_no_request)
{
    start_with({});
    for (const char *const name : {"network", "dnsmasq", "firewall", "miniupnpd", "omcproxy", "call"}) {
        const std::string path = std::string("/etc/init.d/") + name;
        if (name[0] < 'f')
            gateway.write_file(path, "#!/bin/sh\nexit 1\n", 0755);
        else
            gateway.remove(path);
    }

    EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(1, {.vid = 100, .service = 6}))));
    EXPECT_EQ(added, gateway.call("modify", modify_request(routed_dhcp(1, {.vid = 200}))));
    EXPECT_EQ("pon.200", gateway.device_option(1, "name"));
    EXPECT_EQ(result_reply(0, 0, "korvel del OK."), gateway.call("del", R"({"wanId":1})"));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(faults_test, many_clients_at_once_each_get_their_wan)
{
    start_with({});
    constexpr unsigned clients = 8;
    {
        std::vector<std::jthread> threads;
        for (unsigned i = 0; i < clients; i++)
            threads.emplace_back([this, i] {
                const uint16_t vid = static_cast<uint16_t>(100 + i);
                EXPECT_EQ(added, gateway.call("add", add_request(routed_dhcp(0, {.vid = vid}))));
                EXPECT_EQ(0, gateway.call("all").status);
            });
    }
    std::set<std::string> devices;
    for (unsigned id = 1; id <= clients; id++)
        devices.insert(gateway.device_option(id, "name").value_or("none"));
    EXPECT_EQ(clients, devices.size());
    EXPECT_FALSE(devices.contains("none"));
    EXPECT_EQ("1 2 3 4 5 6 7 8", gateway.uci_get("network.korvel.wanList"));
    expect_whole_files();
}

TEST_F(faults_test, scripts_that_were_wiped_are_back_after_a_restart)
{
    start_with({routed_dhcp(1, {.vid = 101, .bind = "0100"}),
                bridged_wan(2, "1000", {.vid = 102, .mvid = 202}),
                bridged_wan(3, "0010", {.vid = 103, .disable_lan_dhcp = 1}),
                routed_pppoe(4, {.vid = 104, .service = 2})});
    const text_lines paths = {"/etc/korvel/rule_wan_2.sh",       "/etc/korvel/rule_wan_3.sh",
                              "/etc/korvel/rule_wan_isolate.sh", "/etc/korvel/rule_mvlan.sh",
                              "/etc/hotplug.d/iface/99-wan_1",   "/etc/hotplug.d/iface/99-wan_4"};
    text_lines before;
    for (const std::string &path : paths)
        before.push_back(gateway.file(path));
    const std::string configured = all_configurations();
    const struct {
        const char *trace;
        text_lines wiped;
    } cases[] = {
        {"the files", paths},
        {"the directories", {"/etc/korvel", "/etc/hotplug.d/iface"}},
        {"the directories' directory", {"/etc/korvel", "/etc/hotplug.d"}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        EXPECT_EQ(0, gateway.stop_korvel());
        for (const std::string &path : row.wiped)
            gateway.remove(path);

        gateway.start_korvel();

        text_lines after;
        for (const std::string &path : paths) {
            ASSERT_TRUE(gateway.exists(path)) << path;
            EXPECT_EQ(0755U, gateway.mode(path));
            after.push_back(gateway.file(path));
        }
        EXPECT_EQ(before, after);
        EXPECT_EQ(configured, all_configurations());
    }
}

// Parameter: the seed of the moments at which the daemon is killed.
class killed_daemon_test : public faults_test, public testing::WithParamInterface<unsigned> {};

TEST_P(killed_daemon_test, leaves_whole_files_at_any_moment)
{
    start_with({routed_dhcp(1, {.vid = 101}), bridged_wan(2, "1000", {.vid = 102})});
    std::mt19937 random(GetParam());
    for (int i = 0; i < 10; i++) {
        const int signal_number = i % 2 == 0 ? SIGKILL : SIGTERM;
        SCOPED_TRACE(signal_number);
        const wan_config wan = i % 4 < 2 ? routed_dhcp(1, {.vid = static_cast<uint16_t>(200 + i)})
                                         : bridged_wan(2, "1000", {.vid = static_cast<uint16_t>(300 + i)});
        background_call request("korvel", gateway.device_section(wan.wanId) ? "modify" : "add",
                                modify_request(wan));
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));

        EXPECT_EQ(signal_number == SIGKILL ? 128 + SIGKILL : 0, gateway.stop_korvel(signal_number));

        // A kill in the middle of a change leaves hidden files, which the next start completes or removes.
        text_lines unreadable = unreadable_configurations();
        std::erase_if(unreadable, [](const std::string &name) { return name.starts_with('.'); });
        EXPECT_EQ(text_lines{}, unreadable);
        for (const std::string directory : {"/etc/korvel/", "/etc/hotplug.d/iface/"})
            for (const std::string &name : gateway.list_directory(directory))
                EXPECT_TRUE(name.starts_with('.') || gateway.mode(directory + name) == 0755U) << name;
        gateway.start_korvel();
        EXPECT_LE(gateway.call("all").status, 2);
        for (const std::string directory : {"/etc/config", "/etc/korvel", "/etc/hotplug.d/iface"})
            for (const std::string &name : gateway.list_directory(directory))
                EXPECT_FALSE(name.starts_with('.')) << name;
        for (const unsigned id : {1U, 2U})
            EXPECT_TRUE(gateway.device_section(id)) << "a change never costs a WAN";
    }
}

INSTANTIATE_TEST_SUITE_P(moments, killed_daemon_test, testing::Range(1U, 4U));

} // namespace
