// Definition files that lie ready when the daemon starts: the WANs that it serves with afterwards, what the
// services are told, and what becomes of the files and of the WANs that were there before.
#include "support/daemon_test.h"
#include "support/small_disk.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

constexpr char list_path[] = "/tmp/wan_list";
constexpr char directory[] = "/tmp/definitions";
constexpr char not_own[] = "Left custom korvel config file alone, it is not the daemon's own: ";
constexpr char incomplete[] = "Failed to parse custom korvel config file: missing required parameters";
// A WAN that claims nothing which others may have.
constexpr char modest[] = "wanMode=1\nipProtocol=1\nservice=2\n";
// The only WAN of the tests that add to it.
constexpr uint8_t present_id = 7;

std::string tagged(unsigned vid)
{
    return std::string(modest) + "vlanMode=1\nvid=" + std::to_string(vid) + "\n";
}

std::string path_of(const std::string &name)
{
    return std::string(directory) + "/" + name;
}

class import_test : public daemon_test {
protected:
    std::string definition(const std::string &name, const std::string &text)
    {
        gateway.write_file(path_of(name), text);
        return path_of(name);
    }

    // Lays the list down and has the daemon start, to the point at which it serves.
    void start_with(const text_lines &paths)
    {
        start_hindered_with(paths);
        EXPECT_FALSE(gateway.exists(list_path));
    }

    // The same where nothing can be imported.
    void start_hindered_with(const text_lines &paths)
    {
        std::string text;
        for (const std::string &path : paths)
            text += path + "\n";
        gateway.write_file(list_path, text);
        gateway.clear_commands();
        gateway.clear_log();
        gateway.start_korvel();
    }

    text_lines ids() const { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }
    bus_reply get(unsigned id) const { return gateway.call("get", "{\"wanId\":" + std::to_string(id) + "}"); }

    text_lines reloads() const
    {
        text_lines found;
        for (const std::string &command : gateway.commands())
            if (command.starts_with("/etc/init.d/"))
                found.push_back(command.substr(strlen("/etc/init.d/")));
        return found;
    }

    // Everything that is configured or generated, by path.
    std::map<std::string, std::string> stored() const
    {
        std::map<std::string, std::string> texts;
        for (const std::string place : {"/etc/config/", "/etc/korvel/", "/etc/hotplug.d/iface/"})
            for (const std::string &name : gateway.list_directory(place))
                texts[place + name] = gateway.file(place + name);
        return texts;
    }

    // A gateway with one WAN, as a daemon leaves it that has been running.
    void set_up_present_wan()
    {
        gateway.store_wan(routed_dhcp(present_id, {.vid = 100, .bind = "10000000"}));
        gateway.start_netd();
        gateway.start_korvel();
        EXPECT_EQ(0, gateway.stop_korvel());
        silence_services();
    }
};

TEST_F(import_test, usable_definitions_replace_what_was_configured_before_the_daemon_serves)
{
    gateway.store_wan(routed_dhcp(4, {.vid = 400}));
    gateway.store_wan(bridged_wan(9, "01000000", {.vid = 900}));
    gateway.start_netd();

    start_with(
        {definition("dialled", "wanMode=1\nipProtocol=1\nipMode=2\nservice=1\nvlanMode=1\nvid=100\n"
                               "mtu=1492\nbind=10000000\npppUser=joe\npppPwd=secret\n"),
         definition("bridged", "wanMode=0\nipProtocol=3\nservice=3\nvlanMode=1\nvid=200\nmtu=1500\n"
                               "bind=00100000\n"),
         definition("both", "wanMode=1\nipProtocol=3\nautoDns=1\nautoDnsV6=1\nservice=4\nmtu=1400\n")});

    EXPECT_EQ((text_lines{"1", "2", "3"}), ids());
    EXPECT_EQ("3", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ("wan_1 wan_3 wan_3_v6", gateway.uci_get("firewall.@zone[1].network"));
    EXPECT_EQ("wan_1", gateway.uci_get("upnpd.config.external_iface"));
    EXPECT_EQ(std::nullopt, gateway.device_section(4));
    EXPECT_EQ(std::nullopt, gateway.device_section(9));
    EXPECT_EQ(text_lines{"rule_wan_2.sh"}, gateway.list_directory("/etc/korvel"));
    EXPECT_EQ((text_lines{"99-wan_1", "99-wan_3"}), gateway.list_directory("/etc/hotplug.d/iface"));
    EXPECT_EQ(0755U, gateway.mode("/etc/hotplug.d/iface/99-wan_1"));
    expect_whole_files();
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));

    EXPECT_EQ((std::vector<std::string>{"1", "2", "3"}), gateway.call("all").json().keys());
    EXPECT_EQ("1_INTERNET_R_VID_100", get(1).at("wanName"));
    EXPECT_EQ("joe", get(1).at("pppUser"));
    EXPECT_EQ(1492, get(1).at("mtu"));
    EXPECT_EQ("10000000", get(1).at("bind"));
    EXPECT_EQ("2_OTHER_B_VID_200", get(2).at("wanName"));
    EXPECT_EQ("3_VOIP_R_VID_", get(3).at("wanName"));
    EXPECT_EQ(result_reply(2, -1, "korvel get ERR!"), get(4));
    EXPECT_EQ(0, gateway.call("add", add_request(routed_dhcp(0, {.vid = 300}))).at("status"));
    EXPECT_EQ((text_lines{"1", "2", "3", "4"}), ids());
}

TEST_F(import_test, the_services_are_told_of_the_deletion_and_of_each_wan)
{
    gateway.store_wan(routed_dhcp(4, {.vid = 400}));
    gateway.start_netd();

    start_with({definition("a", tagged(11)), definition("b", tagged(22))});

    const text_lines of_a_wan = {"network reload", "dnsmasq reload", "firewall reload", "miniupnpd reload",
                                 "omcproxy reload"};
    text_lines expected = {"network reload", "firewall reload", "miniupnpd reload", "omcproxy reload",
                           "call reload"};
    expected.insert(expected.end(), of_a_wan.begin(), of_a_wan.end());
    expected.insert(expected.end(), of_a_wan.begin(), of_a_wan.end());
    EXPECT_EQ(expected, reloads());
    EXPECT_EQ((std::vector<log_entry>{
                  {LOG_INFO, "korvel", "Generate missing wan_4 route rule: /etc/hotplug.d/iface/99-wan_4"},
                  {LOG_INFO, "korvel", "Detect custom korvel config file 0: /tmp/definitions/a"},
                  {LOG_INFO, "korvel", "Detect custom korvel config file 1: /tmp/definitions/b"}}),
              gateway.log());
}

// A file at the head of the list that is no definition.
struct useless_file {
    const char *trace;
    std::function<void(const std::string &path)> make;
    text_lines errors;
    bool stays;
};

void write_text(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

std::vector<useless_file> useless_files()
{
    using path_text = const std::string &;
    const std::string inside = path_of("aside");
    return {
        {"missing", [](path_text) {}, {}, false},
        {"empty", [](path_text path) { write_text(path, ""); }, {}, false},
        {"without ipProtocol", [](path_text path) { write_text(path, "wanMode=1\n"); }, {incomplete}, false},
        {"without wanMode", [](path_text path) { write_text(path, "ipProtocol=1\n"); }, {incomplete}, false},
        {"binary",
         [](path_text path) {
             write_text(path, "\x7f"
                              "ELF\xff\xfe\x01\n\x80=\x90\n");
         },
         {incomplete},
         false},
        {"directory", [](path_text path) { fs::create_directories(path + "/precious"); }, {not_own}, true},
        {"empty directory", [](path_text path) { fs::create_directory(path); }, {not_own}, true},
        {"link to a useless file",
         [inside](path_text path) {
             write_text(inside, "wanMode=1\n");
             fs::create_symlink(inside, path);
         },
         {incomplete},
         false},
        {"link to nothing", [](path_text path) { fs::create_symlink("nowhere", path); }, {}, true},
        {"link to itself", [](path_text path) { fs::create_symlink(path, path); }, {}, true},
        {"link to a directory",
         [](path_text path) { fs::create_symlink("/tmp/definitions", path); },
         {not_own},
         true},
        {"writable by all",
         [](path_text path) {
             write_text(path, modest);
             fs::permissions(path, fs::perms(0666));
         },
         {not_own},
         true},
    };
}

// What is logged of a useless file under this path.
text_lines errors_of(const useless_file &file, const std::string &path)
{
    text_lines errors = file.errors;
    for (std::string &text : errors)
        if (text.ends_with(": "))
            text += path;
    return errors;
}

TEST_F(import_test, behind_a_useless_first_file_definitions_join_what_is_configured)
{
    set_up_present_wan();
    const std::map<std::string, std::string> before = stored();
    for (const useless_file &file : useless_files()) {
        SCOPED_TRACE(file.trace);
        gateway.remove(directory);
        const std::string second = definition("second", tagged(200));
        const std::string first = path_of("first");
        file.make(first);

        start_with({first, second});

        EXPECT_EQ((text_lines{"7", "8"}), ids());
        EXPECT_EQ("200", gateway.device_option(8, "vid"));
        EXPECT_EQ(errors_of(file, first), gateway.log_texts(LOG_ERR));
        EXPECT_EQ(file.stays, fs::exists(fs::symlink_status(first)));
        EXPECT_FALSE(gateway.exists(second));
        // Without what was added everything is as it was.
        EXPECT_EQ(0, gateway.call("del", R"({"wanId":8})").at("status"));
        gateway.uci_set("network.korvel.maxWanId", "7");
        EXPECT_EQ(before, stored());
        EXPECT_EQ(0, gateway.stop_korvel());
    }
}

TEST_F(import_test, useless_files_alone_change_nothing)
{
    set_up_present_wan();
    const std::map<std::string, std::string> before = stored();
    text_lines paths;
    text_lines errors;
    gateway.write_file(path_of("aside"), "");
    for (const useless_file &file : useless_files()) {
        if (paths.size() == 8)
            break;
        paths.push_back(path_of(std::to_string(paths.size())));
        file.make(paths.back());
        const text_lines more = errors_of(file, paths.back());
        errors.insert(errors.end(), more.begin(), more.end());
    }

    start_with(paths);

    EXPECT_EQ(errors, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(before, stored());
    EXPECT_EQ(text_lines{"/userfs/bin/xponigmpcmd clearAll"}, gateway.commands()); // as at every start
    EXPECT_EQ("7_INTERNET_R_VID_100", get(present_id).at("wanName"));
}

TEST_F(import_test, a_definition_behind_a_link_replaces_the_wans_and_stays)
{
    set_up_present_wan();
    const std::string target = definition("target", tagged(200));
    fs::create_symlink(target, path_of("link"));

    start_with({path_of("link")});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ("200", gateway.device_option(1, "vid"));
    EXPECT_EQ(text_lines{"target"}, gateway.list_directory(directory));
}

TEST_F(import_test, a_list_that_another_user_planted_replaces_and_deletes_nothing)
{
    set_up_present_wan();
    const std::map<std::string, std::string> before = stored();
    const std::string precious = definition("precious", modest);
    gateway.chmod("/tmp", 01777);
    gateway.write_file(list_path, precious + "\n");
    constexpr uid_t stranger = 65534;
    if (chown(list_path, stranger, stranger) != 0)
        GTEST_SKIP() << "an ordinary user has no second one to give files to; run it as root";
    gateway.clear_log();

    gateway.start_korvel();

    EXPECT_EQ(text_lines{not_own + std::string(list_path)}, gateway.log_texts(LOG_ERR));
    EXPECT_TRUE(gateway.exists(list_path));
    EXPECT_TRUE(gateway.exists(precious));
    EXPECT_EQ(before, stored());
}

TEST_F(import_test, of_nine_files_the_ninth_is_left_alone)
{
    set_up_present_wan();
    text_lines paths;
    for (unsigned i = 1; i <= 9; i++)
        paths.push_back(definition("file" + std::to_string(i), tagged(200 + i)));

    start_with(paths);

    EXPECT_EQ((text_lines{"1", "2", "3", "4", "5", "6", "7", "8"}), ids());
    EXPECT_EQ("208", gateway.device_option(8, "vid"));
    EXPECT_EQ(text_lines{"file9"}, gateway.list_directory(directory));
    EXPECT_EQ(8U, gateway.log_texts(LOG_INFO).size());
}

// The example of docs/integration.md, comments and all.
std::string documented_definition()
{
    std::ifstream page(KORVEL_SOURCE_DIR "/docs/integration.md");
    std::string text;
    std::string line;
    while (std::getline(page, line) && line != "```wan_definition")
        ;
    while (std::getline(page, line) && line != "```")
        text += line + '\n';
    return text;
}

// What stands behind each key.
std::map<std::string, std::string> lines_of(const std::string &definition_text)
{
    std::map<std::string, std::string> values;
    std::istringstream lines(definition_text);
    for (std::string line; std::getline(lines, line);)
        if (const size_t sign = line.find('='); !line.starts_with('#') && sign != std::string::npos)
            values[line.substr(0, sign)] = line.substr(sign + 1);
    return values;
}

// A value of a reply as definitions have it: booleans are numbers there.
std::string as_defined(const json_value &value)
{
    const std::string text = value.text();
    if (text == "true" || text == "false")
        return text == "true" ? "1" : "0";
    return text.starts_with('"') ? value.string() : text;
}

TEST_F(import_test, the_documented_definition_makes_the_wan_that_it_describes)
{
    const std::string text = documented_definition();
    gateway.start_netd();

    start_with({definition("documented", text)});

    std::map<std::string, std::string> expected = lines_of(text);
    ASSERT_LT(10U, expected.size());
    EXPECT_EQ("1100", std::exchange(expected["bind"], "11000000")); // as many as the board has ports
    const json_value reply = get(1).json();
    for (const auto &[key, value] : expected) {
        SCOPED_TRACE(key);
        EXPECT_EQ(value, as_defined(reply.at(key.c_str())));
    }
}

TEST_F(import_test, a_file_that_is_listed_twice_makes_one_wan)
{
    set_up_present_wan();
    const std::string twice = definition("twice", tagged(200));

    start_with({twice, twice, definition("once", tagged(300))});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_EQ("200", gateway.device_option(1, "vid"));
    EXPECT_EQ("300", gateway.device_option(2, "vid"));
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

TEST_F(import_test, of_long_definitions_the_first_1024_bytes_count)
{
    set_up_present_wan();
    // The line that gives the MTU ends with this byte, counted from 1.
    const auto mtu_ends_at = [](size_t position) {
        const std::string last = "\nmtu=1400\n";
        return modest + std::string(position - strlen(modest) - last.size(), '#') + last;
    };
    const std::string long_tail(200000, '#');

    start_with({definition("1023", mtu_ends_at(1023)), definition("1024", mtu_ends_at(1024)),
                definition("1025", mtu_ends_at(1025)), definition("2048", mtu_ends_at(2048)),
                definition("tail", mtu_ends_at(1024) + long_tail)});

    text_lines mtus;
    for (const unsigned id : {1U, 2U, 3U, 4U, 5U})
        mtus.push_back(gateway.device_option(id, "mtu").value_or("none"));
    EXPECT_EQ((text_lines{"1400", "1400", "0", "0", "1400"}), mtus);
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

TEST_F(import_test, a_definition_that_conflicts_is_used_up_and_the_next_one_taken)
{
    set_up_present_wan();
    const std::string bridged = "wanMode=0\nipProtocol=1\nservice=1\nvlanMode=1\nvid=200\n";

    start_with({definition("a", bridged), definition("b", bridged),
                definition("c", "wanMode=0\nipProtocol=1\nservice=3\n"), definition("d", tagged(300))});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_EQ("300", gateway.device_option(2, "vid"));
    EXPECT_EQ((text_lines{"Failed to add wan: vlan 200 exist", "Failed to add wan: port binding required"}),
              gateway.log_texts(LOG_ERR));
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

TEST_F(import_test, where_nothing_can_be_written_the_files_stay_for_the_next_start)
{
    set_up_present_wan();
    const std::string before = gateway.config("network");
    {
        small_disk disk("/etc/config");
        disk.make_read_only();

        start_hindered_with({definition("a", tagged(200))});

        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_EQ(text_lines{"a"}, gateway.list_directory(directory));
        EXPECT_TRUE(gateway.exists(list_path));
        EXPECT_EQ(text_lines{"Nothing was changed: /etc/config/firewall: Read-only file system"},
                  gateway.log_texts(LOG_ERR));
        EXPECT_EQ(0, gateway.call("delAll").status);
        EXPECT_EQ("7_INTERNET_R_VID_100", get(present_id).at("wanName"));
    }
    gateway.restart_korvel();
    EXPECT_EQ("1_TR069_R_VID_200", get(1).at("wanName"));
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
    EXPECT_FALSE(gateway.exists(list_path));
}

} // namespace
