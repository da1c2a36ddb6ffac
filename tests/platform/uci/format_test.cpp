// The configuration file format: what is read, what is refused where, and what is written.
#include "platform/uci/fixture.h"

#include <cstdio>
#include <sstream>
#include <thread>

using namespace std::string_literals;

namespace {

class uci_format_test : public uci_test {
protected:
    // What `uci export` writes behind its first line.
    std::string export_of(const std::string &file)
    {
        write_config(file);
        const program_result result = uci("export n");
        EXPECT_EQ(result.status, 0) << result.errors;
        EXPECT_EQ(result.output.substr(0, 10), "package n\n");
        return result.output.substr(10);
    }

    // The message of a load that must fail as a parse error.
    std::string parse_error_of(const std::string &file)
    {
        write_config(file);
        const context_owner owner = new_context();
        EXPECT_EQ(uci_load(owner.get(), "n", nullptr), UCI_ERR_PARSE);
        EXPECT_TRUE(uci_list_empty(&owner->root));
        return error_text(owner.get());
    }
};

struct export_case {
    const char *promise;
    std::string file;
    std::string written;
};

TEST_F(uci_format_test, files_read_as_words_and_are_written_in_one_form)
{
    const export_case cases[] = {
        {"the last line may lack its newline", "config t n\n\toption a b",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"blanks, comments and quotes vanish", "  config\tt \"n\" # c\n\n#d\n\toption 'a'   b#c\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"adjacent pieces are one word", "config t\n option a foo'bar baz'\"q\\\"\\\\\\n\"\\ z\n",
         "\nconfig t\n\toption a 'foobar bazq\"\\n z'\n\n"},
        {"single quotes hold everything but themselves", "config t n\noption a 'it'\\''s'\noption b 'x\\'\n",
         "\nconfig t 'n'\n\toption a 'it'\\''s'\n\toption b 'x\\'\n\n"},
        {"words go on across lines",
         "config t n\noption a 'l1\n l2'\noption b \"l1\\\nl2\"\noption c foo\\\nbar\n",
         "\nconfig t 'n'\n\toption a 'l1\n l2'\n\toption b 'l1l2'\n\toption c 'foobar'\n\n"},
        {"carriage returns are blanks", "config t n\r\n\toption a 'b'\r\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a carriage return does not name a section", "config t\r\n\toption a b",
         "\nconfig t\n\toption a 'b'\n\n"},
        {"a semicolon behind a quote ends the command", "config t n\noption a 'b'; option c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\toption c 'd'\n\n"},
        {"a semicolon behind a plain byte drops the rest", "config t n\noption a b; option c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"an empty option changes nothing", "config t n\noption a b\noption a ''\noption e ''\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a list takes empty values", "config t n\nlist a b\nlist a ''\nlist c\n",
         "\nconfig t 'n'\n\tlist a 'b'\n\tlist a ''\n\tlist c ''\n\n"},
        {"repeated options keep the first place",
         "config t n\noption a 1\noption b 2\nlist a 3\nlist c 4\noption c 5\noption b 6\n",
         "\nconfig t 'n'\n\tlist a '1'\n\tlist a '3'\n\toption b '6'\n\toption c '5'\n\n"},
        {"repeated sections merge into the first",
         "config t n\noption a 1\nconfig t\nconfig t n\noption b 2\noption a 3\n",
         "\nconfig t 'n'\n\toption a '3'\n\toption b '2'\n\nconfig t\n\n"},
        {"an empty name is none", "config t ''\noption a 1\nconfig t-x.y m_1\n",
         "\nconfig t\n\toption a '1'\n\nconfig t-x.y 'm_1'\n\n"},
        {"a generated name can be named again", "config t\n option a 1\nconfig t cfg01b619\n option b 2\n",
         "\nconfig t\n\toption a '1'\n\toption b '2'\n\n"},
        {"a package line says nothing", "package whatever\nconfig t n\n", "\nconfig t 'n'\n\n"},
        {"an empty file is an empty package", "", "\n"},
    };

    for (const export_case &test : cases) {
        SCOPED_TRACE(test.promise);
        EXPECT_EQ(export_of(test.file), test.written);
    }
}

TEST_F(uci_format_test, finer_points_of_words)
{
    const export_case cases[] = {
        {"short keywords", "p x\nc t n\no a 1\nl b 2\n", "\nconfig t 'n'\n\toption a '1'\n\tlist b '2'\n\n"},
        {"a comment inside a word", "config t n\noption a b#c\noption d 'e'#f\n",
         "\nconfig t 'n'\n\toption a 'b'\n\toption d 'e'\n\n"},
        {"escaped specials", "config t n\noption a \\#\\;\\ \\\\\\'\\n\n",
         "\nconfig t 'n'\n\toption a '#; \\'\\''n'\n\n"},
        {"an escaped line end joins lines", "config t n\noption a foo\\\r\nbar\n",
         "\nconfig t 'n'\n\toption a 'foobar'\n\n"},
        {"a joined line that begins with a blank ends the word", "config t n\noption a foo\\\n # bar\n",
         "\nconfig t 'n'\n\toption a 'foo'\n\n"},
        {"a double-quoted escape gives the byte", "config t n\noption a \"\\a\\\\\\\"'\"\n",
         "\nconfig t 'n'\n\toption a 'a\\\"'\\'''\n\n"},
        {"a carriage return in quotes stays", "config t n\noption a 'x\r\ny'\n",
         "\nconfig t 'n'\n\toption a 'x\r\ny'\n\n"},
        {"any other byte is itself", "config t n\noption a \x01\x7f\x80\xff\n",
         "\nconfig t 'n'\n\toption a '\x01\x7f\x80\xff'\n\n"},
        {"a semicolon behind a blank ends the command", "config t n ;option a b\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a semicolon behind an escape drops the rest", "config t n\noption a \\b;option c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a semicolon behind plain and quoted bytes ends the command",
         "config t n\noption a b'c';option d e\n", "\nconfig t 'n'\n\toption a 'bc'\n\toption d 'e'\n\n"},
        {"vertical tabs and form feeds are blanks", "config t n\n\v\foption a\vb\f\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"names may begin with a digit", "config 1 2\noption 3 4\n", "\nconfig 1 '2'\n\toption 3 '4'\n\n"},
        {"equal list values stay", "config t n\nlist a x\nlist a x\n",
         "\nconfig t 'n'\n\tlist a 'x'\n\tlist a 'x'\n\n"},
        {"a missing option value is an empty one", "config t n\noption a 1\noption a\n",
         "\nconfig t 'n'\n\toption a '1'\n\n"},
        {"an empty option leaves a list alone", "config t n\nlist a 1\noption a ''\n",
         "\nconfig t 'n'\n\tlist a '1'\n\n"},
        {"an explicit name before an equal generated one",
         "config t cfg02b619\noption a 1\nconfig t\noption a 2\n",
         "\nconfig t 'cfg02b619'\n\toption a '1'\n\nconfig t\n\toption a '2'\n\n"},
        {"blanks at the end", "config t n\noption a b\n \t", "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a blank in place of a value at the end", "config t n\noption a ", "\nconfig t 'n'\n\n"},
        {"a mixed file",
         "# c\nconfig globals g\n option u \"it's\"\nconfig device\n list p a\n list p 'b c'\n option m "
         "'x\ny'\n",
         "\nconfig globals 'g'\n\toption u 'it'\\''s'\n\nconfig device\n\tlist p 'a'\n\tlist p 'b "
         "c'\n\toption m 'x\ny'\n\n"},
    };

    for (const export_case &test : cases) {
        SCOPED_TRACE(test.promise);
        EXPECT_EQ(export_of(test.file), test.written);
    }
}

struct refusal {
    std::string file;
    std::string message;
};

TEST_F(uci_format_test, the_tool_tells_why_and_where_a_file_is_refused)
{
    const refusal cases[] = {
        {"config t n\noption a 1\nconfig u n\n",
         "section of different type overwrites prior section with same name) at line 3, byte 11"},
        {"config t n x\n", "too many arguments) at line 1, byte 13"},
        {"config t n\noption a b c\n", "too many arguments) at line 2, byte 13"},
        {"config t n-x\n", "invalid character in name field) at line 1, byte 13"},
        {"config 't x' n\n", "invalid character in type field) at line 1, byte 13"},
        {"option a b\n", "option/list command found before the first section) at line 1, byte 0"},
        {"config\n", "invalid command) at line 1, byte 0"},
        {"config", "config without name) at line 0, byte 0"},
        {"config t n\n  foo bar\n", "invalid command) at line 2, byte 2"},
        {"config t n\noption a 'foo\n", "EOF with unterminated ') at line 2, byte 14"},
    };

    for (const refusal &test : cases) {
        SCOPED_TRACE(test.file);
        write_config(test.file);
        const program_result result = uci("export n");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "uci: Parse error (" + test.message + "\n");
    }
}

TEST_F(uci_format_test, further_refusals)
{
    const refusal cases[] = {
        {"package", "package without name) at line 0, byte 0"},
        {"config t n\noption", "option without name) at line 1, byte 0"},
        {"config t n\nlist", "option without name) at line 1, byte 0"},
        {"config t n\n l", "option without name) at line 1, byte 1"},
        {"config t n\noption \n", "insufficient arguments) at line 2, byte 8"},
        {"config ", "insufficient arguments) at line 0, byte 7"},
        {"config # c\n", "insufficient arguments) at line 1, byte 11"},
        {"config t 'n\n", "EOF with unterminated ') at line 1, byte 12"},
        {"package a 'b\n", "EOF with unterminated ') at line 1, byte 13"},
        {"config ''\n", "insufficient arguments) at line 1, byte 10"},
        {"package ''\n", "insufficient arguments) at line 1, byte 11"},
        {"package a.b\n", "invalid character in name field) at line 1, byte 12"},
        {"package a b\n", "too many arguments) at line 1, byte 12"},
        {"config t n\noption a-b c\n", "invalid character in name field) at line 2, byte 11"},
        {"config t n\nlist a b c\n", "too many arguments) at line 2, byte 11"},
        {"list a b\n", "option/list command found before the first section) at line 1, byte 0"},
        {"Config t n\n", "invalid command) at line 1, byte 0"},
        {"\xef\xbb\xbf"
         "config t n\n",
         "invalid command) at line 1, byte 0"},
        {";config t n\n", "invalid command) at line 1, byte 0"},
        {"config t 'n';\n", "invalid command) at line 1, byte 13"},
        {"config t 'n';;\n", "invalid command) at line 1, byte 13"},
        {"config t n\noption a \"foo\n\n", "EOF with unterminated \") at line 3, byte 15"},
        {"config t n\noption a 'x\ny' z w\n", "too many arguments) at line 3, byte 17"},
        {"config \x80\n", "invalid character in type field) at line 1, byte 9"},
        {"config t n\nbad", "invalid command) at line 1, byte 0"},
        {"config t n\noption a b\0c\noption d e\n"s, "too many arguments) at line 2, byte 19"},
        {"config t n\noption a 'b\0c'\n"s, "EOF with unterminated ') at line 1, byte 11"},
    };

    for (const refusal &test : cases) {
        SCOPED_TRACE(test.file);
        EXPECT_EQ(parse_error_of(test.file), "p: Parse error (" + test.message);
    }
}

TEST_F(uci_format_test, zero_bytes_hide_the_rest_of_their_line_and_no_more)
{
    const std::string zeros(64, '\0');
    const export_case cases[] = {
        {"nothing else", zeros, "\n"},
        {"a block and more of them", std::string(5000, '\0'), "\n"},
        {"behind the last line", "config t n\n\toption a b\n" + zeros, "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"behind a line without its end", "config t n\n\toption a b" + zeros,
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"behind an escape", "config t n\n\toption a b\\" + zeros, "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"behind a keyword that needs nothing else", "config t n\n\tlist a " + zeros + "x\n'b c'\n",
         "\nconfig t 'n'\n\tlist a 'b c'\n\n"},
        {"lines of them", "config t n\n" + zeros + "\n\toption a b\n" + zeros + "junk\n\toption c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\toption c 'd'\n\n"},
        {"in a comment", "# x" + zeros + "\nconfig t m\nconfig t n\n", "\nconfig t 'n'\n\n"},
    };

    for (const export_case &test : cases) {
        SCOPED_TRACE(test.promise);
        write_config(test.file);
        EXPECT_EQ(output_of("export n"), "package n\n" + test.written);
    }
}

TEST_F(uci_format_test, a_lenient_load_skips_bad_lines_and_keeps_the_rest)
{
    const export_case cases[] = {
        {"unknown commands", "config t n\noption a 1\nfoo 'bar\nbaz'\noption b 2\n",
         "\nconfig t 'n'\n\toption a '1'\n\toption b '2'\n\n"},
        {"a bad section leaves the options to the one before",
         "config t n\noption a 1\nconfig t n-x\noption b 2\n",
         "\nconfig t 'n'\n\toption a '1'\n\toption b '2'\n\n"},
        {"words too many are ignored", "config t n x\noption a b c d\n",
         "\nconfig t 'n'\n\toption a 'b'\n\n"},
        {"a section changes its type", "config t n\noption a 1\nconfig u n\noption b 2\n",
         "\nconfig u 'n'\n\toption a '1'\n\toption b '2'\n\n"},
        {"an open quote drops what follows", "config t n\noption a 1\noption b 'x\noption c 2\n",
         "\nconfig t 'n'\n\toption a '1'\n\n"},
    };

    for (const export_case &test : cases) {
        SCOPED_TRACE(test.promise);
        write_config(test.file);
        const context_owner owner = new_context();
        owner->flags = UCI_FLAG_SAVED_DELTA;
        uci_package *p = nullptr;

        EXPECT_EQ(uci_load(owner.get(), "n", &p), UCI_OK);

        ASSERT_NE(p, nullptr);
        EXPECT_EQ(exported(owner.get(), p), test.written);
        EXPECT_EQ(error_text(owner.get()), "p: Success");
    }
}

TEST_F(uci_format_test, the_lenient_tool_prints_each_skipped_error)
{
    write_config("foo bar\nconfig t n\noption a-b c\n");

    const program_result result = uci("-S export n");

    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "package n\n\nconfig t 'n'\n\n");
    EXPECT_EQ(result.errors, "Parse error (invalid command) at line 1, byte 0\n"
                             "Parse error (invalid character in name field) at line 3, byte 11\n");
    EXPECT_EQ(uci("-q -S export n").errors, result.errors) << "not messages of the tool";
    const program_result strict = uci("-S -s export n");
    EXPECT_EQ(strict.status, 1);
    EXPECT_EQ(strict.errors, "uci: Parse error (invalid command) at line 1, byte 0\n");
}

// ---- generated names ----

TEST_F(uci_format_test, generated_names_hold_the_hash_of_the_type)
{
    const std::pair<const char *, const char *> hashes[] = {
        {"device", "0f15"},   {"interface", "6d96"}, {"bridge-vlan", "a1b0"}, {"globals", "3b09"},
        {"zone", "dc81"},     {"defaults", "e63d"},  {"forwarding", "ad58"},  {"rule", "92bd"},
        {"redirect", "3837"}, {"proxy", "23e7"},     {"dnsmasq", "411c"},     {"dhcp", "ad04"},
        {"upnpd", "804c"},    {"korvel", "2698"},    {"host", "fe63"},        {"route", "c8b4"},
        {"t", "b619"},
    };

    for (const auto &[type, hash] : hashes) {
        SCOPED_TRACE(type);
        write_config(std::string("config ") + type + "\n");
        EXPECT_EQ(output_of("-X show n"), "n.cfg01" + std::string(hash) + "=" + type + "\n");
    }
}

TEST_F(uci_format_test, generated_names_count_every_section_created)
{
    write_config("config globals 'globals'\nconfig device\nconfig interface 'lan'\nconfig device\n"
                 "config interface 'lan'\nconfig device\n");

    EXPECT_EQ(output_of("-X show n"), "n.globals=globals\nn.cfg020f15=device\nn.lan=interface\n"
                                      "n.cfg040f15=device\nn.cfg050f15=device\n");
}

TEST_F(uci_format_test, generated_names_grow_a_digit_at_section_256)
{
    std::string file;
    for (int i = 0; i < 257; i++)
        file += "config device\n";
    write_config(file);

    const std::string shown = output_of("-X show n");

    EXPECT_NE(shown.find("n.cfgff0f15=device\n"), std::string::npos);
    EXPECT_NE(shown.find("n.cfg1000f15=device\n"), std::string::npos);
    EXPECT_NE(shown.find("n.cfg1010f15=device\n"), std::string::npos);
}

TEST_F(uci_format_test, of_two_sections_with_one_name_lookups_find_the_first)
{
    write_config("config t cfg02b619\noption a 1\nconfig t\noption a 2\n");

    EXPECT_EQ(output_of("get n.cfg02b619.a"), "1\n");
    EXPECT_EQ(output_of("get n.@t[1].a"), "2\n");
}

// ---- streams ----

class stream {
public:
    explicit stream(const std::string &text) : file_(fmemopen(nullptr, text.size() + 1, "w+"))
    {
        fwrite(text.data(), 1, text.size(), file_);
        rewind(file_);
    }
    ~stream() { fclose(file_); }
    FILE *get() const { return file_; }

private:
    FILE *file_;
};

TEST_F(uci_format_test, package_lines_divide_a_stream)
{
    const context_owner owner = new_context();
    const stream input("package a\nconfig t x\npackage b-2\nconfig t y\n");
    uci_package *last = nullptr;

    EXPECT_EQ(uci_import(owner.get(), input.get(), nullptr, &last, false), UCI_OK);

    ASSERT_NE(last, nullptr);
    EXPECT_STREQ(last->e.name, "b-2");
    EXPECT_FALSE(last->has_delta);
    EXPECT_EQ(exported(owner.get(), nullptr, true),
              "package a\n\nconfig t 'x'\n\npackage b-2\n\nconfig t 'y'\n\n");
}

TEST_F(uci_format_test, a_stream_without_a_package_name_is_refused_whole)
{
    const refusal cases[] = {
        {"config t n\n", "attempting to import a file without a package name) at line 1, byte 0"},
        {"package a\nconfig t n\npackage b\nfoo\n", "invalid command) at line 4, byte 0"},
    };
    for (const refusal &test : cases) {
        SCOPED_TRACE(test.file);
        const context_owner owner = new_context();
        const stream input(test.file);
        uci_package *last = nullptr;

        EXPECT_EQ(uci_import(owner.get(), input.get(), nullptr, &last, false), UCI_ERR_PARSE);

        EXPECT_EQ(error_text(owner.get()), "p: Parse error (" + test.message);
        EXPECT_EQ(last, nullptr);
        EXPECT_TRUE(uci_list_empty(&owner->root));
    }
}

TEST_F(uci_format_test, a_package_of_a_stream_must_not_be_loaded_already)
{
    const context_owner owner = new_context();
    const stream first("package a\nconfig t n\n"), again("package a\n"), named_again("config t n\n");
    uci_package *p = nullptr;
    ASSERT_EQ(uci_import(owner.get(), first.get(), nullptr, &p, false), UCI_OK);

    uci_package *other = nullptr;
    EXPECT_EQ(uci_import(owner.get(), again.get(), nullptr, &other, false), UCI_ERR_DUPLICATE);
    EXPECT_EQ(uci_import(owner.get(), named_again.get(), "a", &other, true), UCI_ERR_DUPLICATE);

    EXPECT_EQ(other, nullptr);
    EXPECT_EQ(uci_lookup_package(owner.get(), "a"), p);
}

TEST_F(uci_format_test, parsers_in_several_threads_keep_their_errors_apart)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([i] {
            const std::string lines(static_cast<size_t>(i), '\n');
            const std::string expected =
                "p: Parse error (invalid command) at line " + std::to_string(i + 1) + ", byte 0";
            for (int round = 0; round < 200; round++) {
                const context_owner owner(uci_alloc_context());
                const stream input(lines + "foo" + std::to_string(i) + "\n");
                EXPECT_EQ(uci_import(owner.get(), input.get(), "n", nullptr, true), UCI_ERR_PARSE);
                EXPECT_EQ(error_text(owner.get()), expected);
            }
        });
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace
