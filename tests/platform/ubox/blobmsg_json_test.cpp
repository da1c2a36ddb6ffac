// JSON to messages and back.
#include "platform/ubox/support.h"

#include <algorithm>
#include <fstream>
#include <json-c/json.h>
#include <unistd.h>

using namespace std::string_literals;

namespace {

std::string types_of(blob_message &m)
{
    blob_attr *pos;
    size_t rem;
    std::string types;
    blobmsg_for_each_attr(pos, m.head(), rem) types += std::to_string(blobmsg_type(pos)) + " ";
    return types;
}

// {"a":{"a":...{}...}} with this many braces.
std::string nested_objects(int levels)
{
    std::string text;
    for (int i = 1; i < levels; i++)
        text += R"({"a":)";
    return text + "{}" + std::string(static_cast<size_t>(levels - 1), '}');
}

TEST(json_to_blobmsg_test, each_kind_of_value_gets_its_type)
{
    constexpr char text[] = R"({"a":2147483647,"b":2147483648,"c":true,"d":1.5,"e":null,"f":[1,"x"],"g":{}})";
    blob_message m(text);

    EXPECT_EQ(types_of(m), "5 4 7 8 0 1 2 ");
    EXPECT_EQ(m.json(),
              R"({"a":2147483647,"b":2147483648,"c":true,"d":1.500000,"e":null,"f":[1,"x"],"g":{}})");
}

TEST(json_to_blobmsg_test, integers_take_the_smaller_type_that_holds_them)
{
    const struct {
        const char *number;
        int type;
        const char *printed;
    } cases[] = {
        {"0", BLOBMSG_TYPE_INT32, "0"},
        {"-2147483648", BLOBMSG_TYPE_INT32, "-2147483648"},
        {"2147483647", BLOBMSG_TYPE_INT32, "2147483647"},
        {"2147483648", BLOBMSG_TYPE_INT64, "2147483648"},
        {"-2147483649", BLOBMSG_TYPE_INT64, "-2147483649"},
        {"9223372036854775807", BLOBMSG_TYPE_INT64, "9223372036854775807"},
        {"9223372036854775808", BLOBMSG_TYPE_INT64, "9223372036854775807"},
        {"18446744073709551615", BLOBMSG_TYPE_INT64, "9223372036854775807"},
        {"99999999999999999999", BLOBMSG_TYPE_INT64, "9223372036854775807"},
        {"-9223372036854775808", BLOBMSG_TYPE_INT64, "-9223372036854775808"},
        {"-99999999999999999999", BLOBMSG_TYPE_INT64, "-9223372036854775808"},
        {"1e2", BLOBMSG_TYPE_DOUBLE, "100.000000"},
        {"-0.25", BLOBMSG_TYPE_DOUBLE, "-0.250000"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.number);
        blob_message m((R"({"a":)"s + c.number + "}").c_str());

        EXPECT_EQ(blobmsg_type(static_cast<blob_attr *>(m.payload())), c.type);
        EXPECT_EQ(m.json(), R"({"a":)"s + c.printed + "}");
    }
}

TEST(json_to_blobmsg_test, accepts_what_the_parser_is_lenient_about)
{
    const struct {
        const char *text;
        const char *printed;
    } cases[] = {
        {R"({"a":1} x)", R"({"a":1})"},
        {R"({"a":1,})", R"({"a":1})"},
        {R"({'a':'b'})", R"({"a":"b"})"},
        {R"({/* c */"a":1})", R"({"a":1})"},
        {R"({"a":01})", R"({"a":1})"},
        {R"({"a":TRUE,"b":Null})", R"({"a":true,"b":null})"},
        {R"({"a":NaN,"b":Infinity,"c":-Infinity})", R"({"a":nan,"b":inf,"c":-inf})"},
        {R"({"a":1.})", R"({"a":1.000000})"},
        {R"({"a":1,"b":2,"a":3})", R"({"a":3,"b":2})"},
        {R"({"a":"x\u0000y"})", R"({"a":"x"})"},
        {"  {}", "{}"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        blob_message m;

        EXPECT_TRUE(blobmsg_add_json_from_string(m.buf(), c.text));

        EXPECT_EQ(m.json(), c.printed);
    }
}

TEST(json_to_blobmsg_test, refuses_what_is_no_object_and_adds_nothing)
{
    const char *const texts[] = {"",        " ",           "{a:1}",          "[1]",      R"("x")",
                                 "1",       "null",        R"({"a":1)",      "true",     R"({"a":1 "b":2})",
                                 "{",       R"({"a":+1})", R"({"a":.5})",    "}",        R"({"a":0x10})",
                                 "{\"a\":", "nonsense",    R"({"a":"open})", R"({"a"})", R"({"b":1,"a":x})"};
    for (const char *const text : texts) {
        SCOPED_TRACE(text);
        blob_message m;
        blobmsg_add_u8(m.buf(), "kept", 1);

        EXPECT_FALSE(blobmsg_add_json_from_string(m.buf(), text));

        EXPECT_EQ(m.json(), R"({"kept":true})");
    }
}

TEST(json_to_blobmsg_test, nesting_is_accepted_to_32_levels)
{
    const struct {
        int levels;
        bool accepted;
    } cases[] = {{31, true}, {32, true}, {33, false}, {5000, false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.levels);
        blob_message m;

        EXPECT_EQ(blobmsg_add_json_from_string(m.buf(), nested_objects(c.levels).c_str()), c.accepted);

        EXPECT_EQ(m.json(), c.accepted ? nested_objects(c.levels) : "{}");
    }
}

TEST(json_to_blobmsg_test, members_go_into_the_open_container)
{
    blob_message m;
    void *const table = blobmsg_open_table(m.buf(), "t");

    EXPECT_TRUE(blobmsg_add_json_from_string(m.buf(), R"({"a":1})"));
    blobmsg_close_table(m.buf(), table);

    EXPECT_EQ(m.json(), R"({"t":{"a":1}})");
}

TEST(json_to_blobmsg_test, says_when_the_buffer_cannot_grow)
{
    blob_message m;
    m.buf()->grow = [](blob_buf *, int) { return false; };
    const std::string large(300, 'x');

    EXPECT_FALSE(blobmsg_add_json_from_string(m.buf(), (R"({"a":{"b":[")" + large + R"("]}})").c_str()));

    EXPECT_EQ(blob_id(m.head()), 0u);
    EXPECT_FALSE(blob_is_extended(m.head())) << "the containers must be closed again";
}

TEST(json_to_blobmsg_test, a_name_must_fit_its_length_field)
{
    const std::string name(65536, 'n');
    for (const char *value : {"1", "[]", "{}"}) {
        SCOPED_TRACE(value);
        blob_message m;

        EXPECT_FALSE(blobmsg_add_json_from_string(m.buf(), (R"({")" + name + R"(":)" + value + "}").c_str()));

        EXPECT_EQ(m.wire(), "00000004");
    }
}

TEST(json_to_blobmsg_test, reads_files)
{
    char path[] = "/tmp/ubox-json-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(path) << R"({"a":[1,{"b":null}]})";
    blob_message m;

    EXPECT_TRUE(blobmsg_add_json_from_file(m.buf(), path));
    unlink(path);
    EXPECT_FALSE(blobmsg_add_json_from_file(m.buf(), path));

    EXPECT_EQ(m.json(), R"({"a":[1,{"b":null}]})");
}

TEST(json_to_blobmsg_test, takes_parsed_objects_and_single_values)
{
    json_object *const object = json_tokener_parse(R"({"a":1})");
    json_object *const array = json_tokener_parse("[2]");
    blob_message m;

    EXPECT_TRUE(blobmsg_add_object(m.buf(), object));
    EXPECT_FALSE(blobmsg_add_object(m.buf(), array));
    EXPECT_FALSE(blobmsg_add_object(m.buf(), nullptr));
    EXPECT_TRUE(blobmsg_add_json_element(m.buf(), "b", array));
    EXPECT_TRUE(blobmsg_add_json_element(m.buf(), "c", nullptr));
    EXPECT_TRUE(blobmsg_add_json_element(m.buf(), nullptr, object));
    json_object_put(object);
    json_object_put(array);

    EXPECT_EQ(m.json(), R"({"a":1,"b":[2],"c":null,{"a":1}})");
}

TEST(blobmsg_to_json_test, pretty_form_puts_every_member_on_a_line_of_its_own)
{
    blob_message m(R"({"a":1,"f":[1,{"g":2}],"i":{}})");

    EXPECT_EQ(
        m.pretty(),
        "{\n\t\"a\": 1,\n\t\"f\": [\n\t\t1,\n\t\t{\n\t\t\t\"g\": 2\n\t\t}\n\t],\n\t\"i\": {\n\t\t\n\t}\n}");
}

TEST(blobmsg_to_json_test, empty_containers)
{
    blob_message m(R"({"a":[]})");
    blob_attr *const array = static_cast<blob_attr *>(m.payload());

    EXPECT_EQ(blob_message().json(), "{}");
    EXPECT_EQ(blob_message().pretty(), "{\n\t\n}");
    EXPECT_EQ(taken(blobmsg_format_json(array, true)), "[]");
    EXPECT_EQ(taken(blobmsg_format_json_indent(array, true, 0)), "[\n\t\n]");
}

TEST(blobmsg_to_json_test, indents_by_sixteen_tabs_at_most)
{
    const struct {
        int level, indent;
    } cases[] = {{15, 0}, {16, 0}, {17, 0}, {18, 0}, {20, 0}, {2, 14}, {2, 15}, {2, 16}, {3, 40}};
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.level << " from " << c.indent);
        // Tables in tables, the innermost empty.
        blob_message m;
        std::vector<void *> open;
        for (int i = 1; i < c.level; i++)
            open.push_back(blobmsg_open_table(m.buf(), "a"));
        for (; !open.empty(); open.pop_back())
            blobmsg_close_table(m.buf(), open.back());
        const auto line = [&c](int level) {
            return "\n" + std::string(static_cast<size_t>(std::min(c.indent + level, 16)), '\t');
        };
        std::string expected = "{";
        for (int level = 1; level < c.level; level++)
            expected += line(level) + "\"a\": {";
        expected += line(c.level);
        for (int level = c.level - 1; level >= 0; level--)
            expected += line(level) + "}";

        EXPECT_EQ(taken(blobmsg_format_json_indent(m.head(), true, c.indent)), expected);
    }
}

TEST(blobmsg_to_json_test, an_indent_moves_all_lines_but_the_first)
{
    blob_message m(R"({"a":1})");

    EXPECT_EQ(taken(blobmsg_format_json_indent(m.head(), true, 2)), "{\n\t\t\t\"a\": 1\n\t\t}");
}

TEST(blobmsg_to_json_test, escapes_what_json_demands_and_leaves_the_rest)
{
    blob_message m;

    blobmsg_add_string(m.buf(), "s", "\x08\x0a\x09\x0d\x22\x5c\x0c\x01\x2f\x7f\xc3\xa9");

    EXPECT_EQ(m.json(), "{\"s\":\"\\b\\n\\t\\r\\\"\\\\\\u000c\\u0001/\x7f\xc3\xa9\"}");
}

TEST(blobmsg_to_json_test, a_text_of_any_length_has_room)
{
    for (size_t length = 0; length < 2000; length++) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        blob_message m;
        blobmsg_add_string(m.buf(), "", text.c_str());

        ASSERT_EQ(m.json(), "{\"" + text + "\"}");
    }
}

TEST(blobmsg_to_json_test, names_are_escaped_too)
{
    blob_message m;

    blobmsg_add_u32(m.buf(), "a\"b\n", 1);

    EXPECT_EQ(m.json(), R"({"a\"b\n":1})");
}

TEST(blobmsg_to_json_test, scalars)
{
    const struct {
        const char *printed;
        void (*add)(blob_buf *);
    } cases[] = {
        {"true", [](blob_buf *b) { blobmsg_add_u8(b, "v", 200); }},
        {"false", [](blob_buf *b) { blobmsg_add_u8(b, "v", 0); }},
        {"-1", [](blob_buf *b) { blobmsg_add_u16(b, "v", 0xffff); }},
        {"-1", [](blob_buf *b) { blobmsg_add_u32(b, "v", 0xffffffff); }},
        {"-9223372036854775808", [](blob_buf *b) { blobmsg_add_u64(b, "v", 1ull << 63); }},
        {"1.500000", [](blob_buf *b) { blobmsg_add_double(b, "v", 1.5); }},
        {"-0.000001", [](blob_buf *b) { blobmsg_add_double(b, "v", -0.000001); }},
        {"null", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "v", nullptr, 0); }},
        {R"("")", [](blob_buf *b) { blobmsg_add_string(b, "v", ""); }},
        {R"("a")", [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_STRING, "v", "a\0b", 4); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.printed);
        blob_message m;

        c.add(m.buf());

        EXPECT_EQ(m.json(), R"({"v":)"s + c.printed + "}");
    }
}

TEST(blobmsg_to_json_test, the_greatest_double_fits)
{
    blob_message m;
    char digits[400];
    std::snprintf(digits, sizeof(digits), R"({"v":%f})", -1.7976931348623157e308);

    blobmsg_add_double(m.buf(), "v", -1.7976931348623157e308);

    EXPECT_EQ(m.json(), digits);
}

TEST(blobmsg_to_json_test, prints_one_attribute_with_or_without_its_name)
{
    blob_message m(R"({"t":{"a":1}})");
    blob_attr *const table = static_cast<blob_attr *>(m.payload());
    blob_attr *const member = static_cast<blob_attr *>(blobmsg_data(table));

    EXPECT_EQ(taken(blobmsg_format_json(table, false)), R"("t":{"a":1})");
    EXPECT_EQ(taken(blobmsg_format_json(table, true)), R"({"a":1})");
    EXPECT_EQ(taken(blobmsg_format_json(member, false)), R"("a":1)");
    EXPECT_EQ(taken(blobmsg_format_json_indent(member, false, 0)), R"("a": 1)");
    EXPECT_EQ(taken(blobmsg_format_json_value(member)), "1");
    EXPECT_EQ(taken(blobmsg_format_json_value(table)), R"({"a":1})");
    EXPECT_EQ(taken(blobmsg_format_json_value_indent(table, 0)), "{\n\t\"a\": 1\n}");
}

TEST(blobmsg_to_json_test, members_without_a_name_are_bare_values)
{
    blob_message m;
    blobmsg_add_u32(m.buf(), nullptr, 1);

    EXPECT_EQ(m.json(), "{1}");
    EXPECT_EQ(taken(blobmsg_format_json(static_cast<blob_attr *>(m.payload()), false)), "1");
}

TEST(blobmsg_to_json_test, a_named_member_of_an_array_is_a_bare_value)
{
    blob_message m;
    void *const array = blobmsg_open_array(m.buf(), "a");
    blobmsg_add_u32(m.buf(), "name", 1);
    blobmsg_close_array(m.buf(), array);

    EXPECT_EQ(m.json(), R"({"a":[1]})");
}

TEST(blobmsg_to_json_test, malformed_members_print_as_nothing_and_keep_their_commas)
{
    blob_message m;
    for (int i = 0; i < 3; i++)
        blobmsg_add_field(m.buf(), BLOBMSG_TYPE_INT32, "x", "12", 2);

    EXPECT_EQ(m.json(), "{,,}");
    EXPECT_EQ(m.pretty(), "{\n\t,\n\t,\n\t\n}");
    EXPECT_EQ(taken(blobmsg_format_json(static_cast<blob_attr *>(m.payload()), false)), "");
    EXPECT_EQ(taken(blobmsg_format_json_value(static_cast<blob_attr *>(m.payload()))), "");
}

TEST(blobmsg_to_json_test, a_callback_may_replace_any_value)
{
    blob_message m(R"({"a":1,"b":{"c":2},"d":[3]})");
    const auto replace = [](void *priv, blob_attr *attr) -> const char * {
        ++*static_cast<int *>(priv);
        return blobmsg_type(attr) == BLOBMSG_TYPE_INT32 ? nullptr : "<other>";
    };
    int calls = 0;

    EXPECT_EQ(taken(blobmsg_format_json_with_cb(m.head(), true, replace, &calls, -1)),
              R"({"a":1,"b":<other>,"d":<other>})");
    EXPECT_EQ(calls, 3);
    EXPECT_EQ(
        taken(blobmsg_format_json_value_with_cb(static_cast<blob_attr *>(m.payload()), replace, &calls, -1)),
        "1");
}

TEST(blobmsg_to_json_test, nesting_as_deep_as_a_message_can_be_needs_no_stack)
{
    constexpr size_t levels = 100000;
    blob_message m;
    for (size_t i = 0; i < levels; i++)
        ASSERT_NE(blobmsg_open_array(m.buf(), nullptr), nullptr);
    // Closes all of them: each container holds the next and nothing else, so their lengths are known.
    char *const bytes = static_cast<char *>(m.buf()->buf);
    for (size_t i = 0; i <= levels; i++) {
        const size_t offset = i == 0 ? 0 : i * 8 - 4;
        const uint32_t word = (i == 0 ? 0 : 0x81000000u) | static_cast<uint32_t>(4 + levels * 8 - offset);
        const uint32_t stored = cpu_to_be32(word);
        memcpy(bytes + offset, &stored, sizeof(stored));
    }
    m.buf()->head = reinterpret_cast<blob_attr *>(bytes);

    const std::string text = m.json();

    EXPECT_EQ(text, "{" + std::string(levels, '[') + std::string(levels, ']') + "}");
}

} // namespace
