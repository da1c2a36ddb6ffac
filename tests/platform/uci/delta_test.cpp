// Delta files: what each line does, which lines are passed over, and when lines are written and removed.
#include "platform/uci/fixture.h"

#include <filesystem>

#include <sys/stat.h>

using namespace std::string_literals;

namespace {

namespace fs = std::filesystem;

class uci_delta_test : public uci_base_test {
protected:
    std::string export_with(const std::string &lines)
    {
        write_delta(lines);
        const context_owner fresh = new_context();
        uci_package *p = nullptr;
        EXPECT_EQ(uci_load(fresh.get(), "n", &p), UCI_OK);
        return p ? exported(fresh.get(), p) : "";
    }
};

struct line_case {
    const char *promise;
    std::string file, lines, written;
};

TEST_F(uci_delta_test, each_kind_of_line_makes_its_change)
{
    const std::string s = "config t s\n\toption o 1\n\tlist l a\n\tlist l b\n\tlist l a\n";
    const std::string head = "\nconfig t 's'\n", option = "\toption o '1'\n",
                      list = "\tlist l 'a'\n\tlist l 'b'\n\tlist l 'a'\n";
    const line_case cases[] = {
        {"create a named section", s, "n.x='u'\n", head + option + list + "\nconfig u 'x'\n\n"},
        {"change a type", s, "n.s='u'\n", "\nconfig u 's'\n" + option + list + "\n"},
        {"create an anonymous section", s, "+n.cfg021234='u'\nn.cfg021234.a='1'\n",
         head + option + list + "\nconfig u\n\toption a '1'\n\n"},
        {"create an anonymous section twice", s, "+n.cfg021234='u'\n+n.cfg021234='u'\n",
         head + option + list + "\nconfig u\n\n"},
        {"set an option", s, "n.s.o='2'\nn.s.p='3'\n",
         head + "\toption o '2'\n" + list + "\toption p '3'\n\n"},
        {"an empty value deletes", s, "n.s.o=''\n", head + list + "\n"},
        {"delete an option", s, "-n.s.o\n", head + list + "\n"},
        {"delete a section", s, "-n.s\n", "\n"},
        {"delete a list element", s, "-n.s.l='0'\n", head + option + "\tlist l 'b'\n\tlist l 'a'\n\n"},
        {"append to a list", s, "|n.s.l='c'\n", head + option + list + "\tlist l 'c'\n\n"},
        {"append to a plain option", s, "|n.s.o='2'\n", head + "\tlist o '1'\n\tlist o '2'\n" + list + "\n"},
        {"remove equal elements", s, "~n.s.l='a'\n", head + option + "\tlist l 'b'\n\n"},
        {"rename a section", s, "@n.s='z'\n", "\nconfig t 'z'\n" + option + list + "\n"},
        {"rename an option", s, "@n.s.o='z'\n", head + "\toption z '1'\n" + list + "\n"},
        {"move a section", s + "config t x\n", "^n.x='0'\n",
         "\nconfig t 'x'\n" + head + option + list + "\n"},
        {"unquoted and double-quoted values", s, "n.s.o=2\nn.s.p=\"3 4\"\n",
         head + "\toption o '2'\n" + list + "\toption p '3 4'\n\n"},
        {"a value across lines", s, "n.s.o='2\n3'\n", head + "\toption o '2\n3'\n" + list + "\n"},
        {"a value with separators", s, "n.s.o='a=b.c'\n", head + "\toption o 'a=b.c'\n" + list + "\n"},
        {"the last line may lack its newline", s, "n.s.o='2'", head + "\toption o '2'\n" + list + "\n"},
    };
    for (const line_case &test : cases) {
        SCOPED_TRACE(test.promise);
        write_config(test.file);
        EXPECT_EQ(export_with(test.lines), test.written);
    }
}

TEST_F(uci_delta_test, lines_that_cannot_be_used_are_passed_over)
{
    const char *const lines[] = {
        "garbage",
        "n",
        "n.lan",
        "n.lan.a",
        "other.lan.a='1'",
        "n.@device[0].a='1'",
        "n.la-n.a='1'",
        "n.lan.a-b='1'",
        "n.lan.a.b='1'",
        "n.lan.a='1' ",
        "n.lan.a='1' # c",
        "n.lan.a='1';",
        "n.lan.a=1#c",
        "n.lan.a='\x1b'",
        "n.zz.a='1'",
        "-n.zz",
        "-n.lan.zz",
        "-n",
        "+n.x",
        "+n.x.y='t'",
        "+n.x='a b'",
        "n.x='a b'",
        "|n.zz.l='1'",
        "|n.lan='1'",
        "|n.lan.l",
        "~n.zz.l='1'",
        "~n.lan='1'",
        "@n.zz='x'",
        "@n.lan",
        "@n.lan='a-b'",
        "@n.lan=''",
        "@n.lan.zz='x'",
        "^n.zz='1'",
        "^n.lan",
        "^n.lan='x'",
        "^n.lan.proto='1'",
        "-n.cfg020f15.ports='x'",
        "n.lan.a='1' n.lan.b='2'",
        "n..a='1'",
        ".lan.a='1'",
    };
    for (const char *line : lines) {
        SCOPED_TRACE(line);
        EXPECT_EQ(export_with(std::string(line) + "\nn.lan.last='1'\n"), export_with("n.lan.last='1'\n"));
        write_config(base_config);
        write_delta(std::string(line) + "\n");
        quietly({"commit"});
        EXPECT_EQ(delta(), std::string(line) + "\n"); // nothing applied, so nothing is dropped
        EXPECT_EQ(config(), base_config);
    }
}

TEST_F(uci_delta_test, removing_an_absent_value_counts_as_applied)
{
    for (const char *line : {"~n.lan.zz='1'\n", "~n.cfg020f15.ports='zz'\n", "n.lan.proto='static'\n"}) {
        SCOPED_TRACE(line);
        write_config(base_config);
        write_delta(line);
        quietly({"commit"});
        EXPECT_EQ(delta(), "");
        EXPECT_EQ(config(), written_base);
    }
}

TEST_F(uci_delta_test, a_list_emptied_by_the_delta_is_an_empty_list)
{
    write_delta("~n.cfg020f15.ports='a'\n~n.cfg020f15.ports='b'\n");
    uci_package *const p = load();

    uci_option *const ports = uci_lookup_option(ctx, uci_lookup_section(ctx, p, "cfg020f15"), "ports");

    ASSERT_NE(ports, nullptr);
    EXPECT_EQ(ports->type, UCI_TYPE_LIST);
    EXPECT_TRUE(uci_list_empty(&ports->v.list));
    EXPECT_EQ(exported(ctx, p).find("ports"), std::string::npos);
}

TEST_F(uci_delta_test, delta_directories_are_read_in_order)
{
    const std::string first = root + "/first", second = root + "/second";
    fs::create_directories(UCI_SAVEDIR);
    fs::create_directory(first);
    fs::create_directory(second);
    write(std::string(UCI_SAVEDIR) + "/n", "|n.lan.l='initial'\n");
    write(first + "/n", "|n.lan.l='first'\n");
    write(second + "/n", "|n.lan.l='second'\n");
    write_delta("|n.lan.l='own'\n");
    ASSERT_EQ(uci_add_delta_path(ctx, first.c_str()), UCI_OK);
    ASSERT_EQ(uci_add_delta_path(ctx, second.c_str()), UCI_OK);

    uci_package *p = load();
    const std::vector<std::string> expected = {"initial", "first", "second", "own"};
    EXPECT_EQ(values_of(ctx, uci_lookup_section(ctx, p, "lan"), "l"), expected);

    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_OK);
    EXPECT_EQ(values_of(ctx, uci_lookup_section(ctx, p, "lan"), "l"), expected);
    EXPECT_EQ(delta(), "");
    EXPECT_EQ(read(first + "/n"), "|n.lan.l='first'\n");
    EXPECT_EQ(read(std::string(UCI_SAVEDIR) + "/n"), "|n.lan.l='initial'\n");
}

TEST_F(uci_delta_test, a_delta_without_a_configuration_does_nothing)
{
    fs::remove(config_path());
    write_delta("n.s='t'\n");

    EXPECT_EQ(uci_load(ctx, "n", nullptr), UCI_ERR_NOTFOUND);
}

TEST_F(uci_delta_test, well_formed_lines_are_kept_for_listing_unless_switched_off)
{
    write_delta("garbage\nn.nosec.a='1'\nn.lan.a='2'\n");
    uci_package *p = load();
    std::vector<std::string> values;
    uci_element *e;
    uci_foreach_element(&p->saved_delta, e) values.emplace_back(uci_to_delta(e)->value);
    EXPECT_EQ(values, (std::vector<std::string>{"1", "2"}));
    uci_unload(ctx, p);

    ctx->flags = UCI_FLAG_STRICT;
    p = load();
    EXPECT_TRUE(uci_list_empty(&p->saved_delta));
}

// ---- saving ----

TEST_F(uci_delta_test, changes_are_saved_in_the_order_of_the_calls)
{
    uci_package *const p = load();
    uci_section *added = nullptr;
    uci_ptr ptr = named("n", "lan", "x", "it's\n2");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_add_section(ctx, p, "device", &added), UCI_OK);
    ptr = named("n", "w", nullptr, "t");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "l", "1");
    EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "l", "2");
    EXPECT_EQ(uci_del_list(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "l", "0");
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "proto", "p");
    EXPECT_EQ(uci_rename(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "p");
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    ptr = named("n", "g");
    EXPECT_EQ(uci_delete(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_reorder_section(ctx, added, 0), UCI_OK);
    const std::string in_memory = exported(ctx, p);

    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK); // nothing is left to save

    EXPECT_EQ(delta(), "n.lan.x='it'\\''s\n2'\n+n.cfg050f15='device'\nn.w='t'\n|n.lan.l='1'\n~n.lan.l='2'\n"
                       "-n.lan.l='0'\n@n.lan.proto='p'\n-n.lan.p\n-n.g\n^n.cfg050f15='0'\n");
    const context_owner fresh = new_context();
    uci_package *reloaded = nullptr;
    ASSERT_EQ(uci_load(fresh.get(), "n", &reloaded), UCI_OK);
    EXPECT_EQ(exported(fresh.get(), reloaded), in_memory);
}

TEST_F(uci_delta_test, nothing_to_save_touches_no_file)
{
    EXPECT_EQ(uci_save(ctx, load()), UCI_OK);
    EXPECT_FALSE(fs::exists(save_dir));
}

TEST_F(uci_delta_test, directory_and_file_get_the_modes_of_the_configuration)
{
    const mode_t old_mask = umask(022);
    fs::permissions(config_dir, fs::perms(0771));
    fs::permissions(config_path(), fs::perms(0666));
    quietly({"set n.lan.a=1"});
    umask(old_mask);

    EXPECT_EQ(fs::status(save_dir).permissions(), fs::perms(0751));
    EXPECT_EQ(fs::status(delta_path()).permissions(), fs::perms(0644));
}

TEST_F(uci_delta_test, a_failed_save_keeps_the_changes_in_memory)
{
    write(save_dir, "a file where the directory should be");
    uci_package *p = load();
    uci_ptr ptr = named("n", "lan", "a", "1");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);

    EXPECT_EQ(uci_save(ctx, p), UCI_ERR_IO);
    EXPECT_EQ(uci_commit(ctx, &p, false), UCI_ERR_IO);
    EXPECT_EQ(config(), base_config);

    fs::remove(save_dir);
    EXPECT_EQ(uci_save(ctx, p), UCI_OK);
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
}

TEST_F(uci_delta_test, only_one_level_of_the_save_directory_is_made)
{
    const std::string deep = root + "/none/deep";
    uci_ptr ptr = named("n", "lan", "a", "1");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    ASSERT_EQ(uci_set_savedir(ctx, deep.c_str()), UCI_OK);

    EXPECT_EQ(uci_save(ctx, ptr.p), UCI_ERR_IO);
    EXPECT_FALSE(fs::exists(root + "/none"));

    fs::create_directory(root + "/none");
    fs::create_directories(deep + "/n"); // a directory in the delta file's place
    EXPECT_EQ(uci_save(ctx, ptr.p), UCI_ERR_IO);
    fs::remove_all(deep);
    EXPECT_EQ(uci_save(ctx, ptr.p), UCI_OK);
    EXPECT_EQ(read(deep + "/n"), "n.lan.a='1'\n");
}

TEST_F(uci_delta_test, a_torn_last_line_does_not_take_the_next_one_along)
{
    write_delta("n.lan.b=to");

    quietly({"set n.lan.a=1"});

    EXPECT_EQ(delta(), "n.lan.b=to\nn.lan.a='1'\n");
}

TEST_F(uci_delta_test, a_line_cut_off_within_its_quotes_does_not_take_later_ones_along)
{
    const std::string whole = "n.g.u='2'\n";
    const std::pair<std::string, std::string> cases[] = {
        {"n.lan.b='to", ""},
        {"n.lan.b='to\nn.lan.c=2\n", ""},
        {"n.lan.b=\"to", ""},
        {"n.lan.b=\"to\\", ""},
        {"n.lan.b='it'\\''", ""},
        {"n.lan.b='it'\\", "n.lan.b='it'\\\n\n"},
        {"n.lan.b='it'", "n.lan.b='it'\n"},
        {"n.lan.b='to\0\0"s, ""},
        {"\0\0\0\0"s, ""},
        {"n.lan.b='it'\0\0"s, "n.lan.b='it'\n"},
        {"\0\0n.lan.c=2\nn.lan.b='it'\n"s, "n.lan.b='it'\n"},
    };
    for (const auto &[torn, left] : cases) {
        SCOPED_TRACE(torn);
        write_config(base_config);
        write_delta(whole + torn);

        quietly({"set n.lan.a=1", "set n.lan.d=3"});

        EXPECT_EQ(delta(), whole + left + "n.lan.a='1'\nn.lan.d='3'\n");
        quietly({"commit"});
        EXPECT_EQ(output_of("get n.g.u") + output_of("get n.lan.a") + output_of("get n.lan.d"), "2\n1\n3\n");
        EXPECT_EQ(uci("get n.lan.b").output, left.starts_with("n.lan.b='it'") ? "it\n" : "");
    }
}

TEST_F(uci_delta_test, a_revert_drops_what_zero_bytes_hide_as_well)
{
    write_delta("n.lan.a='1'\nn.g.a='1'\n\0\0\nn.g.b='2'\n\0\0"s);

    quietly({"revert n.lan"});

    EXPECT_EQ(delta(), "n.g.a='1'\nn.g.b='2'\n");
}

TEST_F(uci_delta_test, what_the_format_cannot_hold_is_lost_at_the_commit)
{
    uci_ptr ptr = named("n", "lan", "bad-name", "1");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "a", "\x1b");
    EXPECT_EQ(uci_set(ctx, &ptr), UCI_OK);
    EXPECT_EQ(uci_commit(ctx, &ptr.p, false), UCI_OK);

    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(), "n.lan.bad-name='1'\nn.lan.a='\x1b'\n");
}

// ---- reverting ----

TEST_F(uci_delta_test, a_revert_removes_the_lines_of_what_it_names)
{
    struct revert_case {
        const char *tuple;
        std::string left;
    };
    const std::string lines =
        "garbage\nn.lan.a='1\n2'\n|n.lan.b='1'\n@n.lan.a='c'\nn.g.a='1'\n-n.lan\nother.lan.a='1'\n";
    const revert_case cases[] = {
        {"n", ""},
        {"n.lan", "garbage\nn.g.a='1'\nother.lan.a='1'\n"},
        {"n.lan.a", "garbage\n|n.lan.b='1'\nn.g.a='1'\n-n.lan\nother.lan.a='1'\n"},
        {"n.lan.zz", lines},
        {"n.zz", lines},
        {"n.g", "garbage\nn.lan.a='1\n2'\n|n.lan.b='1'\n@n.lan.a='c'\n-n.lan\nother.lan.a='1'\n"},
    };
    for (const revert_case &test : cases) {
        SCOPED_TRACE(test.tuple);
        write_delta(lines);
        quietly({std::string("revert ") + test.tuple});
        EXPECT_EQ(delta(), test.left);
    }
}

TEST_F(uci_delta_test, a_revert_includes_changes_not_saved_yet)
{
    uci_ptr ptr = named("n", "lan", "proto", "x");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);
    ptr = named("n", "lan", "a", "1");
    ASSERT_EQ(uci_set(ctx, &ptr), UCI_OK);

    ptr = named("n", "lan", "proto");
    EXPECT_EQ(uci_revert(ctx, &ptr), UCI_OK);

    uci_section *const lan = uci_lookup_section(ctx, ptr.p, "lan");
    EXPECT_STREQ(uci_lookup_option_string(ctx, lan, "proto"), "static");
    EXPECT_STREQ(uci_lookup_option_string(ctx, lan, "a"), "1");
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
    uci_ptr missing = named("nope", nullptr);
    EXPECT_EQ(uci_revert(ctx, &missing), UCI_ERR_NOTFOUND);
}

TEST_F(uci_delta_test, a_revert_by_reference_survives_the_reload)
{
    quietly({"set n.@device[1].name=x", "set n.lan.a=1", "revert n.@device[1]"});
    EXPECT_EQ(delta(), "n.lan.a='1'\n");
}

} // namespace
