// The import of WAN definitions at start-up: how the list and the definitions are read, and what becomes of
// the WANs that are configured already.
#include "modify/import.h"

#include "create/create.h"
#include "service/policies.h"
#include "support/code_test.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <sys/mount.h>
#include <sys/stat.h>

namespace {

constexpr char list_path[] = "/tmp/wan_list";
const std::string directory = "/tmp/definitions/";
constexpr char incomplete[] = "Failed to parse custom korvel config file: missing required parameters";
const std::string not_own = "Left custom korvel config file alone, it is not the daemon's own: ";
// Enough for a WAN: routed, DHCP, IPv4, "INTERNET".
constexpr char minimal[] = "wanMode=1\nipProtocol=1\nservice=1\n";

// A file that cannot be removed: something is mounted on it, by default itself.
class pinned_file {
public:
    explicit pinned_file(std::string path, const char *shown = nullptr) : path_(std::move(path))
    {
        if (mount(shown ? shown : path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr))
            throw std::runtime_error("cannot mount on " + path_ + ": " + strerror(errno));
    }
    ~pinned_file() { umount2(path_.c_str(), MNT_DETACH); }
    pinned_file(const pinned_file &) = delete;
    pinned_file &operator=(const pinned_file &) = delete;

private:
    std::string path_;
};

class import_test : public code_test {
protected:
    // Writes a definition and returns its path.
    std::string definition(const std::string &name, const std::string &text)
    {
        const std::string path = directory + name;
        gateway.write_file(path, text);
        return path;
    }

    // Names the files in the list, one a line, and imports.
    void import(const text_lines &paths)
    {
        std::string text;
        for (const std::string &path : paths)
            text += path + "\n";
        gateway.write_file(list_path, text);
        wan_import_custom();
    }

    // Imports this one definition on a gateway without WANs; it becomes WAN 1.
    void import_alone(const std::string &text) { import({definition("definition", text)}); }

    text_lines ids() { return gateway.uci_list("network.korvel.wanList").value_or(text_lines{}); }
};

// The lines of a definition that gives every value of the record.
std::string definition_of(const wan_config &wan)
{
    std::string text;
    for (const arg_rule &rule : arg_rules) {
        if (rule.field.offset == offsetof(wan_config, iphostId)) // the one argument that is not imported
            continue;
        const std::string value = rule.field.kind == field_kind::text
                                      ? field_text(wan, rule.field)
                                      : std::to_string(field_number(wan, rule.field));
        text += rule.field.name + ("=" + value) + "\n";
    }
    return text;
}

TEST_F(import_test, without_a_list_nothing_happens)
{
    gateway.store_wan(routed_dhcp(1));
    const std::string before = gateway.config("network");

    wan_import_custom();

    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_TRUE(gateway.log().empty());
    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(import_test, an_empty_list_is_removed_and_changes_nothing)
{
    gateway.store_wan(routed_dhcp(1));
    const std::string before = gateway.config("network");
    for (const text_lines &list : {text_lines{}, text_lines{"", "", ""}}) {
        SCOPED_TRACE(list.size());

        import(list);

        EXPECT_FALSE(gateway.exists(list_path));
        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_TRUE(gateway.log().empty());
    }
}

TEST_F(import_test, usable_definitions_replace_all_wans_and_are_used_up)
{
    gateway.store_wan(routed_dhcp(4, {.vid = 100}));
    gateway.store_wan(bridged_wan(9, "1", {.vid = 200}));
    load_settings();

    import({definition("a", std::string(minimal) + "vlanMode=1\nvid=11\n"),
            definition("b", std::string(minimal) + "vlanMode=1\nvid=22\n"),
            definition("c", std::string(minimal) + "vlanMode=1\nvid=33\n")});

    EXPECT_EQ((text_lines{"1", "2", "3"}), ids());
    EXPECT_EQ("3", gateway.uci_get("network.korvel.maxWanId"));
    EXPECT_EQ("1_INTERNET_R_VID_11", gateway.device_option(1, "lkname"));
    EXPECT_EQ("2_INTERNET_R_VID_22", gateway.device_option(2, "lkname"));
    EXPECT_EQ("3_INTERNET_R_VID_33", gateway.device_option(3, "lkname"));
    EXPECT_FALSE(gateway.device_section(4).has_value());
    EXPECT_FALSE(gateway.device_section(9).has_value());
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
    EXPECT_EQ((std::vector<std::string>{"Detect custom korvel config file 0: /tmp/definitions/a",
                                        "Detect custom korvel config file 1: /tmp/definitions/b",
                                        "Detect custom korvel config file 2: /tmp/definitions/c"}),
              gateway.log_texts(LOG_INFO));
}

TEST_F(import_test, each_key_fills_its_field)
{
    wan_config dialled = with_own_servers(routed_pppoe(1, {.vid = 100,
                                                           .mvid = 200,
                                                           .prio = 3,
                                                           .service = 6,
                                                           .ip_protocol = 3,
                                                           .mtu = 1400,
                                                           .disable_lan_dhcp = 1,
                                                           .bind = "01010101"}));
    dialled.pppDialMode = 1;
    dialled.ipv6PrefixProxy = 0;
    strcpy(dialled.pppServName, "isp");
    wan_config tunnel = routed_dhcp(1, {.ip_protocol = 2});
    tunnel.ipv6DsLite = 1;
    strcpy(tunnel.ipv6AddrDsLite, "aftr.example");
    const struct {
        const char *trace;
        wan_config wan;
    } cases[] = {
        {"dialled", dialled},
        {"static", routed_static(1, {.service = 2, .ip_protocol = 3})},
        {"tunnel", tunnel},
        {"bridged", bridged_wan(1, "10000000", {.vid = 7, .service = 3})},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        start_over();
        ASSERT_EQ(0, wan_create(&row.wan, 0));
        const std::string created = gateway.config("network");
        start_over();

        import_alone(definition_of(row.wan));

        EXPECT_EQ(created, gateway.config("network"));
    }
}

TEST_F(import_test, identifiers_cannot_be_given)
{
    import_alone(std::string(minimal) + "iphostId=2\nwanId=77\n");

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_FALSE(gateway.uci_get("network.wan_1.iphostId").has_value());
}

TEST_F(import_test, when_the_first_definition_is_not_usable_the_others_are_added_beside_the_wans)
{
    const struct {
        const char *trace, *first;
        text_lines errors;
    } cases[] = {
        {"without ipProtocol", "wanMode=1\n", {incomplete}},
        {"without wanMode", "ipProtocol=1\n", {incomplete}},
        {"no definition at all", "\xff\xfe\x01 binary \x7f\n", {incomplete}},
        {"empty", "", {}},
        {"missing", nullptr, {}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        start_over();
        gateway.store_wan(routed_dhcp(1, {.vid = 100}));
        load_settings();
        const std::string first = row.first ? definition("first", row.first) : directory + "first";

        import({first, definition("second", minimal)});

        EXPECT_EQ((text_lines{"1", "2"}), ids());
        EXPECT_EQ("pon.100", gateway.device_option(1, "name"));
        EXPECT_EQ("pon", gateway.device_option(2, "name"));
        EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
        EXPECT_EQ(row.errors, gateway.log_texts(LOG_ERR));
    }
}

TEST_F(import_test, a_later_definition_that_is_not_usable_is_removed_and_skipped)
{
    import({definition("first", minimal), definition("second", "wanMode=1\n"), definition("third", ""),
            directory + "fourth", definition("fifth", minimal)});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_EQ(text_lines{incomplete}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(5U, gateway.log_texts(LOG_INFO).size());
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

TEST_F(import_test, the_required_names_may_stand_anywhere)
{
    import_alone("# has no wanMode, nor any ipProtocol\nservice=1\n");

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ("0", gateway.device_option(1, "wanMode"));
}

TEST_F(import_test, of_ten_lines_the_first_eight_that_are_not_empty_count)
{
    text_lines paths;
    for (int i = 0; i < 10; i++) {
        paths.push_back(definition("file" + std::to_string(i), std::string(minimal) + "vlanMode=1\nvid=" +
                                                                   std::to_string(10 + i) + "\n"));
        paths.push_back("");
    }

    import(paths);

    EXPECT_EQ((text_lines{"1", "2", "3", "4", "5", "6", "7", "8"}), ids());
    EXPECT_EQ((text_lines{"file8", "file9"}), gateway.list_directory(directory));
    EXPECT_EQ(8U, gateway.log_texts(LOG_INFO).size());
}

TEST_F(import_test, the_list_may_end_without_a_line_feed)
{
    gateway.write_file(list_path, definition("a", minimal) + "\n" + definition("b", minimal));

    wan_import_custom();

    EXPECT_EQ((text_lines{"1", "2"}), ids());
}

TEST_F(import_test, a_file_listed_twice_is_used_at_its_first_mention)
{
    gateway.store_wan(routed_dhcp(1));
    load_settings();
    const std::string path = definition("twice", minimal);

    import({path, path});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
}

TEST_F(import_test, a_path_of_63_characters_is_read_whole_and_a_longer_one_as_several)
{
    const struct {
        size_t length;
        text_lines noted;
    } cases[] = {
        {62, {std::string(62, 'x'), directory + "after"}},
        {63, {std::string(63, 'x'), directory + "after"}},
        {64, {std::string(63, 'x'), "x", directory + "after"}},
        {126, {std::string(63, 'x'), std::string(63, 'x'), directory + "after"}},
        {127, {std::string(63, 'x'), std::string(63, 'x'), "x", directory + "after"}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.length);
        start_over();
        text_lines messages;
        for (const std::string &path : row.noted)
            messages.push_back("Detect custom korvel config file " + std::to_string(messages.size()) + ": " +
                               path);

        import({std::string(row.length, 'x'), definition("after", minimal)});

        EXPECT_EQ(messages, gateway.log_texts(LOG_INFO));
        EXPECT_EQ(text_lines{"1"}, ids());
    }
}

TEST_F(import_test, a_file_with_a_path_of_63_characters_is_used)
{
    import({definition(std::string(63 - directory.size(), 'n'), minimal)});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

// What a definition's lines become in the configuration of WAN 1.
struct value_case {
    const char *trace;
    std::string lines;
    const char *option;   // of the device section, or "network.…" for another place
    const char *expected; // null: no such option
};

class import_value_test : public import_test {
protected:
    void expect_values(const std::vector<value_case> &cases)
    {
        for (const value_case &row : cases) {
            SCOPED_TRACE(row.trace);
            start_over();

            import_alone(row.lines);

            const std::optional<std::string> expected =
                row.expected ? std::optional<std::string>(row.expected) : std::nullopt;
            EXPECT_EQ(expected, strchr(row.option, '.') ? gateway.uci_get(row.option)
                                                        : gateway.device_option(1, row.option));
        }
    }
    const std::string tagged_ = std::string(minimal) + "vlanMode=1\n";
    const std::string dialled_ = std::string(minimal) + "ipMode=2\n";
};

TEST_F(import_value_test, a_key_is_found_anywhere_at_its_first_occurrence)
{
    expect_values({
        {"vid inside an earlier mvid", tagged_ + "mvid=100\nvid=200\n", "vid", "100"},
        {"and mvid itself", tagged_ + "mvid=100\nvid=200\n", "mvid", "100"},
        {"vid before mvid", tagged_ + "vid=200\nmvid=100\n", "vid", "200"},
        {"mvid behind vid", tagged_ + "vid=200\nmvid=100\n", "mvid", "100"},
        {"in the middle of a line", tagged_ + "as of now vid=7\n", "vid", "7"},
        {"in another key's value", tagged_ + "pppUser=vid=9\n", "vid", "9"},
        {"twice", tagged_ + "vid=5\nvid=6\n", "vid", "5"},
        {"first without a value", tagged_ + "vid=\nvid=6\n", "vid", "0"},
        {"with a blank before the sign", tagged_ + "vid =6\n", "vid", "0"},
        {"in other letters", tagged_ + "VID=6\n", "vid", "0"},
    });
}

TEST_F(import_value_test, only_a_value_of_1_to_64_characters_and_a_line_feed_counts)
{
    const std::string most(64, 'u');
    const std::string too_long(65, 'u');
    expect_values({
        {"last line without line feed", std::string(minimal) + "mtu=1492", "mtu", "0"},
        {"last line with line feed", std::string(minimal) + "mtu=1492\n", "mtu", "1492"},
        {"empty", std::string(minimal) + "mtu=\n", "mtu", "0"},
        {"one character", dialled_ + "pppUser=u\n", "network.wan_1.username", "u"},
        {"64 characters", dialled_ + "pppUser=" + most + "\n", "network.wan_1.username", most.c_str()},
        {"65 characters", dialled_ + "pppUser=" + too_long + "\n", "network.wan_1.username", nullptr},
        {"a long value before", dialled_ + "pppUser=" + too_long + "\npppPwd=p\n", "network.wan_1.password",
         "p"},
        {"64 characters without line feed", dialled_ + "pppUser=" + most, "network.wan_1.username", nullptr},
        {"carriage return, number", std::string(minimal) + "mtu=1400\r\n", "mtu", "1400"},
        {"carriage return, text", dialled_ + "pppUser=joe\r\n", "network.wan_1.username", "joe\r"},
    });
}

TEST_F(import_value_test, values_are_cut_to_their_field_and_not_judged)
{
    const std::string fixed = std::string(minimal) + "ipMode=1\n";
    const std::string long_text(64, '7');
    const std::string kept(16, '7');
    expect_values({
        {"8 bits", "wanMode=257\nipProtocol=1\nservice=1\n", "wanMode", "1"},
        {"16 bits", tagged_ + "vid=65636\n", "vid", "100"},
        {"negative", tagged_ + "vid=-1\n", "vid", "65535"},
        {"no number", tagged_ + "vid=x\n", "vid", "0"},
        {"trailing text", tagged_ + "vid=12ab\n", "vid", "12"},
        {"MTU out of range", std::string(minimal) + "mtu=9000\n", "mtu", "9000"},
        {"service out of range", "wanMode=1\nipProtocol=1\nservice=9\n", "lkname", "1_OTHER_R_VID_"},
        {"text", fixed + "ip=" + long_text + "\n", "network.wan_1.ipaddr", kept.c_str()},
        {"text as long as its field", fixed + "ip=" + kept + "\n", "network.wan_1.ipaddr", kept.c_str()},
    });
}

TEST_F(import_value_test, of_a_file_the_first_1024_bytes_count)
{
    // The last line ends with the file's last byte.
    const auto padded = [](size_t size) {
        const std::string last = "\nmtu=1400\n";
        return minimal + std::string(size - strlen(minimal) - last.size(), '#') + last;
    };
    const std::string past_the_end = std::string(minimal) + std::string(5000, '#') + "\nmtu=1400\n";
    ASSERT_EQ(1024U, padded(1024).size());
    expect_values({
        {"1023", padded(1023), "mtu", "1400"},
        {"1024", padded(1024), "mtu", "1400"},
        {"1025", padded(1025), "mtu", "0"},
        {"key beyond", past_the_end, "mtu", "0"},
        {"keys within a longer file", past_the_end, "wanMode", "1"},
    });
}

TEST_F(import_value_test, a_nul_byte_ends_the_text)
{
    const std::string nul(1, '\0');
    expect_values({
        {"key behind it", minimal + nul + "mtu=1400\n", "mtu", "0"},
        {"key before it", std::string(minimal) + "mtu=1400\n" + nul + "mtu=1300\n", "mtu", "1400"},
        {"value cut by it", std::string(minimal) + "mtu=14" + nul + "00\n", "mtu", "0"},
    });
}

TEST_F(import_test, a_file_that_begins_with_a_nul_byte_is_empty)
{
    import({definition("nul", std::string(1, '\0') + minimal), definition("after", minimal)});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

TEST_F(import_test, a_symbolic_link_is_read_through_and_only_itself_removed)
{
    const std::string target = definition("target", minimal);
    const std::string link = directory + "link";
    std::filesystem::create_symlink(target, link);

    import({link});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{"target"}, gateway.list_directory(directory));
}

TEST_F(import_test, a_pipe_is_left_and_does_not_hold_up_the_start)
{
    const std::string after = definition("after", minimal);
    const std::string pipe = directory + "pipe";
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));

    import({pipe, after});

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{"pipe"}, gateway.list_directory(directory));
    EXPECT_EQ(text_lines{not_own + pipe}, gateway.log_texts(LOG_ERR));
}

TEST_F(import_test, a_directory_is_no_definition_and_stays)
{
    gateway.store_wan(routed_dhcp(1));
    load_settings();
    std::filesystem::create_directories(directory + "inner");

    import({directory + "inner", definition("after", minimal)});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_TRUE(gateway.exists(directory + "inner"));
    EXPECT_EQ(text_lines{not_own + directory + "inner"}, gateway.log_texts(LOG_ERR));
}

// Without it the list would be gone and the definition of no use, and if it is the first one, the others
// would come beside the WANs that they are to replace.
TEST_F(import_test, where_a_definition_cannot_be_read_nothing_is_imported_and_all_files_stay)
{
    gateway.store_wan(routed_dhcp(1));
    load_settings();
    const std::string unreadable = definition("unreadable", "");
    const std::string usable = definition("usable", minimal);
    const pinned_file pinned(unreadable, "/proc/self/mem");
    const struct {
        const char *trace;
        text_lines files;
    } cases[] = {{"first", {unreadable, usable}}, {"second", {usable, unreadable}}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        gateway.clear_log();

        import(row.files);

        EXPECT_EQ(text_lines{"1"}, ids());
        EXPECT_TRUE(gateway.exists("/tmp/wan_list"));
        EXPECT_EQ((text_lines{"unreadable", "usable"}), gateway.list_directory(directory));
        EXPECT_EQ(text_lines{"Nothing was imported: " + unreadable + ": Input/output error"},
                  gateway.log_texts(LOG_ERR));
    }
}

TEST_F(import_test, a_list_that_others_may_have_put_there_stays_and_changes_nothing)
{
    gateway.store_wan(routed_dhcp(1));
    load_settings();
    const std::string a = definition("a", minimal);
    const std::string before = gateway.config("network");
    const struct {
        const char *trace;
        std::function<void()> plant;
    } cases[] = {
        {"writable by all", [&] { gateway.write_file(list_path, a + "\n", 0666); }},
        {"writable by the group", [&] { gateway.write_file(list_path, a + "\n", 0664); }},
        {"a second name of a file",
         [&] {
             gateway.write_file("/tmp/list", a + "\n");
             std::filesystem::create_hard_link("/tmp/list", list_path);
         }},
        {"a link to one",
         [&] {
             gateway.write_file("/tmp/list", a + "\n", 0666);
             std::filesystem::create_symlink("/tmp/list", list_path);
         }},
        {"a directory", [&] { std::filesystem::create_directory(list_path); }},
        {"a pipe", [&] { ASSERT_EQ(0, mkfifo(list_path, 0600)); }},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        row.plant();
        gateway.clear_log();

        wan_import_custom();

        EXPECT_EQ(before, gateway.config("network"));
        EXPECT_TRUE(gateway.exists(list_path));
        EXPECT_TRUE(gateway.exists(a));
        EXPECT_EQ((std::vector<log_entry>{{LOG_ERR, gateway.log().at(0).ident, not_own + list_path}}),
                  gateway.log());
        gateway.remove(list_path);
        gateway.remove("/tmp/list");
    }
}

TEST_F(import_test, a_definition_that_others_may_have_put_there_stays_and_the_next_one_is_taken)
{
    gateway.store_wan(routed_dhcp(1));
    load_settings();
    const std::string planted = definition("planted", minimal);
    gateway.chmod(planted, 0666);

    import({planted, definition("after", minimal)});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_EQ(text_lines{"planted"}, gateway.list_directory(directory));
    EXPECT_EQ(text_lines{not_own + planted}, gateway.log_texts(LOG_ERR));
}

TEST_F(import_test, a_list_that_cannot_be_removed_is_imported_all_the_same)
{
    gateway.write_file(list_path, definition("a", minimal) + "\n");
    {
        const pinned_file pinned(list_path);
        wan_import_custom();
    }

    EXPECT_EQ(text_lines{"1"}, ids());
    EXPECT_EQ(text_lines{"Failed to delete custom korvel config file: /tmp/wan_list"},
              gateway.log_texts(LOG_ERR));
}

TEST_F(import_test, a_definition_that_cannot_be_removed_is_logged)
{
    const struct {
        const char *trace, *text;
        text_lines errors, ids;
    } cases[] = {
        {"usable", minimal, {}, {"1"}},
        {"incomplete", "wanMode=1\n", {incomplete}, {}},
        {"empty", "", {}, {}},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.trace);
        start_over();
        text_lines errors = row.errors;
        errors.push_back("Failed to delete custom korvel config file: /tmp/definitions/pinned");
        const pinned_file pinned(definition("pinned", row.text));

        import({directory + "pinned"});

        EXPECT_EQ(row.ids, ids());
        EXPECT_EQ(errors, gateway.log_texts(LOG_ERR));
        EXPECT_TRUE(gateway.exists(directory + "pinned"));
    }
}

TEST_F(import_test, a_definition_that_conflicts_is_refused_as_an_addition_and_used_up)
{
    const std::string bridged = "wanMode=0\nipProtocol=1\nservice=1\nvlanMode=1\nvid=100\n";

    import({definition("a", bridged), definition("b", bridged), definition("c", minimal)});

    EXPECT_EQ((text_lines{"1", "2"}), ids());
    EXPECT_EQ(text_lines{"Failed to add wan: vlan 100 exist"}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(text_lines{}, gateway.list_directory(directory));
}

} // namespace
