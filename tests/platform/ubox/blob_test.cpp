// Plain attributes and the buffer they are built in.
#include "platform/ubox/c_caller.h"
#include "platform/ubox/support.h"

#include <cerrno>

using namespace std::string_literals;

namespace {

constexpr blob_attr_info field_rules[] = {
    {.type = BLOB_ATTR_UNSPEC},
    {.type = BLOB_ATTR_INT32},
    {.type = BLOB_ATTR_STRING},
    {.type = BLOB_ATTR_STRING, .minlen = 8, .maxlen = 9},
};
constexpr int field_count = ARRAY_SIZE(field_rules);

TEST(blob_buf_test, starts_with_an_empty_root_in_256_bytes_and_works_again_after_free)
{
    blob_buf buf = {};
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(blob_buf_init(&buf, 0), 0);
        EXPECT_EQ(wire_text(buf.head), "00000004");
        EXPECT_EQ(buf.buflen, 256);

        blob_buf_free(&buf);
        blob_buf_free(&buf);

        EXPECT_EQ(buf.head, nullptr);
        EXPECT_EQ(buf.buf, nullptr);
        EXPECT_EQ(buf.buflen, 0);
    }
}

TEST(blob_buf_test, refuses_to_add_after_free)
{
    blob_message m;

    blob_buf_free(m.buf());

    EXPECT_EQ(blob_put_u32(m.buf(), 1, 1), nullptr);
    EXPECT_EQ(blob_nest_start(m.buf(), 1), nullptr);
}

TEST(blob_buf_test, keeps_its_memory_and_leaves_no_old_bytes_when_used_again)
{
    blob_message m;
    blob_put(m.buf(), 1, "\xff\xff\xff\xff\xff\xff\xff\xff", 8);
    const int size = m.buf()->buflen;

    blob_buf_init(m.buf(), 0);
    blob_put_u8(m.buf(), 9, 1);

    EXPECT_EQ(m.buf()->buflen, size);
    EXPECT_EQ(m.wire(), "0000000c 09000005 01000000");
}

TEST(blob_buf_test, a_root_carries_its_id)
{
    blob_message m;

    blob_buf_init(m.buf(), 5);

    EXPECT_EQ(m.wire(), "05000004");
    EXPECT_FALSE(blob_is_extended(m.head()));
}

TEST(blob_buf_test, plain_attributes_have_the_documented_bytes)
{
    blob_message m;

    blob_put_string(m.buf(), 2, "ab");
    blob_put_u32(m.buf(), 3, 0x11223344);
    blob_put_u8(m.buf(), 9, 1);
    blob_put_u16(m.buf(), 4, 0x1234);
    blob_put_u64(m.buf(), 5, 0x0102030405060708);

    EXPECT_EQ(m.wire(), "00000030 02000007 61620000 03000008 11223344 09000005 01000000 "
                        "04000006 12340000 0500000c 01020304 05060708");
}

TEST(blob_buf_test, getters_return_what_was_put)
{
    blob_message m;

    EXPECT_EQ(blob_get_u8(blob_put_u8(m.buf(), 1, 200)), 200);
    EXPECT_EQ(blob_get_u16(blob_put_u16(m.buf(), 1, 60000)), 60000);
    EXPECT_EQ(blob_get_u32(blob_put_u32(m.buf(), 1, 4000000000)), 4000000000);
    EXPECT_EQ(blob_get_u64(blob_put_u64(m.buf(), 1, UINT64_MAX)), UINT64_MAX);
    EXPECT_EQ(blob_get_int8(blob_put_int8(m.buf(), 1, -1)), -1);
    EXPECT_EQ(blob_get_int16(blob_put_int16(m.buf(), 1, -2)), -2);
    EXPECT_EQ(blob_get_int32(blob_put_int32(m.buf(), 1, -3)), -3);
    EXPECT_EQ(blob_get_int64(blob_put_int64(m.buf(), 1, INT64_MIN)), INT64_MIN);
    EXPECT_STREQ(blob_get_string(blob_put_string(m.buf(), 1, "text")), "text");
}

TEST(blob_buf_test, nested_containers_count_the_padding_of_their_children)
{
    blob_message m;

    void *const outer = blob_nest_start(m.buf(), 7);
    void *const inner = blob_nest_start(m.buf(), 6);
    blob_put_u8(m.buf(), 1, 0xaa);
    EXPECT_EQ(blob_id(m.head()), 6u);
    blob_nest_end(m.buf(), inner);
    EXPECT_EQ(blob_id(m.head()), 7u);
    blob_nest_end(m.buf(), outer);

    EXPECT_EQ(m.wire(), "00000014 07000010 0600000c 01000005 aa000000");
}

TEST(blob_buf_test, grows_in_steps_of_256_bytes)
{
    const struct {
        unsigned payload;
        int size;
    } cases[] = {
        // Root and attribute take 4 bytes each.
        {248, 256}, {249, 512}, {252, 512}, {500, 512}, {504, 768}, {505, 768}, {10000, 10240},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.payload);
        blob_message m;
        const std::string data(c.payload, 'x');

        ASSERT_NE(blob_put(m.buf(), 1, data.data(), c.payload), nullptr);

        EXPECT_EQ(m.buf()->buflen, c.size);
    }
}

TEST(blob_buf_test, head_and_cookies_survive_growth)
{
    blob_message m;
    const std::string large(5000, 'x');
    void *const outer = blob_nest_start(m.buf(), 1);
    void *const inner = blob_nest_start(m.buf(), 2);

    blob_put(m.buf(), 3, large.data(), 5000);
    blob_nest_end(m.buf(), inner);
    blob_put(m.buf(), 4, large.data(), 5000);
    blob_nest_end(m.buf(), outer);

    EXPECT_EQ(blob_raw_len(m.head()), 4u + 4 + 4 + 5004 + 5004);
    blob_attr *const first = static_cast<blob_attr *>(m.payload());
    EXPECT_EQ(blob_id(first), 1u);
    blob_attr *const second = static_cast<blob_attr *>(blob_data(first));
    EXPECT_EQ(blob_id(second), 2u);
    EXPECT_EQ(blob_id(blob_next(second)), 4u);
}

TEST(blob_buf_test, stops_growing_before_a_length_no_longer_fits_its_24_bits)
{
    blob_message m;
    const std::string megabyte(1 << 20, 'x');
    int added = 0;

    while (added < 32 && blob_put(m.buf(), 1, megabyte.data(), 1 << 20))
        added++;

    EXPECT_EQ(added, 15);
    EXPECT_LE(m.buf()->buflen, 0xffffff);
    EXPECT_EQ(blob_raw_len(m.head()), 4u + 15 * (4 + (1u << 20)));
    EXPECT_EQ(blob_put(m.buf(), 1, megabyte.data(), 0xffffffff), nullptr);
    EXPECT_NE(blob_put_u32(m.buf(), 1, 1), nullptr);
}

TEST(blob_buf_test, the_greatest_attribute_leaves_room_for_a_whole_step_of_growth)
{
    // Root and attribute take 4 bytes each. Growth always adds more than is missing, so that the last word
    // before 0xffff00 is out of reach for a single attribute.
    const struct {
        unsigned payload;
        bool fits;
    } cases[] = {{0xfffefc - 8, true}, {0xfffefc - 7, false}, {0xffffff - 8, false}};
    const std::string data(0xffffff, 'x');
    for (const auto &c : cases) {
        SCOPED_TRACE(c.payload);
        blob_message m;

        EXPECT_EQ(blob_put(m.buf(), 1, data.data(), c.payload) != nullptr, c.fits);

        EXPECT_LE(m.buf()->buflen, 0xffff00);
        EXPECT_EQ(blob_raw_len(m.head()), c.fits ? 8u + c.payload : 4u);
    }
}

TEST(blob_buf_test, a_container_that_could_not_be_opened_is_not_closed)
{
    blob_message m;
    blob_put_u8(m.buf(), 1, 1);
    m.buf()->grow = [](blob_buf *, int) { return false; };
    while (blob_put(m.buf(), 2, nullptr, 0))
        continue;
    const std::string before = m.wire();

    void *const cookie = blob_nest_start(m.buf(), 3);
    blob_nest_end(m.buf(), cookie);

    EXPECT_EQ(cookie, nullptr);
    EXPECT_EQ(m.wire(), before);
}

TEST(blob_buf_test, a_callers_own_way_of_growing_is_kept)
{
    static int asked;
    asked = 0;
    blob_buf buf = {};
    buf.grow = [](blob_buf *, int minlen) {
        asked = minlen;
        return false;
    };

    EXPECT_EQ(blob_buf_init(&buf, 0), -ENOMEM);

    EXPECT_EQ(asked, 4);
    blob_buf_free(&buf);
}

TEST(blob_buf_test, a_new_attribute_has_room_for_its_payload)
{
    blob_message m;

    blob_attr *const attr = blob_new(m.buf(), 3, 5);

    ASSERT_NE(attr, nullptr);
    EXPECT_EQ(blob_id(attr), 3u);
    EXPECT_EQ(blob_len(attr), 5u);
    EXPECT_EQ(blob_raw_len(m.head()), 4u + 12);
    EXPECT_EQ(blob_new(m.buf(), 3, -1), nullptr);
    EXPECT_EQ(blob_new(m.buf(), 3, 0x1000000), nullptr);
}

TEST(blob_attr_test, a_length_is_changed_alone)
{
    raw_attr attr(true, 0x7f, 0xffffff, "");

    blob_set_raw_len(attr.attr(), 5);
    EXPECT_EQ(wire_text(attr.attr(), 4), "ff000005");
    blob_set_raw_len(attr.attr(), 0x80ffffff);
    EXPECT_EQ(wire_text(attr.attr(), 4), "ffffffff");
    EXPECT_EQ(blob_raw_len(attr.attr()), BLOB_ATTR_LEN_MASK);
}

TEST(blob_attr_test, a_copy_brings_padding_that_the_original_need_not_have)
{
    raw_attr attr(false, 2, 7, "ab\0"s);

    const std::unique_ptr<blob_attr, void (*)(void *)> copy(blob_memdup(attr.attr()), std::free);

    EXPECT_EQ(wire_text(copy.get(), 8), "02000007 61620000");
}

TEST(blob_attr_test, the_headers_suffice_for_a_program_in_c)
{
    blob_message m;
    blob_put_u8(m.buf(), 1, 1);
    blob_put_u8(m.buf(), 2, 2);
    blob_put_u8(m.buf(), 1, 3);
    const char *const names[] = {"a", "b"};

    const std::unique_ptr<blob_attr, void (*)(void *)> rest(without_id_in_c(m.head(), 1), std::free);

    EXPECT_EQ(wire_text(rest.get()), "0000000c 02000005 02000000");
    EXPECT_EQ(size_of_numbers_in_c(names, 2), 4u + 2 * 12);
}

TEST(blob_attr_test, an_attribute_shorter_than_its_word_has_no_payload)
{
    for (size_t raw = 0; raw < 4; raw++) {
        SCOPED_TRACE(raw);
        raw_attr attr(false, 1, raw, "");

        EXPECT_EQ(blob_len(attr.attr()), 0u);
    }
}

TEST(blob_check_type_test, judges_payload_sizes)
{
    const struct {
        int type;
        std::string data;
        bool valid;
    } cases[] = {
        {BLOB_ATTR_UNSPEC, "", true},          {BLOB_ATTR_NESTED, "x", true},
        {BLOB_ATTR_BINARY, "xyz", true},       {BLOB_ATTR_STRING, "", false},
        {BLOB_ATTR_STRING, "a", false},        {BLOB_ATTR_STRING, "a\0"s, true},
        {BLOB_ATTR_STRING, "\0"s, true},       {BLOB_ATTR_STRING, "a\0b"s, false},
        {BLOB_ATTR_INT8, "", false},           {BLOB_ATTR_INT8, "1", true},
        {BLOB_ATTR_INT8, "12", false},         {BLOB_ATTR_INT16, "1", false},
        {BLOB_ATTR_INT16, "12", true},         {BLOB_ATTR_INT16, "123", false},
        {BLOB_ATTR_INT32, "123", false},       {BLOB_ATTR_INT32, "1234", true},
        {BLOB_ATTR_INT32, "12345", false},     {BLOB_ATTR_INT64, "1234567", false},
        {BLOB_ATTR_INT64, "12345678", true},   {BLOB_ATTR_INT64, "123456789", false},
        {BLOB_ATTR_DOUBLE, "1234567", false},  {BLOB_ATTR_DOUBLE, "12345678", true},
        {BLOB_ATTR_DOUBLE, "123456789", true},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << ", " << c.data.size() << " bytes");
        EXPECT_EQ(blob_check_type(c.data.data(), static_cast<unsigned>(c.data.size()), c.type), c.valid);
    }
}

TEST(blob_parse_test, files_children_by_id_and_counts_different_ids)
{
    blob_message m;
    blob_attr *found[field_count];
    blob_put_u32(m.buf(), 1, 7);
    blob_put_string(m.buf(), 2, "first");
    blob_put_string(m.buf(), 2, "last");

    EXPECT_EQ(blob_parse(m.head(), found, field_rules, field_count), 2);

    EXPECT_EQ(found[0], nullptr);
    EXPECT_EQ(blob_get_u32(found[1]), 7u);
    EXPECT_STREQ(blob_get_string(found[2]), "last");
    EXPECT_EQ(found[3], nullptr);
}

TEST(blob_parse_test, clears_what_it_does_not_find)
{
    blob_message m;
    blob_attr *found[field_count];
    std::fill(std::begin(found), std::end(found), m.head());

    EXPECT_EQ(blob_parse(m.head(), found, field_rules, field_count), 0);

    for (const blob_attr *attr : found)
        EXPECT_EQ(attr, nullptr);
}

TEST(blob_parse_test, the_last_valid_child_of_an_id_wins)
{
    blob_message m;
    blob_attr *found[field_count];
    blob_put_string(m.buf(), 2, "valid");
    blob_put(m.buf(), 2, "no end", 6);

    EXPECT_EQ(blob_parse(m.head(), found, field_rules, field_count), 1);

    EXPECT_STREQ(blob_get_string(found[2]), "valid");
}

TEST(blob_parse_test, passes_over_unknown_ids_and_wrong_sizes)
{
    blob_message m;
    blob_attr *found[field_count];
    blob_put_u32(m.buf(), field_count, 1);
    blob_put_u32(m.buf(), 127, 1);
    blob_put_u16(m.buf(), 1, 1);

    EXPECT_EQ(blob_parse(m.head(), found, field_rules, field_count), 0);
}

TEST(blob_parse_test, length_limits_count_the_word)
{
    const struct {
        const char *text;
        bool valid;
    } cases[] = {{"ab", false}, {"abc", true}, {"abcd", true}, {"abcde", false}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        blob_message m;
        blob_attr *found[field_count];
        blob_put_string(m.buf(), 3, c.text);

        blob_parse(m.head(), found, field_rules, field_count);

        EXPECT_EQ(found[3] != nullptr, c.valid);
    }
}

TEST(blob_parse_test, stops_silently_at_a_child_that_is_cut_off)
{
    const struct {
        const char *name;
        std::string tail;
        unsigned found;
    } cases[] = {
        {"length 0",
         "\x02\0\0\0\x03\0\0\x08"s
         "abc\0"s,
         1},
        {"beyond the end",
         "\x02\0\0\x09"s
         "abcd"s,
         1},
        {"padding missing",
         "\x02\0\0\x07"s
         "ab\0"s,
         1},
        {"word incomplete", "\x02\0\0"s, 1},
        {"complete",
         "\x02\0\0\x07"s
         "ab\0\0"s,
         2},
        {"shorter than its word, then a good one",
         "\x02\0\0\x03"s
         "\x02\0\0\x07"s
         "ab\0\0"s,
         2},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        const std::string payload = "\x01\0\0\x08"s
                                    "\0\0\0\x05"s +
                                    c.tail;
        raw_attr attr(false, 0, 4 + payload.size(), payload);
        blob_attr *found[field_count];

        EXPECT_EQ(blob_parse(attr.attr(), found, field_rules, field_count), static_cast<int>(c.found));

        ASSERT_NE(found[1], nullptr);
        EXPECT_EQ(blob_get_u32(found[1]), 5u);
    }
}

TEST(blob_parse_test, a_child_shorter_than_its_word_suits_no_rule)
{
    const std::string payload = "\0\0\0\x03"s;
    raw_attr attr(false, 0, 4 + payload.size(), payload);
    blob_attr *found[field_count];

    EXPECT_EQ(blob_parse(attr.attr(), found, field_rules, field_count), 0);

    EXPECT_EQ(found[0], nullptr);
}

TEST(blob_parse_test, untrusted_bytes_must_hold_the_whole_attribute)
{
    blob_message m;
    blob_attr *found[field_count];
    std::fill(std::begin(found), std::end(found), m.head());
    blob_put_u32(m.buf(), 1, 7);
    const size_t length = blob_raw_len(m.head());

    EXPECT_EQ(blob_parse_untrusted(m.head(), length - 1, found, field_rules, field_count), 0);
    EXPECT_EQ(blob_parse_untrusted(m.head(), 3, found, field_rules, field_count), 0);
    EXPECT_EQ(found[1], m.head()) << "the table must be left alone";

    EXPECT_EQ(blob_parse_untrusted(m.head(), length, found, field_rules, field_count), 1);
    EXPECT_EQ(blob_get_u32(found[1]), 7u);
}

TEST(blob_parse_test, an_untrusted_attribute_may_be_empty)
{
    blob_message m;
    blob_attr *found[field_count];
    std::fill(std::begin(found), std::end(found), m.head());

    EXPECT_EQ(blob_parse_untrusted(m.head(), sizeof(blob_attr), found, field_rules, field_count), 0);

    EXPECT_EQ(found[1], nullptr) << "it was read, and holds nothing";
}

TEST(blob_for_each_attr_test, visits_children_in_order_and_nothing_of_null)
{
    blob_message m;
    const blob_attr *pos;
    size_t rem;
    std::string ids;
    for (int id = 1; id <= 3; id++)
        blob_put_u8(m.buf(), id, 0);

    blob_for_each_attr(pos, m.head(), rem) ids += std::to_string(blob_id(pos));
    EXPECT_EQ(ids, "123");

    blob_attr *const none = nullptr;
    blob_for_each_attr(pos, none, rem) ids += "!";
    EXPECT_EQ(ids, "123");
}

} // namespace
