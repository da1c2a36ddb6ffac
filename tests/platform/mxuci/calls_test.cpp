// What each mxuci call does, returns and leaves on disk.
#include <mxuci.h>

#include "support/gateway.h"

#include <cstring>
#include <uci.h>

namespace {

const char base[] = "\nconfig globals 'g'\n\toption one '1'\n\tlist many 'a'\n\tlist many 'b c'\n"
                    "\nconfig device\n\toption name 'first'\n"
                    "\nconfig device\n\toption name 'second'\n"
                    "\nconfig device 'named'\n\toption name 'third'\n\n";

class mxuci_calls_test : public gateway_test {
protected:
    mxuci_calls_test() { gateway.set_config("t", base); }

    std::string stored() const { return gateway.config("t"); }

    // What mxuci_get() reads into a large buffer; nothing when it fails.
    static std::optional<std::string> read(const char *section, const char *option)
    {
        char buffer[256] = {};
        if (mxuci_get("t", section, option, buffer, sizeof(buffer)) != 0)
            return std::nullopt;
        return buffer;
    }
};

TEST_F(mxuci_calls_test, get_reads_options_lists_and_references)
{
    struct {
        const char *section, *option, *value;
    } const cases[] = {
        {"g", "one", "1"},
        {"g", "many", "a b c"},
        {"named", "name", "third"},
        {"@device[0]", "name", "first"},
        {"@device[1]", "name", "second"},
        {"@device[2]", "name", "third"},
        {"@device[-1]", "name", "third"},
        {"@device[-3]", "name", "first"},
        {"cfg020f15", "name", "first"},
        {"@globals[0]", "one", "1"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.section) + "." + row.option);
        EXPECT_EQ(read(row.section, row.option), row.value);
    }
}

TEST_F(mxuci_calls_test, get_cuts_at_the_buffers_size)
{
    struct {
        const char *option;
        size_t size;
        const char *value;
    } const cases[] = {{"many", 7, "a b c"}, {"many", 6, "a b c"}, {"many", 5, "a b "}, {"many", 4, "a b"},
                       {"many", 3, "a "},    {"many", 2, "a"},     {"many", 1, ""},     {"one", 3, "1"},
                       {"one", 2, "1"},      {"one", 1, ""}};
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.option) + " in " + std::to_string(row.size));
        char buffer[9];
        memset(buffer, '#', sizeof(buffer));

        EXPECT_EQ(mxuci_get("t", "g", row.option, buffer, row.size), 0);

        EXPECT_STREQ(buffer, row.value);
        EXPECT_EQ(std::string(buffer + row.size, sizeof(buffer) - row.size),
                  std::string(sizeof(buffer) - row.size, '#'))
            << "nothing behind the buffer's end";
    }
}

TEST_F(mxuci_calls_test, a_failed_get_leaves_the_buffer_alone)
{
    gateway.set_config("broken", "config device\n\toption 'unfinished\n");
    struct {
        const char *config, *section, *option;
        int result;
    } const cases[] = {
        {"t", "g", "none", UCI_ERR_NOTFOUND},
        {"t", "none", "one", UCI_ERR_NOTFOUND},
        {"t", "@device[3]", "name", UCI_ERR_NOTFOUND},
        {"t", "@device[-4]", "name", UCI_ERR_NOTFOUND},
        {"t", "@none[0]", "name", UCI_ERR_NOTFOUND},
        {"none", "g", "one", UCI_ERR_NOTFOUND},
        {"broken", "@device[0]", "name", UCI_ERR_PARSE},
        {"t", "@device", "name", UCI_ERR_INVAL},
        {"t", "@device[x]", "name", UCI_ERR_INVAL},
        {"t", "", "one", UCI_ERR_INVAL},
        {"t", "g", "", UCI_ERR_INVAL},
        {"t", "g.one", "x", UCI_ERR_INVAL},
        {"t", "g", "one=2", UCI_ERR_INVAL},
        {"", "g", "one", UCI_ERR_INVAL},
        {"../config/t", "g", "one", UCI_ERR_INVAL},
        {nullptr, "g", "one", UCI_ERR_INVAL},
        {"t", nullptr, "one", UCI_ERR_INVAL},
        {"t", "g", nullptr, UCI_ERR_INVAL},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(std::string(row.config ? row.config : "null") + "." +
                     (row.section ? row.section : "null") + "." + (row.option ? row.option : "null"));
        char buffer[] = "unchanged";

        EXPECT_EQ(mxuci_get(row.config, row.section, row.option, buffer, sizeof(buffer)), row.result);

        EXPECT_STREQ(buffer, "unchanged");
    }
    char buffer[] = "unchanged";
    EXPECT_NE(mxuci_get("t", "g", "one", buffer, 0), 0);
    EXPECT_STREQ(buffer, "unchanged");
    EXPECT_NE(mxuci_get("t", "g", "one", nullptr, 8), 0);
    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_calls_test, set_is_on_disk_when_it_returns)
{
    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);
    EXPECT_EQ(mxuci_set("t", "g", "many", "plain"), 0) << "a list becomes plain";
    EXPECT_EQ(mxuci_set("t", "@device[1]", "added", "it's = a.value\nof two lines"), 0);
    EXPECT_EQ(mxuci_set("t", "@device[-1]", "name", "3rd"), 0);

    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\toption one '2'\n\toption many 'plain'\n"
                        "\nconfig device\n\toption name 'first'\n"
                        "\nconfig device\n\toption name 'second'\n"
                        "\toption added 'it'\\''s = a.value\nof two lines'\n"
                        "\nconfig device 'named'\n\toption name '3rd'\n\n");
    EXPECT_EQ(read("@device[1]", "added"), "it's = a.value\nof two lines");
}

TEST_F(mxuci_calls_test, setting_what_is_there_succeeds)
{
    EXPECT_EQ(mxuci_set("t", "g", "one", "1"), 0);

    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_calls_test, setting_an_empty_value_deletes_the_option)
{
    EXPECT_EQ(mxuci_set("t", "g", "one", ""), 0);
    EXPECT_EQ(mxuci_set("t", "g", "many", ""), 0);
    EXPECT_EQ(mxuci_set("t", "g", "none", ""), 0) << "there was none";

    EXPECT_EQ(gateway.uci_options("t.g"), text_lines{});
    EXPECT_EQ(gateway.uci_get("t.g"), "globals");
}

TEST_F(mxuci_calls_test, long_values_are_kept_whole)
{
    const std::string value(100000, 'v');

    EXPECT_EQ(mxuci_set("t", "g", "one", value.c_str()), 0);

    EXPECT_EQ(gateway.uci_get("t.g.one"), value);
}

TEST_F(mxuci_calls_test, add_list_appends)
{
    EXPECT_EQ(mxuci_add_list("t", "g", "many", "d"), 0);
    EXPECT_EQ(mxuci_add_list("t", "g", "many", "a"), 0) << "twice is fine";
    EXPECT_EQ(mxuci_add_list("t", "g", "fresh", "x"), 0) << "a missing option becomes a list";
    EXPECT_EQ(mxuci_add_list("t", "g", "one", "2"), 0) << "a plain one the list's first value";
    EXPECT_EQ(mxuci_add_list("t", "@device[-2]", "ports", "y"), 0);

    EXPECT_EQ(gateway.uci_list("t.g.many"), (text_lines{"a", "b c", "d", "a"}));
    EXPECT_NE(stored().find("\tlist fresh 'x'\n"), std::string::npos);
    EXPECT_NE(stored().find("\tlist one '1'\n\tlist one '2'\n"), std::string::npos);
    EXPECT_EQ(gateway.uci_list("t.@device[1].ports"), text_lines{"y"});
}

TEST_F(mxuci_calls_test, del_list_removes_every_equal_entry)
{
    ASSERT_EQ(mxuci_add_list("t", "g", "many", "a"), 0);

    EXPECT_EQ(mxuci_del_list("t", "g", "many", "a"), 0);
    EXPECT_EQ(gateway.uci_list("t.g.many"), text_lines{"b c"});
    EXPECT_EQ(mxuci_del_list("t", "g", "many", "b"), 0) << "nothing to remove";
    EXPECT_EQ(mxuci_del_list("t", "g", "none", "b"), 0) << "no such option";
    EXPECT_EQ(gateway.uci_list("t.g.many"), text_lines{"b c"});
    EXPECT_EQ(mxuci_del_list("t", "g", "many", "b c"), 0);
    EXPECT_EQ(gateway.uci_get("t.g.many"), std::nullopt) << "an emptied list is gone";
    EXPECT_NE(mxuci_del_list("t", "none", "many", "a"), 0) << "no such section";
}

TEST_F(mxuci_calls_test, total_list_counts)
{
    struct {
        const char *section, *option;
        int count;
    } const cases[] = {{"g", "many", 2}, {"g", "one", 1}, {"g", "none", 0}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.option);
        int count = -1;

        EXPECT_EQ(mxuci_total_list("t", row.section, row.option, &count), 0);

        EXPECT_EQ(count, row.count);
    }
    int count = -1;
    EXPECT_NE(mxuci_total_list("none", "g", "many", &count), 0);
    EXPECT_EQ(count, -1);
    EXPECT_NE(mxuci_total_list("t", "g", "many", nullptr), 0);
}

TEST_F(mxuci_calls_test, a_change_where_there_is_no_section_fails_and_makes_none)
{
    for (const char *section : {"none", "@device[3]", "@device[-4]", "@none[0]", "bad-name", ""}) {
        SCOPED_TRACE(section);
        EXPECT_NE(mxuci_set("t", section, "x", "1"), 0);
        EXPECT_NE(mxuci_set("t", section, "x", ""), 0);
        EXPECT_NE(mxuci_add_list("t", section, "x", "1"), 0);
        EXPECT_NE(mxuci_del_list("t", section, "x", "1"), 0);
        EXPECT_NE(mxuci_delete("t", section, "x"), 0);
        EXPECT_NE(mxuci_del_section("t", section), 0);
    }
    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_calls_test, a_change_of_a_configuration_that_cannot_be_read_fails)
{
    const std::string broken = "config device\n\toption 'unfinished\n";
    gateway.set_config("broken", broken);
    for (const char *config : {"none", "broken", "", "a/b", "."}) {
        SCOPED_TRACE(config);
        char name[16] = "";
        EXPECT_NE(mxuci_set(config, "g", "one", "1"), 0);
        EXPECT_NE(mxuci_add_list(config, "g", "one", "1"), 0);
        EXPECT_NE(mxuci_del_section(config, "g"), 0);
        EXPECT_NE(mxuci_add_section(config, "device", name), 0);
        EXPECT_STREQ(name, "");
    }
    EXPECT_EQ(gateway.config("broken"), broken);
    EXPECT_FALSE(gateway.exists("/etc/config/none"));
}

TEST_F(mxuci_calls_test, missing_arguments_are_refused)
{
    char name[16] = "";
    EXPECT_NE(mxuci_set("t", "g", nullptr, "1"), 0);
    EXPECT_NE(mxuci_set("t", "g", "one", nullptr), 0);
    EXPECT_NE(mxuci_add_list("t", "g", "one", nullptr), 0);
    EXPECT_NE(mxuci_del_list("t", "g", "one", nullptr), 0);
    EXPECT_NE(mxuci_delete("t", "g", nullptr), 0);
    EXPECT_NE(mxuci_del_section("t", nullptr), 0);
    EXPECT_NE(mxuci_add_section("t", nullptr, name), 0);
    EXPECT_NE(mxuci_add_section("t", "", name), 0);
    EXPECT_NE(mxuci_add_section("t", "two words", name), 0);
    EXPECT_NE(mxuci_add_section("t", "device", nullptr), 0);
    EXPECT_STREQ(name, "");
    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_calls_test, names_that_are_too_long_are_refused_and_not_cut)
{
    const std::string longest_config(115, 'c'); // with "/etc/config/" before it, 127 characters
    gateway.set_config(longest_config, base);
    gateway.set_config(longest_config + "c", base);
    EXPECT_EQ(mxuci_set(longest_config.c_str(), "g", "one", "2"), 0);
    EXPECT_EQ(gateway.uci_get(longest_config + ".g.one"), "2");
    EXPECT_NE(mxuci_set((longest_config + "c").c_str(), "g", "one", "2"), 0);
    EXPECT_EQ(gateway.config(longest_config + "c"), base);

    const std::string longest_option(511 - strlen("t.g."), 'o');
    EXPECT_EQ(mxuci_set("t", "g", longest_option.c_str(), "2"), 0);
    EXPECT_EQ(read("g", longest_option.c_str()), "2");
    EXPECT_NE(mxuci_set("t", "g", (longest_option + "o").c_str(), "3"), 0);
    EXPECT_EQ(read("g", longest_option.c_str()), "2");
}

TEST_F(mxuci_calls_test, a_sections_type_is_made_of_visible_characters)
{
    for (const char *type :
         {"two words", "tab\t", "line\n", "del\x7f", "\xc3\xbc", "a'b", "a\"b", "a#b", "a;b", "a\\b"}) {
        SCOPED_TRACE(type);
        char name[16] = "";
        char given[16] = "given";
        EXPECT_NE(mxuci_add_section("t", type, name), 0);
        EXPECT_NE(mxuci_add_section("t", type, given), 0);
        EXPECT_STREQ(name, "");
    }
    EXPECT_EQ(stored(), base);
    char name[16] = "";
    EXPECT_EQ(mxuci_add_section("t", "!~", name), 0);
}

TEST_F(mxuci_calls_test, sections_are_added_at_the_end_under_a_generated_or_a_given_name)
{
    char generated[16] = "";
    char given[16] = "wan_1";

    EXPECT_EQ(mxuci_add_section("t", "device", generated), 0);
    EXPECT_EQ(mxuci_add_section("t", "interface", given), 0);
    EXPECT_EQ(mxuci_set("t", generated, "name", "new"), 0);

    EXPECT_STREQ(generated, "cfg050f15");
    EXPECT_STREQ(given, "wan_1");
    std::string expected = base;
    expected.pop_back();
    EXPECT_EQ(stored(), expected + "\nconfig device\n\toption name 'new'\n\nconfig interface 'wan_1'\n\n");
}

TEST_F(mxuci_calls_test, a_section_is_not_added_under_a_bad_name)
{
    char bad[16] = "bad-name";

    EXPECT_NE(mxuci_add_section("t", "device", bad), 0);

    EXPECT_STREQ(bad, "bad-name");
    EXPECT_EQ(stored(), base);
}

TEST_F(mxuci_calls_test, generated_names_of_ten_characters_can_be_used)
{
    std::string text;
    for (int i = 0; i < 1000; i++)
        text += "\nconfig device\n\toption name '" + std::to_string(i) + "'\n";
    gateway.set_config("t", text);
    char name[16] = "";

    EXPECT_EQ(mxuci_add_section("t", "device", name), 0);
    EXPECT_STREQ(name, "cfg3e90f15");
    EXPECT_EQ(mxuci_set("t", name, "name", "new"), 0);
    EXPECT_EQ(gateway.uci_get("t.@device[1000].name"), "new");

    EXPECT_EQ(mxuci_del_section("t", name), 0);
    EXPECT_EQ(gateway.uci_get("t.@device[1000]"), std::nullopt);
    EXPECT_EQ(gateway.uci_get("t.@device[999].name"), "999");
}

TEST_F(mxuci_calls_test, sections_and_options_are_deleted)
{
    EXPECT_EQ(mxuci_delete("t", "g", "one"), 0);
    EXPECT_EQ(mxuci_delete("t", "g", "many"), 0);
    EXPECT_NE(mxuci_delete("t", "g", "one"), 0) << "there is none any more";
    EXPECT_EQ(mxuci_del_section("t", "@device[0]"), 0);
    EXPECT_EQ(mxuci_del_section("t", "named"), 0);
    EXPECT_NE(mxuci_del_section("t", "named"), 0) << "there is none any more";

    EXPECT_EQ(stored(), "\nconfig globals 'g'\n\nconfig device\n\toption name 'second'\n\n");
}

TEST_F(mxuci_calls_test, sections_behind_a_deleted_one_get_new_names)
{
    EXPECT_EQ(mxuci_del_section("t", "cfg020f15"), 0);

    EXPECT_EQ(read("cfg020f15", "name"), "second");
}

TEST_F(mxuci_calls_test, changes_that_others_left_pending_are_seen_and_written_along)
{
    ASSERT_EQ(run_program({"uci", "set", "t.g.one=pending"}).status, 0);
    EXPECT_EQ(read("g", "one"), "pending");
    EXPECT_EQ(stored(), base) << "reading commits nothing";

    EXPECT_EQ(mxuci_add_list("t", "g", "many", "own"), 0);

    EXPECT_NE(stored().find("option one 'pending'"), std::string::npos);
    EXPECT_EQ(gateway.file("/tmp/.uci/t"), "") << "nothing is pending any more";
    EXPECT_EQ(run_program({"uci", "changes", "t"}).output, "");
}

TEST_F(mxuci_calls_test, a_failed_change_leaves_what_is_pending)
{
    ASSERT_EQ(run_program({"uci", "set", "t.g.one=pending"}).status, 0);

    EXPECT_NE(mxuci_set("t", "none", "x", "1"), 0);

    EXPECT_EQ(stored(), base);
    EXPECT_EQ(read("g", "one"), "pending");
}

TEST_F(mxuci_calls_test, a_name_generated_while_a_deletion_is_pending_stays_valid)
{
    ASSERT_EQ(run_program({"uci", "delete", "t.@device[0]"}).status, 0);
    char name[16] = "";

    EXPECT_EQ(mxuci_add_section("t", "device", name), 0);
    EXPECT_EQ(mxuci_set("t", name, "name", "new"), 0);
    EXPECT_EQ(mxuci_add_list("t", name, "ports", "p"), 0);

    EXPECT_EQ(gateway.uci_get("t.@device[2].name"), "new");
    EXPECT_EQ(gateway.uci_get("t.@device[2].ports"), "p");
    EXPECT_EQ(gateway.uci_get("t.@device[0].name"), "second");
    EXPECT_EQ(gateway.uci_get("t.@device[3]"), std::nullopt);
}

TEST_F(mxuci_calls_test, other_configurations_are_not_touched)
{
    gateway.set_config("other", base);
    ASSERT_EQ(run_program({"uci", "set", "other.g.one=pending"}).status, 0);

    EXPECT_EQ(mxuci_set("t", "g", "one", "2"), 0);

    EXPECT_EQ(gateway.config("other"), base);
    EXPECT_NE(gateway.file("/tmp/.uci/other"), "");
}

} // namespace
