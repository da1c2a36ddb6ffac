// The command-line tool: what it prints, what it returns, and what is in the files afterwards.
#include "platform/uci/fixture.h"

#include <filesystem>
#include <fstream>

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

constexpr auto unknown_entry = "uci: Entry not found\n";
constexpr auto invalid_argument = "uci: Invalid argument\n";

class uci_tool_test : public uci_base_test {
protected:
    void expect_failure(const std::string &words, int status, const std::string &errors)
    {
        SCOPED_TRACE(words);
        const program_result result = uci(words);
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, errors);
    }
};

TEST_F(uci_tool_test, get_prints_types_values_and_lists)
{
    EXPECT_EQ(output_of("get n.lan"), "interface\n");
    EXPECT_EQ(output_of("get n.@device[-1].name"), "pon.1\n");
    EXPECT_EQ(output_of("get n.@[2].proto"), "static\n");
    EXPECT_EQ(output_of("get n.@device[0].ports"), "a b\n");
    EXPECT_EQ(output_of("get n"), "");
}

TEST_F(uci_tool_test, get_tells_what_is_missing_from_what_is_malformed)
{
    expect_failure("get n.lan.nope", 1, unknown_entry);
    expect_failure("get n.nope", 1, unknown_entry);
    expect_failure("get n.@device[2]", 1, unknown_entry);
    expect_failure("get nope.lan", 1, unknown_entry);
    expect_failure("get n.@device", 1, invalid_argument);
    expect_failure("get n.@device[x]", 1, invalid_argument);
    expect_failure("get n.@device[0]y", 1, invalid_argument);
    expect_failure("get n.foo-bar", 1, invalid_argument);
    expect_failure("get n.lan.a.b", 1, "uci: Parse error\n");
    expect_failure("get n.lan=x", 1, "");
}

TEST_F(uci_tool_test, misuse_is_answered_by_the_usage)
{
    for (const char *words :
         {"bogus", "get", "get n n", "set", "add n", "add n t x", "show n n", "batch x"}) {
        SCOPED_TRACE(words);
        const program_result result = uci(words);
        EXPECT_EQ(result.status, 255);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors.substr(0, 10), "Usage: uci");
    }
    EXPECT_EQ(uci("-m import").status, 255);
    EXPECT_EQ(uci("-m import").errors.substr(0, 10), "Usage: uci");
    EXPECT_EQ(uci("-q bogus").errors.substr(0, 10), "Usage: uci");
    for (const char *words : {"", "help", "-z", "-q help"}) {
        SCOPED_TRACE(words);
        const program_result result = uci(words);
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.errors.find("Usage: uci"), std::string::npos);
    }
}

TEST_F(uci_tool_test, show_prints_a_package_with_references)
{
    const std::string shown = "n.g=globals\nn.g.u='1'\nn.@device[0]=device\nn.@device[0].name='br-lan'\n"
                              "n.@device[0].ports='a' 'b'\nn.lan=interface\nn.lan.proto='static'\n"
                              "n.@device[1]=device\nn.@device[1].name='pon.1'\n";
    EXPECT_EQ(output_of("show n"), shown);
    EXPECT_EQ(output_of("SHOW n"), shown);
}

TEST_F(uci_tool_test, show_counts_named_sections_along)
{
    write_config("config t a\nconfig t\nconfig u\nconfig t b\nconfig t\n");

    EXPECT_EQ(output_of("show n"), "n.a=t\nn.@t[1]=t\nn.@u[0]=u\nn.b=t\nn.@t[3]=t\n");
}

TEST_F(uci_tool_test, show_prints_a_section_with_its_generated_name)
{
    EXPECT_EQ(output_of("show n.@device[0]"),
              "n.cfg020f15=device\nn.cfg020f15.name='br-lan'\nn.cfg020f15.ports='a' 'b'\n");
    EXPECT_EQ(output_of("-d , show n.cfg020f15.ports"), "n.cfg020f15.ports='a','b'\n");
    EXPECT_EQ(output_of("-d , get n.cfg020f15.ports"), "a,b\n");
    expect_failure("show n.nope", 1, unknown_entry);
}

TEST_F(uci_tool_test, set_is_pending_until_a_commit)
{
    quietly({"set n.lan.proto=dhcp"});

    EXPECT_EQ(output_of("changes"), "n.lan.proto='dhcp'\n");
    EXPECT_EQ(delta(), "n.lan.proto='dhcp'\n");
    EXPECT_EQ(config(), base_config);
}

TEST_F(uci_tool_test, what_changes_nothing_is_not_saved)
{
    quietly({"set n.lan.proto=static", "set n.lan.nope=", "del_list n.lan.proto=static", "del_list n.lan=x"});

    EXPECT_EQ(delta(), std::nullopt);
    EXPECT_EQ(config(), base_config);
}

TEST_F(uci_tool_test, values_are_escaped_and_an_empty_one_deletes)
{
    quietly({"set n.lan.x=it's", "set n.lan.proto="});

    EXPECT_EQ(delta(), "n.lan.x='it'\\''s'\n-n.lan.proto\n");
}

TEST_F(uci_tool_test, a_new_section_is_committed_at_the_end)
{
    quietly({"set n.wan=interface", "set n.wan.proto=dhcp", "commit n"});

    EXPECT_EQ(delta(), "");
    EXPECT_EQ(config(), written_base + "config interface 'wan'\n\toption proto 'dhcp'\n\n");
}

TEST_F(uci_tool_test, changes_need_their_section_and_a_value)
{
    expect_failure("set n.wan.proto=dhcp", 1, invalid_argument);
    expect_failure("add_list n.nosec.l=1", 1, invalid_argument);
    expect_failure("set n.lan", 1, invalid_argument);
    expect_failure("set n=x", 1, invalid_argument);
    expect_failure("set n.foo-bar=x", 1, invalid_argument);
    expect_failure("set n.lan.a-b=x", 1, "uci: Parse error\n");
    expect_failure("set nope.lan.a=x", 1, unknown_entry);
    expect_failure("add_list n.lan=1", 1, invalid_argument);
    expect_failure("del_list n=1", 1, invalid_argument);
    EXPECT_EQ(delta(), std::nullopt);
}

TEST_F(uci_tool_test, delta_lines_carry_resolved_names)
{
    quietly({"set n.@device[1].name=p"});

    EXPECT_EQ(delta(), "n.cfg040f15.name='p'\n");
}

TEST_F(uci_tool_test, an_added_section_can_be_used_before_the_commit)
{
    EXPECT_EQ(output_of("add n device"), "cfg050f15\n");
    quietly({"set n.@device[-1].name=x"});
    EXPECT_EQ(output_of("show n.cfg050f15.name"), "n.cfg050f15.name='x'\n");
    quietly({"commit"});

    EXPECT_EQ(delta(), "");
    EXPECT_EQ(config(), written_base + "config device\n\toption name 'x'\n\n");
}

TEST_F(uci_tool_test, generated_names_follow_positions_after_a_commit)
{
    quietly({"delete n.@device[0]"});
    EXPECT_EQ(output_of("add n device"), "cfg050f15\n");
    quietly({"commit"});

    EXPECT_EQ(output_of("-X show n"),
              "n.g=globals\nn.g.u='1'\nn.lan=interface\nn.lan.proto='static'\nn.cfg030f15=device\n"
              "n.cfg030f15.name='pon.1'\nn.cfg040f15=device\n");
}

TEST_F(uci_tool_test, deleting_with_a_commit_each_hits_every_other_section)
{
    const char *const names[] = {"cfg020f15", "cfg030f15", "cfg040f15", "cfg050f15", "cfg060f15"};
    const std::string six =
        "config device\n\toption i 1\nconfig device\n\toption i 2\nconfig device\n\toption i 3\n"
        "config device\n\toption i 4\nconfig device\n\toption i 5\nconfig device\n\toption i 6\n";
    write_config(six);
    std::vector<int> results;
    for (const char *name : names) {
        results.push_back(uci(std::string("delete n.") + name).status);
        quietly({"commit"});
    }
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 1, 1}));
    EXPECT_EQ(output_of("show n"),
              "n.@device[0]=device\nn.@device[0].i='1'\nn.@device[1]=device\nn.@device[1].i='3'\n"
              "n.@device[2]=device\nn.@device[2].i='5'\n");

    write_config(six);
    for (const char *name : names)
        quietly({std::string("delete n.") + name});
    quietly({"commit"});
    EXPECT_EQ(output_of("show n"), "n.@device[0]=device\nn.@device[0].i='1'\n");
}

TEST_F(uci_tool_test, missing_packages_and_elements_fail)
{
    expect_failure("add nope t", 3, unknown_entry);
    write(config_path("bad"), "foo\n");
    expect_failure("add bad t", 5, "uci: Parse error (invalid command) at line 1, byte 0\n");
    expect_failure("add .bad t", 3, unknown_entry);
    expect_failure("delete n.lan.nope", 1, unknown_entry);
    expect_failure("delete n", 1, invalid_argument);
    expect_failure("commit nope", 1, unknown_entry);
    expect_failure("revert nope", 1, unknown_entry);
    expect_failure("-q commit nope", 1, "");
}

TEST_F(uci_tool_test, add_list_makes_a_list_of_an_option)
{
    quietly({"add_list n.lan.proto=x"});

    EXPECT_EQ(output_of("show n.lan.proto"), "n.lan.proto='static' 'x'\n");
    EXPECT_EQ(output_of("changes"), "n.lan.proto+='x'\n");
    EXPECT_EQ(delta(), "|n.lan.proto='x'\n");
}

TEST_F(uci_tool_test, a_list_emptied_is_there_until_the_commit)
{
    quietly({"del_list n.@device[0].ports=a", "del_list n.@device[0].ports=b"});
    EXPECT_EQ(output_of("get n.@device[0].ports"), "\n");
    EXPECT_EQ(output_of("changes"), "n.cfg020f15.ports-='a'\nn.cfg020f15.ports-='b'\n");
    quietly({"commit"});

    expect_failure("get n.@device[0].ports", 1, unknown_entry);
}

TEST_F(uci_tool_test, delete_takes_the_index_of_a_list_element)
{
    quietly({"delete n.@device[0].ports=0"});

    EXPECT_EQ(output_of("show n.@device[0].ports"), "n.cfg020f15.ports='b'\n");
    EXPECT_EQ(output_of("changes"), "-n.cfg020f15.ports\n");
    EXPECT_EQ(delta(), "-n.cfg020f15.ports='0'\n");
    expect_failure("delete n.@device[0].ports=x", 1, "");
    quietly({"del n.@device[0].ports=7"});
    EXPECT_EQ(delta(), "-n.cfg020f15.ports='0'\n");
}

TEST_F(uci_tool_test, delete_with_a_value_that_is_no_number_deletes_nothing)
{
    for (const char *tuple : {"n.lan=static", "n.lan.proto=x", "n.lan.proto=static", "n.@device[0]=device",
                              "n.@device[0].ports=a", "n.lan=-", "n.lan.nope=x", "n=x"}) {
        expect_failure(std::string("delete ") + tuple, 1, "");
        expect_failure(std::string("-q del ") + tuple, 1, "");
    }
    EXPECT_EQ(delta(), std::nullopt);

    quietly({"delete n.lan.proto=0", "delete n.lan=", "delete n.g=7"});
    EXPECT_EQ(delta(), "-n.lan.proto\n-n.lan\n-n.g\n");
}

TEST_F(uci_tool_test, renamed_and_moved_sections_are_committed_so)
{
    quietly({"rename n.lan=l2"});
    EXPECT_EQ(output_of("changes"), "n.lan='l2'\n");
    quietly({"reorder n.l2=0"});
    EXPECT_EQ(output_of("changes"), "n.lan='l2'\nn.l2='0'\n");
    quietly({"commit"});

    EXPECT_EQ(config(), "\nconfig interface 'l2'\n\toption proto 'static'\n"
                        "\nconfig globals 'g'\n\toption u '1'\n"
                        "\nconfig device\n\toption name 'br-lan'\n\tlist ports 'a'\n\tlist ports 'b'\n"
                        "\nconfig device\n\toption name 'pon.1'\n\n");
    expect_failure("reorder n.nope=1", 1, unknown_entry);
    expect_failure("reorder n.l2", 1, unknown_entry);
    expect_failure("reorder n=0", 1, unknown_entry);
    expect_failure("reorder n.l2.proto=0", 1, invalid_argument);
    expect_failure("rename n.nope=x", 1, unknown_entry);
}

TEST_F(uci_tool_test, a_position_is_the_number_that_a_value_begins_with)
{
    const struct {
        std::string value, position;
    } cases[] = {{"x", "0"},
                 {"", "0"},
                 {"-1", "-1"},
                 {"1x", "1"},
                 {"+1", "1"},
                 {"3.9", "3"},
                 {"99999999999999999999", "2147483647"}};
    for (const auto &test : cases) {
        SCOPED_TRACE(test.value);
        write_config(base_config);
        write_delta("");

        quietly({"reorder n.lan=" + test.value});

        EXPECT_EQ(delta(), "^n.lan='" + test.position + "'\n");
    }
}

TEST_F(uci_tool_test, an_option_can_be_renamed)
{
    quietly({"ren n.lan.proto=p2", "commit"});

    EXPECT_EQ(output_of("show n.lan"), "n.lan=interface\nn.lan.p2='static'\n");
}

TEST_F(uci_tool_test, revert_drops_what_it_names)
{
    quietly({"set n.lan.a=1", "set n.lan.b=2", "set n.w=t", "revert n.lan.a", "revert n.w"});

    EXPECT_EQ(delta(), "n.lan.b='2'\n");
    quietly({"revert n", "revert n"});
    EXPECT_EQ(delta(), "");
}

TEST_F(uci_tool_test, a_protected_save_directory_is_never_committed)
{
    const std::string other = root + "/other";
    quietly({"-P " + other + " set n.lan.a=1", "-P " + other + " commit"});
    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(read(other + "/n"), "n.lan.a='1'\n");

    quietly({"-p " + other + " commit"});
    EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
    EXPECT_EQ(read(other + "/n"), "n.lan.a='1'\n");
}

TEST_F(uci_tool_test, commit_takes_a_package_by_any_tuple)
{
    quietly({"commit n.lan"});
    EXPECT_EQ(config(), base_config);
    quietly({"set n.lan.a=1", "commit n.lan.nosuch"});

    EXPECT_EQ(delta(), "");
    EXPECT_NE(config()->find("\toption a '1'\n"), std::string::npos);
}

TEST_F(uci_tool_test, delta_lines_that_do_not_apply_are_listed_and_dropped)
{
    write_delta("garbage\nn.nosec.a='1'\nn.lan.a='1'\n-n.lan.nope\n");

    EXPECT_EQ(output_of("changes"), "n.nosec.a='1'\nn.lan.a='1'\n-n.lan.nope\n");
    quietly({"commit"});

    EXPECT_EQ(delta(), "");
    EXPECT_EQ(config(), "\nconfig globals 'g'\n\toption u '1'\n"
                        "\nconfig device\n\toption name 'br-lan'\n\tlist ports 'a'\n\tlist ports 'b'\n"
                        "\nconfig interface 'lan'\n\toption proto 'static'\n\toption a '1'\n"
                        "\nconfig device\n\toption name 'pon.1'\n\n");
}

TEST_F(uci_tool_test, a_delta_of_which_nothing_applies_stays)
{
    write_delta("garbage\nn.nosec.a='1'\n");
    quietly({"commit"});

    EXPECT_EQ(delta(), "garbage\nn.nosec.a='1'\n");
    EXPECT_EQ(config(), base_config);
}

// ---- batch ----

TEST_F(uci_tool_test, batch_runs_lines_from_standard_input)
{
    write(root + "/input", "set n.lan.a='x y' # c\nbogus\n\nget n.lan.a\n");

    const program_result result = run_program(
        {"sh", "-c", "exec uci -c " + config_dir + " -t " + save_dir + " -C '' batch <" + root + "/input"});

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "x y\n");
    EXPECT_EQ(result.errors, "Unknown command\n");
}

TEST_F(uci_tool_test, batch_answers_each_line_before_the_next_one_is_written)
{
    const std::string input = root + "/input", output = root + "/output";
    ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
    child_process batch({"uci", "-c", config_dir, "-t", save_dir, "-C", "", "-f", input, "batch"}, {},
                        output);
    std::ofstream commands(input);

    commands << "get n.lan\n" << std::flush;
    EXPECT_TRUE(wait_until([&] { return read(output) == "interface\n"; }));
    commands << "get n.g\n" << std::flush;
    EXPECT_TRUE(wait_until([&] { return read(output) == "interface\nglobals\n"; }));

    commands.close();
    EXPECT_EQ(batch.wait(), 0);
}

struct batch_case {
    const char *promise;
    std::string input, output, errors;
};

TEST_F(uci_tool_test, batch_goes_on_after_errors)
{
    const batch_case cases[] = {
        {"a miscounted command", "get\nadd n\nget n.lan\n", "interface\n",
         "Unknown command\nUnknown command\n"},
        {"too many words", "get n.lan x y\nget n.lan\n", "interface\n", "Too many arguments\n"},
        {"an error of a command", "get n.nope\nget n.lan\n", "interface\n", unknown_entry},
        {"exit", "get n.lan\nexit\nget n.lan\n", "interface\n", ""},
        {"the rest behind a semicolon", "get n.lan; get n.lan\nget n.g ; bogus\n", "interface\nglobals\n",
         ""},
        {"a value across lines", "set n.lan.v='1\n2'\nget n.lan.v\n", "1\n2\n", ""},
        {"a joined line", "get \\\nn.lan.proto\nget n.la\\\nn\n", "static\ninterface\n", ""},
        {"no newline at the end", "get n.lan", "interface\n", ""},
        {"a backslash at the end", "get n.lan\\", "interface\n", ""},
        {"a backslash and a newline at the end", "get n.lan\\\n", "interface\n", ""},
        {"an open quote", "set n.lan.a='x\n", "",
         "uci: Parse error (EOF with unterminated ') at line 1, byte 15\n"},
        {"an open double quote", "\n  get \"n.lan\n", "",
         "uci: Parse error (EOF with unterminated \") at line 2, byte 13\n"},
        {"an open quote over lines, and commands before it", "get n.lan\n\nset n.lan.v='1\n2\n",
         "interface\n", "uci: Parse error (EOF with unterminated ') at line 4, byte 17\n"},
        {"an open quote and no newline at the end", "get n.lan\nset n.lan.v='1", "interface\n",
         "uci: Parse error (EOF with unterminated ') at line 1, byte 14\n"},
        {"a zero byte", std::string("get \0nonsense\nn.lan\n", 20), "interface\n", ""},
        {"zero bytes at the end", std::string("get n.lan\n\0\0\0\0", 14), "interface\n", ""},
        {"a batch within", "batch\nget n.lan\n", "interface\n", "Unknown command\n"},
        {"a committed package can be changed again",
         "set n.lan.k=1\ncommit n\nset n.lan.k=2\ncommit n\nget n.lan.k\n", "2\n", ""},
    };

    for (const batch_case &test : cases) {
        SCOPED_TRACE(test.promise);
        write(root + "/input", test.input);
        const program_result result = uci("-f " + root + "/input batch");
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, test.output);
        EXPECT_EQ(result.errors, test.errors);
    }
}

// ---- import and export ----

TEST_F(uci_tool_test, export_precedes_each_package_by_its_name)
{
    write(config_path("a"), "config t x\n");

    EXPECT_EQ(output_of("export"), "package a\n\nconfig t 'x'\n\npackage n\n" + written_base);
    EXPECT_EQ(output_of("export n.lan.nope"), "package n\n" + written_base);
}

TEST_F(uci_tool_test, export_can_write_generated_names)
{
    write_config("config t\n\toption a 1\n");

    EXPECT_EQ(output_of("-n export n"), "package n\n\nconfig t 'cfg01b619'\n\toption a '1'\n\n");
    EXPECT_EQ(output_of("-n -N export n"), "package n\n\nconfig t\n\toption a '1'\n\n");
    quietly({"set n.@t[0].b=2", "-n commit"});
    EXPECT_EQ(config(), "\nconfig t 'cfg01b619'\n\toption a '1'\n\toption b '2'\n\n");
}

TEST_F(uci_tool_test, import_replaces_a_package_and_leaves_its_delta)
{
    quietly({"set n.lan.x=1"});
    fs::permissions(config_path(), fs::perms(0640));
    write(root + "/input", "config interface 'lan'\n\toption mtu 9\n");

    quietly({"-f " + root + "/input import n", "-f " + root + "/input import new"});

    EXPECT_EQ(config(), "\nconfig interface 'lan'\n\toption mtu '9'\n\n");
    EXPECT_EQ(delta(), "n.lan.x='1'\n");
    EXPECT_EQ(fs::status(config_path("new")).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(config_path()).permissions(), fs::perms(0640));
}

TEST_F(uci_tool_test, import_without_a_name_needs_package_lines)
{
    write(root + "/input", "package a\nconfig t x\npackage b\nconfig t y\n");
    quietly({"-f " + root + "/input import"});
    EXPECT_EQ(read(config_path("a")), "\nconfig t 'x'\n\n");
    EXPECT_EQ(read(config_path("b")), "\nconfig t 'y'\n\n");

    write(root + "/input", "package c\nconfig t x\nfoo\n");
    expect_failure("-f " + root + "/input import", 1,
                   "uci: Parse error (invalid command) at line 3, byte 0\n");
    EXPECT_EQ(read(config_path("c")), std::nullopt);
    write(root + "/input", "config t x\n");
    expect_failure(
        "-f " + root + "/input import", 1,
        "uci: Parse error (attempting to import a file without a package name) at line 1, byte 0\n");
}

TEST_F(uci_tool_test, import_can_merge_into_the_delta)
{
    write(root + "/input", "config interface 'lan'\n\toption proto static\n\toption mtu 9\n\tlist l 1\n"
                           "config device\n\toption name new\nconfig t w\n");

    quietly({"-m -f " + root + "/input import n"});

    EXPECT_EQ(config(), base_config);
    EXPECT_EQ(delta(),
              "n.lan.mtu='9'\n|n.lan.l='1'\n+n.cfg050f15='device'\nn.cfg050f15.name='new'\nn.w='t'\n");
}

TEST_F(uci_tool_test, import_that_finds_nothing_to_merge_into_writes_the_configuration)
{
    write(root + "/input", "config t x\n");
    write(config_path("torn"), "config t 'y\n");

    quietly({"-m -f " + root + "/input import new", "-m -f " + root + "/input import torn"});

    for (const char *name : {"new", "torn"}) {
        EXPECT_EQ(read(config_path(name)), "\nconfig t 'x'\n\n");
        EXPECT_EQ(read(delta_path(name)), std::nullopt);
    }
}

TEST_F(uci_tool_test, an_input_that_cannot_be_opened_is_an_error)
{
    const program_result result = uci("-f " + root + "/nope batch");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "uci: " + root + "/nope: No such file or directory\n");
    expect_failure("-q -f " + root + "/nope batch", 1, "");
}

// ---- output ----

TEST_F(uci_tool_test, get_quotes_list_elements_that_hold_white_space)
{
    write_config(
        "config t n\nlist a 'x y'\nlist a z\nlist a 'it'\\''s'\nlist a 'a\tb'\nlist a ''\noption s 'p q'\n");

    EXPECT_EQ(output_of("get n.n.a"), "'x y' z it's 'a\tb' \n");
    EXPECT_EQ(output_of("get n.n.s"), "p q\n");
    EXPECT_EQ(output_of("show n.n.a"), "n.n.a='x y' 'z' 'it'\\''s' 'a\tb' ''\n");
}

TEST_F(uci_tool_test, a_configuration_that_fails_does_not_keep_others_from_being_shown)
{
    write(config_path("a"), "foo\n");
    write(config_path("z"), "config t x\n");
    write_config("config t n\n");

    const program_result result = uci("show");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "n.n=t\nz.x=t\n");
    EXPECT_EQ(result.errors, "uci: Parse error (invalid command) at line 1, byte 0\n");
}

TEST_F(uci_tool_test, without_any_configuration_there_is_nothing_to_show)
{
    fs::remove(config_path());
    for (const char *command : {"show", "export", "changes", "commit"})
        expect_failure(command, 1, unknown_entry);
}

TEST_F(uci_tool_test, output_that_cannot_be_written_is_an_error)
{
    const program_result result = run_program(
        {"sh", "-c", "exec uci -c " + config_dir + " -t " + save_dir + " -C '' show n >/dev/full"});

    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.errors, "uci: I/O error\n");
}

TEST_F(uci_tool_test, an_override_takes_the_place_of_a_configuration)
{
    const std::string overrides = root + "/overrides";
    fs::create_directory(overrides);
    write(overrides + "/n", "config t other\n");

    EXPECT_EQ(output_of("-C " + overrides + " show n"), "n.other=t\n");
    quietly({"-C " + overrides + " set n.other.a=1", "-C " + overrides + " commit"});

    EXPECT_EQ(read(overrides + "/n"), "\nconfig t 'other'\n\toption a '1'\n\n");
    EXPECT_EQ(config(), base_config);
}

TEST_F(uci_tool_test, options_end_at_the_command)
{
    const program_result result = uci("get n.lan -q");
    EXPECT_EQ(result.status, 255);
}

TEST_F(uci_tool_test, changes_of_others_are_read_from_the_default_save_directory)
{
    fs::create_directory(UCI_SAVEDIR);
    write(std::string(UCI_SAVEDIR) + "/n", "n.lan.proto='theirs'\n");

    EXPECT_EQ(output_of("get n.lan.proto"), "theirs\n");
    quietly({"commit"});

    EXPECT_NE(config()->find("option proto 'theirs'"), std::string::npos);
    EXPECT_EQ(read(std::string(UCI_SAVEDIR) + "/n"), "n.lan.proto='theirs'\n");
}

} // namespace
