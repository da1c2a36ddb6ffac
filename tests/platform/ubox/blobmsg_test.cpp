// Named, typed values: their bytes, the policy rules by which methods read their arguments, and the checks.
#include "platform/ubox/support.h"

#include <cerrno>

using namespace std::string_literals;

namespace {

enum { ID, FLAG };
constexpr blobmsg_policy id_and_flag[] = {{"id", BLOBMSG_TYPE_INT32}, {"flag", BLOBMSG_TYPE_INT8}};

// The two policy rows above, applied to a message.
struct parsed {
    blob_attr *tb[2];
    int result;

    explicit parsed(blob_message &m)
    {
        std::fill(std::begin(tb), std::end(tb), m.head());
        result = blobmsg_parse(id_and_flag, 2, tb, m.payload(), m.length());
    }
};

// Payload of an extended attribute: header with the name as given, then the data.
std::string named(const std::string &name, const std::string &data)
{
    std::string text{static_cast<char>(name.size() >> 8), static_cast<char>(name.size())};
    text += name + '\0';
    while (text.size() % 4 != 0)
        text += '\0';
    return text + data;
}

raw_attr extended(unsigned type, const std::string &payload)
{
    return raw_attr(true, type, 4 + payload.size(), payload);
}

TEST(blobmsg_bytes_test, a_mixed_table_has_the_documented_108_bytes)
{
    blob_message m;

    blobmsg_add_u8(m.buf(), "up", 1);
    blobmsg_add_u32(m.buf(), "mtu", 1500);
    blobmsg_add_string(m.buf(), "dev", "pon0");
    void *const table = blobmsg_open_table(m.buf(), "t");
    blobmsg_add_u32(m.buf(), "n", static_cast<uint32_t>(-1));
    blobmsg_close_table(m.buf(), table);
    void *const array = blobmsg_open_array(m.buf(), "a");
    blobmsg_add_string(m.buf(), nullptr, "x");
    blobmsg_add_u8(m.buf(), nullptr, 0);
    blobmsg_close_array(m.buf(), array);

    EXPECT_EQ(m.wire(), "0000006c "
                        "8700000d 00027570 00000000 01000000 "
                        "85000010 00036d74 75000000 000005dc "
                        "83000011 00036465 76000000 706f6e30 00000000 "
                        "82000014 00017400 8500000c 00016e00 ffffffff "
                        "81000020 00016100 8300000a 00000000 78000000 87000009 00000000 00000000");
}

TEST(blobmsg_bytes_test, each_type_has_the_documented_bytes)
{
    const struct {
        const char *bytes;
        void (*add)(blob_buf *);
    } cases[] = {
        {"82000008 00016500", [](blob_buf *b) { blob_nest_end(b, blobmsg_open_table(b, "e")); }},
        {"81000008 00000000", [](blob_buf *b) { blob_nest_end(b, blobmsg_open_array(b, nullptr)); }},
        {"8600000a 00017300 12340000", [](blob_buf *b) { blobmsg_add_u16(b, "s", 0x1234); }},
        {"84000010 00017100 01020304 05060708",
         [](blob_buf *b) { blobmsg_add_u64(b, "q", 0x102030405060708); }},
        {"88000010 00016400 3ff80000 00000000", [](blob_buf *b) { blobmsg_add_double(b, "d", 1.5); }},
        {"80000008 00017a00",
         [](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "z", nullptr, 0); }},
        {"83000009 00000000 00000000", [](blob_buf *b) { blobmsg_add_string(b, "", ""); }},
        {"8300000a 00016e00 37000000", [](blob_buf *b) { blobmsg_printf(b, "n", "%d", 7); }},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.bytes);
        blob_message m;

        c.add(m.buf());

        const std::string whole = m.wire();
        EXPECT_EQ(whole.substr(whole.find(' ') + 1), c.bytes);
    }
}

TEST(blobmsg_add_test, a_message_of_values_may_have_a_table_as_root)
{
    blob_buf buf = {};

    EXPECT_EQ(blobmsg_buf_init(&buf), 0);
    blobmsg_add_u32(&buf, "a", 1);

    EXPECT_EQ(wire_text(buf.head), "02000010 8500000c 00016100 00000001");
    EXPECT_EQ(taken(blobmsg_format_json(buf.head, true)), R"({"a":1})");
    blob_buf_free(&buf);
}

TEST(blobmsg_add_test, a_type_is_cut_to_seven_bits)
{
    blob_message m;

    EXPECT_EQ(blobmsg_add_field(m.buf(), 0x80 | BLOBMSG_TYPE_UNSPEC, "z", nullptr, 0), 0);

    EXPECT_EQ(m.wire(), "0000000c 80000008 00017a00");
}

TEST(blobmsg_add_test, fails_only_when_the_buffer_cannot_grow)
{
    blob_message m;
    const std::string large(1 << 24, 'x');
    const std::string before = m.wire();

    EXPECT_EQ(blobmsg_add_field(m.buf(), BLOBMSG_TYPE_STRING, "s", large.data(), 1 << 24), -1);

    EXPECT_EQ(m.wire(), before);
}

TEST(blobmsg_add_test, a_name_must_fit_its_length_field)
{
    blob_message m;

    EXPECT_EQ(blobmsg_add_u8(m.buf(), std::string(65535, 'n').c_str(), 1), 0);
    EXPECT_EQ(blobmsg_add_u8(m.buf(), std::string(65536, 'n').c_str(), 1), -1);

    EXPECT_TRUE(blobmsg_check_attr(static_cast<blob_attr *>(m.payload()), true));
}

TEST(blobmsg_add_test, a_text_that_cannot_be_printed_is_not_added)
{
    blob_message m;
    const wchar_t no_character[] = {0xd800, 0};

    EXPECT_EQ(blobmsg_printf(m.buf(), "n", "%ls", no_character), -1);

    EXPECT_EQ(m.wire(), "00000004");
}

TEST(blobmsg_add_test, a_string_without_its_end_is_stored_and_spoils_the_message)
{
    blob_message m;

    EXPECT_EQ(blobmsg_add_field(m.buf(), BLOBMSG_TYPE_STRING, "s", "abc", 3), 0);

    EXPECT_EQ(m.json(), "{}");
    EXPECT_EQ(parsed(m).result, -1);
}

TEST(blobmsg_add_test, a_string_with_its_end_counted_is_a_string)
{
    blob_message m;

    EXPECT_EQ(blobmsg_add_field(m.buf(), BLOBMSG_TYPE_STRING, "s", "abc", 4), 0);

    EXPECT_EQ(m.json(), R"({"s":"abc"})");
    EXPECT_EQ(parsed(m).result, 0);
}

TEST(blobmsg_add_test, a_copied_attribute_keeps_name_type_and_data)
{
    blob_message source(R"({"a":1,"t":{"x":[true,"y"]}})");
    blob_message copy;
    blob_attr *pos;
    size_t rem;

    blobmsg_for_each_attr(pos, source.head(), rem) EXPECT_EQ(blobmsg_add_blob(copy.buf(), pos), 0);

    EXPECT_EQ(copy.wire(), source.wire());
}

TEST(blobmsg_parse_test, no_payload_is_an_error_number_with_a_cleared_table)
{
    blob_message m;

    const parsed empty(m);

    EXPECT_EQ(empty.result, -EINVAL);
    EXPECT_EQ(empty.tb[ID], nullptr);
    EXPECT_EQ(empty.tb[FLAG], nullptr);

    blob_attr *tb[2] = {m.head(), m.head()};
    EXPECT_EQ(blobmsg_parse(id_and_flag, 2, tb, nullptr, 100), -22);
    EXPECT_EQ(tb[ID], nullptr);
}

TEST(blobmsg_parse_test, takes_values_of_the_policys_type_and_converts_none)
{
    const struct {
        const char *json;
        bool id;
        bool flag;
    } cases[] = {
        {R"({"id":1})", true, false},
        {R"({"id":-2147483648})", true, false},
        {R"({"id":2147483647})", true, false},
        {R"({"id":2147483648})", false, false},
        {R"({"id":4294967295})", false, false},
        {R"({"id":4294967296})", false, false},
        {R"({"id":-2147483649})", false, false},
        {R"({"id":true})", false, false},
        {R"({"id":"1"})", false, false},
        {R"({"id":1.0})", false, false},
        {R"({"id":null})", false, false},
        {R"({"id":{}})", false, false},
        {R"({"id":[1]})", false, false},
        {R"({"flag":true})", false, true},
        {R"({"flag":false})", false, true},
        {R"({"flag":1})", false, false},
        {R"({"ID":1,"Flag":true,"idx":2,"i":3})", false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.json);
        blob_message m(c.json);

        const parsed p(m);

        EXPECT_EQ(p.result, 0);
        EXPECT_EQ(p.tb[ID] != nullptr, c.id);
        EXPECT_EQ(p.tb[FLAG] != nullptr, c.flag);
    }
}

TEST(blobmsg_parse_test, a_key_repeated_in_json_keeps_its_last_value)
{
    blob_message m(R"({"id":1,"id":2})");

    const parsed p(m);

    ASSERT_NE(p.tb[ID], nullptr);
    EXPECT_EQ(blobmsg_get_u32(p.tb[ID]), 2u);
}

TEST(blobmsg_parse_test, the_first_attribute_of_the_right_type_wins)
{
    blob_message m;
    blobmsg_add_string(m.buf(), "id", "x");
    blobmsg_add_u32(m.buf(), "id", 2);
    blobmsg_add_u32(m.buf(), "id", 3);

    const parsed p(m);

    EXPECT_EQ(p.result, 0);
    ASSERT_NE(p.tb[ID], nullptr);
    EXPECT_EQ(blobmsg_get_u32(p.tb[ID]), 2u);
}

TEST(blobmsg_parse_test, a_malformed_attribute_ends_it_with_the_earlier_ones_set)
{
    blob_message m;
    blobmsg_add_u32(m.buf(), "id", 2);
    blobmsg_add_field(m.buf(), BLOBMSG_TYPE_INT32, "zz", "123", 3);
    blobmsg_add_u8(m.buf(), "flag", 1);

    const parsed p(m);

    EXPECT_EQ(p.result, -1);
    ASSERT_NE(p.tb[ID], nullptr);
    EXPECT_EQ(blobmsg_get_u32(p.tb[ID]), 2u);
    EXPECT_EQ(p.tb[FLAG], nullptr);
}

TEST(blobmsg_parse_test, plain_attributes_and_unknown_names_are_passed_over)
{
    blob_message m;
    blob_put_u32(m.buf(), BLOBMSG_TYPE_INT32, 1);
    blobmsg_add_string(m.buf(), "unknown", "x");
    blobmsg_add_u32(m.buf(), "id", 5);

    const parsed p(m);

    EXPECT_EQ(p.result, 0);
    ASSERT_NE(p.tb[ID], nullptr);
    EXPECT_EQ(blobmsg_get_u32(p.tb[ID]), 5u);
}

TEST(blobmsg_parse_test, an_attribute_cut_off_by_the_end_is_no_error)
{
    blob_message m;
    blobmsg_add_u32(m.buf(), "id", 5);
    blobmsg_add_u8(m.buf(), "flag", 1);
    blob_attr *tb[2];
    const unsigned whole = m.length();

    // "flag" takes 16 bytes, the last three of them padding.
    for (unsigned missing = 1; missing <= 16; missing++) {
        SCOPED_TRACE(missing);
        EXPECT_EQ(blobmsg_parse(id_and_flag, 2, tb, m.payload(), whole - missing), 0);
        EXPECT_NE(tb[ID], nullptr);
        EXPECT_EQ(tb[FLAG], nullptr);
    }
}

TEST(blobmsg_parse_test, special_policy_types_and_names)
{
    const struct {
        const char *name;
        enum blobmsg_type type;
        const char *json;
        bool set;
    } cases[] = {
        {"x", BLOBMSG_TYPE_UNSPEC, R"({"x":1})", true},
        {"x", BLOBMSG_TYPE_UNSPEC, R"({"x":"text"})", true},
        {"x", BLOBMSG_TYPE_UNSPEC, R"({"x":null})", true},
        {"x", BLOBMSG_CAST_INT64, R"({"x":1})", true},
        {"x", BLOBMSG_CAST_INT64, R"({"x":5000000000})", true},
        {"x", BLOBMSG_CAST_INT64, R"({"x":true})", true},
        {"x", BLOBMSG_CAST_INT64, R"({"x":"1"})", false},
        {"x", BLOBMSG_CAST_INT64, R"({"x":1.5})", false},
        {nullptr, BLOBMSG_TYPE_UNSPEC, R"({"x":1})", false},
        {nullptr, BLOBMSG_TYPE_UNSPEC, R"({"":1})", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << (c.name ? c.name : "NULL") << " " << c.type << " " << c.json);
        const blobmsg_policy policy[] = {{c.name, c.type}};
        blob_message m(c.json);
        blob_attr *tb[1];

        EXPECT_EQ(blobmsg_parse(policy, 1, tb, m.payload(), m.length()), 0);

        EXPECT_EQ(tb[0] != nullptr, c.set);
    }
}

TEST(blobmsg_parse_test, one_attribute_serves_every_row_of_its_name)
{
    constexpr blobmsg_policy policy[] = {{"x", BLOBMSG_TYPE_INT32}, {"x", BLOBMSG_TYPE_UNSPEC}};
    blob_message m(R"({"x":1})");
    blob_attr *tb[2];

    EXPECT_EQ(blobmsg_parse(policy, 2, tb, m.payload(), m.length()), 0);

    EXPECT_NE(tb[0], nullptr);
    EXPECT_EQ(tb[0], tb[1]);
}

TEST(blobmsg_parse_array_test, goes_by_position_and_passes_over_other_types)
{
    constexpr blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_STRING}, {nullptr, BLOBMSG_TYPE_INT32}};
    blob_message m(R"({"a":[7,"first",true,8,9]})");
    blob_attr *const array = static_cast<blob_attr *>(m.payload());
    blob_attr *tb[2];

    EXPECT_EQ(
        blobmsg_parse_array(policy, 2, tb, blobmsg_data(array), static_cast<unsigned>(blobmsg_len(array))),
        0);

    ASSERT_NE(tb[0], nullptr);
    ASSERT_NE(tb[1], nullptr);
    EXPECT_STREQ(blobmsg_get_string(tb[0]), "first");
    EXPECT_EQ(blobmsg_get_u32(tb[1]), 8u);
}

TEST(blobmsg_parse_array_test, judges_only_what_has_the_rows_type)
{
    constexpr blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_INT32}, {nullptr, BLOBMSG_TYPE_STRING}};
    blob_message m(R"({"":7})");
    blobmsg_add_field(m.buf(), BLOBMSG_TYPE_INT32, nullptr, "ab", 2);
    blobmsg_add_field(m.buf(), 9, nullptr, "x", 1);
    blobmsg_add_string(m.buf(), nullptr, "x");
    blob_attr *tb[2] = {m.head(), m.head()};

    EXPECT_EQ(blobmsg_parse_array(policy, 2, tb, m.payload(), m.length()), 0);
    ASSERT_NE(tb[0], nullptr);
    EXPECT_EQ(blobmsg_get_u32(tb[0]), 7u);
    ASSERT_NE(tb[1], nullptr);
    EXPECT_STREQ(blobmsg_get_string(tb[1]), "x");

    constexpr blobmsg_policy numbers[] = {{nullptr, BLOBMSG_TYPE_INT32}, {nullptr, BLOBMSG_TYPE_INT32}};
    EXPECT_EQ(blobmsg_parse_array(numbers, 2, tb, m.payload(), m.length()), -1);
    ASSERT_NE(tb[0], nullptr);
    EXPECT_EQ(blobmsg_get_u32(tb[0]), 7u);
    EXPECT_EQ(tb[1], nullptr);

    constexpr blobmsg_policy anything[] = {{nullptr, BLOBMSG_TYPE_UNSPEC}, {nullptr, BLOBMSG_TYPE_UNSPEC}};
    EXPECT_EQ(blobmsg_parse_array(anything, 2, tb, m.payload(), m.length()), -1);
    EXPECT_EQ(blobmsg_parse_array(anything, 1, tb, m.payload(), m.length()), 0);
}

TEST(blobmsg_parse_array_test, an_empty_array_leaves_a_cleared_table)
{
    constexpr blobmsg_policy policy[] = {{nullptr, BLOBMSG_TYPE_INT32}};
    blob_message m;
    blob_attr *tb[1] = {m.head()};

    EXPECT_EQ(blobmsg_parse_array(policy, 1, tb, m.payload(), 0), 0);
    EXPECT_EQ(tb[0], nullptr);
    EXPECT_EQ(blobmsg_parse_array(policy, 1, tb, nullptr, 0), 0);
    EXPECT_EQ(blobmsg_parse_array(policy, 1, tb, nullptr, 4), -EINVAL);
}

TEST(blobmsg_parse_array_test, knows_no_cast)
{
    constexpr blobmsg_policy policy[] = {{nullptr, BLOBMSG_CAST_INT64}};
    blob_message m(R"({"":7})");
    blob_attr *tb[1];

    EXPECT_EQ(blobmsg_parse_array(policy, 1, tb, m.payload(), m.length()), 0);
    EXPECT_EQ(tb[0], nullptr);
}

TEST(blobmsg_check_attr_test, judges_header_type_and_data)
{
    const struct {
        const char *what;
        raw_attr attr;
        bool unnamed_ok;
        bool named_ok;
    } cases[] = {
        {"named int", extended(5, named("id", "1234")), true, true},
        {"unnamed int", extended(5, named("", "1234")), true, false},
        {"int of 3 bytes", extended(5, named("id", "123")), false, false},
        {"int of 5 bytes", extended(5, named("id", "12345")), false, false},
        {"short of 2 bytes", extended(6, named("id", "12")), true, true},
        {"bool 200", extended(7, named("id", "\xc8")), true, true},
        {"bool of 2 bytes", extended(7, named("id", "12")), false, false},
        {"long of 4 bytes", extended(4, named("id", "1234")), false, false},
        {"double of 7 bytes", extended(8, named("id", "1234567")), false, false},
        {"double of 9 bytes", extended(8, named("id", "123456789")), true, true},
        {"string", extended(3, named("id", "ab\0"s)), true, true},
        {"string without end", extended(3, named("id", "ab")), false, false},
        {"string without bytes", extended(3, named("id", "")), false, false},
        {"null", extended(0, named("id", "")), true, true},
        {"table of rubbish", extended(2, named("id", "rubbish")), true, true},
        {"array of rubbish", extended(1, named("id", "rubbish")), true, true},
        {"type 9", extended(9, named("id", "12345678")), false, false},
        {"type 127", extended(127, named("id", "12345678")), false, false},
        {"no header", extended(0, ""), false, false},
        {"half a header", extended(0, "\0"s), false, false},
        {"name beyond the end", extended(0, "\0\x09id\0\0"s), false, false},
        {"name of 65535",
         extended(0, "\xff\xff"
                     "id\0\0"s),
         false, false},
        {"name not ended", extended(0, "\0\x01xx"s), false, false},
        {"padding of the name missing", extended(0, "\0\x02id\0"s), false, false},
        {"plain int", raw_attr(false, 5, 8, "1234"), true, false},
        {"plain int of 3 bytes", raw_attr(false, 5, 7, "123"), false, false},
        {"shorter than its word", raw_attr(false, 0, 3, ""), false, false},
        {"longer than there is", raw_attr(false, 0, 9, "1234"), false, false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        raw_attr attr = c.attr;
        EXPECT_EQ(blobmsg_check_attr_len(attr.attr(), false, attr.size()), c.unnamed_ok);
        EXPECT_EQ(blobmsg_check_attr_len(attr.attr(), true, attr.size()), c.named_ok);
    }
}

TEST(blobmsg_check_attr_test, the_bounded_call_reads_no_byte_beyond_its_limit)
{
    raw_attr attr = extended(3, named("id", "text\0"s));

    for (size_t length = 0; length < attr.size(); length++) {
        SCOPED_TRACE(length);
        const std::string whole = attr.text();
        raw_attr cut(std::vector<unsigned char>(whole.begin(), whole.begin() + static_cast<long>(length)));
        EXPECT_FALSE(blobmsg_check_attr_len(cut.attr(), false, length));
    }
    EXPECT_TRUE(blobmsg_check_attr(attr.attr(), true));
}

TEST(blobmsg_check_array_test, counts_members_of_one_type)
{
    const struct {
        const char *json;
        int type;
        int count;
    } cases[] = {
        {R"({"a":[]})", BLOBMSG_TYPE_STRING, 0},       {R"({"a":["x","y"]})", BLOBMSG_TYPE_STRING, 2},
        {R"({"a":["x",1]})", BLOBMSG_TYPE_STRING, -1}, {R"({"a":["x",1]})", BLOBMSG_TYPE_UNSPEC, 2},
        {R"({"a":[1,2,3]})", BLOBMSG_TYPE_INT32, 3},   {R"({"a":[1,2.0,3]})", BLOBMSG_TYPE_INT32, -1},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.json);
        blob_message m(c.json);
        EXPECT_EQ(blobmsg_check_array(static_cast<blob_attr *>(m.payload()), c.type), c.count);
    }
}

TEST(blobmsg_check_array_test, a_malformed_member_spoils_the_array)
{
    blob_message m;
    void *const array = blobmsg_open_array(m.buf(), "a");
    blobmsg_add_field(m.buf(), BLOBMSG_TYPE_STRING, nullptr, "x", 1);
    blobmsg_close_array(m.buf(), array);

    EXPECT_EQ(blobmsg_check_array(static_cast<blob_attr *>(m.payload()), BLOBMSG_TYPE_STRING), -1);
}

TEST(blobmsg_check_array_test, takes_containers_only_and_known_types)
{
    blob_message m;
    blobmsg_add_string(m.buf(), "text", "x");
    blobmsg_close_array(m.buf(), blobmsg_open_array(m.buf(), "empty"));
    void *const table = blobmsg_open_table(m.buf(), "table");
    blobmsg_add_u32(m.buf(), "named", 1);
    blobmsg_close_table(m.buf(), table);
    void *const spoilt = blobmsg_open_table(m.buf(), "spoilt");
    blobmsg_add_u32(m.buf(), "", 1);
    blobmsg_close_table(m.buf(), spoilt);
    std::vector<blob_attr *> members;
    blob_attr *member;
    size_t rem;
    blobmsg_for_each_attr(member, m.head(), rem) members.push_back(member);
    ASSERT_EQ(members.size(), 4u);

    EXPECT_EQ(blobmsg_check_array(members[0], BLOBMSG_TYPE_UNSPEC), -1);
    EXPECT_EQ(blobmsg_check_array(m.head(), BLOBMSG_TYPE_UNSPEC), -1);
    EXPECT_EQ(blobmsg_check_array(members[1], BLOBMSG_CAST_INT64), -1);
    EXPECT_EQ(blobmsg_check_array(members[2], BLOBMSG_TYPE_INT32), 1);
    EXPECT_EQ(blobmsg_check_array(members[3], BLOBMSG_TYPE_INT32), -1);
    for (blob_attr *const attr : members) {
        const bool expected = blobmsg_check_array(attr, BLOBMSG_TYPE_INT32) >= 0;
        EXPECT_EQ(blobmsg_check_attr_list(attr, BLOBMSG_TYPE_INT32), expected);
    }
    raw_attr headless = extended(BLOBMSG_TYPE_ARRAY, "\0"s);
    EXPECT_EQ(blobmsg_check_array(headless.attr(), BLOBMSG_TYPE_UNSPEC), -1);
}

TEST(blobmsg_getter_test, null_and_the_root_are_understood)
{
    blob_message m(R"({"a":1})");

    EXPECT_EQ(blobmsg_get_string(nullptr), nullptr);
    EXPECT_EQ(blobmsg_data(nullptr), nullptr);
    EXPECT_EQ(blobmsg_data(m.head()), blob_data(m.head()));
    EXPECT_EQ(blobmsg_data_len(m.head()), blob_len(m.head()));
    EXPECT_EQ(blobmsg_len(m.head()), blob_len(m.head()));
    EXPECT_STREQ(blobmsg_name(m.head()), "");
}

TEST(blobmsg_getter_test, return_what_was_added)
{
    blob_message m;
    blobmsg_add_u8(m.buf(), "a", 200);
    blobmsg_add_u16(m.buf(), "bb", 60000);
    blobmsg_add_u32(m.buf(), "ccc", 4000000000);
    blobmsg_add_u64(m.buf(), "dddd", UINT64_MAX);
    blobmsg_add_double(m.buf(), "eeeee", -0.5);
    blobmsg_add_string(m.buf(), "ffffff", "text");
    std::vector<blob_attr *> attrs;
    blob_attr *pos;
    size_t rem;
    blobmsg_for_each_attr(pos, m.head(), rem) attrs.push_back(pos);

    ASSERT_EQ(attrs.size(), 6u);
    EXPECT_EQ(blobmsg_get_u8(attrs[0]), 200);
    EXPECT_TRUE(blobmsg_get_bool(attrs[0]));
    EXPECT_EQ(blobmsg_get_u16(attrs[1]), 60000);
    EXPECT_EQ(blobmsg_get_u32(attrs[2]), 4000000000);
    EXPECT_EQ(blobmsg_get_u64(attrs[3]), UINT64_MAX);
    EXPECT_EQ(blobmsg_get_double(attrs[4]), -0.5);
    EXPECT_STREQ(blobmsg_get_string(attrs[5]), "text");
    EXPECT_STREQ(blobmsg_name(attrs[5]), "ffffff");
    EXPECT_EQ(blobmsg_type(attrs[5]), BLOBMSG_TYPE_STRING);
}

TEST(blobmsg_getter_test, casts_widen_any_integer)
{
    blob_message m;
    blobmsg_add_u8(m.buf(), "a", 0xff);
    blobmsg_add_u16(m.buf(), "b", 0xffff);
    blobmsg_add_u32(m.buf(), "c", 0xffffffff);
    blobmsg_add_u64(m.buf(), "d", UINT64_MAX);
    const uint64_t widened[] = {0xff, 0xffff, 0xffffffff, UINT64_MAX};
    blob_attr *pos;
    size_t rem;
    size_t i = 0;

    blobmsg_for_each_attr(pos, m.head(), rem)
    {
        SCOPED_TRACE(blobmsg_name(pos));
        EXPECT_EQ(blobmsg_cast_u64(pos), widened[i++]);
        EXPECT_EQ(blobmsg_cast_s64(pos), -1);
    }
    EXPECT_EQ(i, 4u);
}

TEST(blobmsg_getter_test, what_is_no_integer_is_cast_to_nothing)
{
    blob_message m(R"({"a":"7","b":7.0,"c":null,"d":[7]})");
    blob_attr *pos;
    size_t rem;

    blobmsg_for_each_attr(pos, m.head(), rem)
    {
        SCOPED_TRACE(blobmsg_name(pos));
        EXPECT_EQ(blobmsg_cast_u64(pos), 0u);
        EXPECT_EQ(blobmsg_cast_s64(pos), 0);
    }
}

TEST(blobmsg_getter_test, a_header_that_claims_too_much_leaves_no_data)
{
    raw_attr attr = extended(2, "\xff\xff"
                                "ab"s);

    EXPECT_EQ(blobmsg_data_len(attr.attr()), 0u);
    EXPECT_EQ(static_cast<char *>(blobmsg_data(attr.attr())), attr.attr()->data + 4);

    raw_attr half_a_length = extended(2, "\xff"s);
    EXPECT_EQ(blobmsg_data_len(half_a_length.attr()), 0u);
}

TEST(blobmsg_for_each_attr_test, visits_members_and_nothing_of_null)
{
    blob_message m(R"({"t":{"a":1,"b":2}})");
    blob_attr *const table = static_cast<blob_attr *>(m.payload());
    const blob_attr *pos;
    size_t rem;
    std::string names;

    blobmsg_for_each_attr(pos, table, rem) names += blobmsg_name(pos);
    EXPECT_EQ(names, "ab");

    blob_attr *const none = nullptr;
    blobmsg_for_each_attr(pos, none, rem) names += "!";
    EXPECT_EQ(names, "ab");
}

} // namespace
