// Text fields of fixed size: cut, padded, never written beyond.
#include "base/text.h"

#include <climits>
#include <gtest/gtest.h>
#include <string>

namespace {

// A field with something behind it.
struct guarded_field {
    char text[6];
    char behind[4];
};

guarded_field filled_field()
{
    guarded_field field;
    memset(&field, '#', sizeof(field));
    return field;
}

std::string bytes(const guarded_field &field)
{
    return {reinterpret_cast<const char *>(&field), sizeof(field)};
}

std::string with_guard(std::string text)
{
    text.resize(6, '\0');
    return text + "####";
}

TEST(text_test, set_pads_a_short_value_and_cuts_a_long_one_without_a_terminator)
{
    for (const char *value : {"", "a", "abcd", "abcde", "abcdef", "abcdefg", "abcdefghijklm"}) {
        SCOPED_TRACE(value);
        guarded_field field = filled_field();

        text_ref(field.text).set(value);

        EXPECT_EQ(bytes(field), with_guard(value));
        EXPECT_EQ(text_view(field.text), std::string(value).substr(0, 6));
    }
}

TEST(text_test, format_terminates_always_and_tells_whether_all_of_it_fitted)
{
    struct {
        const char *value;
        const char *stored;
        bool fits;
    } const cases[] = {{"", "", true},
                       {"abcd", "abcd", true},
                       {"abcde", "abcde", true},
                       {"abcdef", "abcde", false},
                       {"abcdefghijklm", "abcde", false}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.value);
        guarded_field field = filled_field();

        EXPECT_EQ(text_ref(field.text).format("%s", row.value), row.fits);

        EXPECT_STREQ(field.text, row.stored);
        EXPECT_EQ(std::string(field.behind, 4), "####");
    }
}

TEST(text_test, clear_zeroes_the_field_alone)
{
    guarded_field field = filled_field();

    text_ref(field.text).clear();

    EXPECT_EQ(bytes(field), with_guard(""));
    EXPECT_TRUE(text_empty(field.text));
}

TEST(text_test, a_full_field_is_read_and_copied_to_its_end)
{
    guarded_field field = filled_field();
    memcpy(field.text, "abcdef", 6);

    EXPECT_EQ(text_view(field.text), "abcdef");
    EXPECT_STREQ(c_text(field.text), "abcdef");
    EXPECT_FALSE(text_empty(field.text));
}

TEST(text_test, numbers_are_read_as_far_as_they_go)
{
    struct {
        const char *text;
        int number;
    } const cases[] = {{"", 0},
                       {"7", 7},
                       {" 7", 7},
                       {"\t-7x", -7},
                       {"+12", 12},
                       {"0x10", 0},
                       {"x7", 0},
                       {"12 13", 12},
                       {"010", 10},
                       {"1.9", 1},
                       {"999999999", 999999999},
                       {"123456789x", 123456789},
                       {"-123456789", -123456789},
                       {"1234567890", 1234567890},
                       {"00000000000012", 12},
                       {"99999999999999999999", -1},
                       {"-", 0},
                       {"4294967297", 1},
                       {"2147483647", INT_MAX},
                       {"4294967295", -1}};
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(text_number(row.text), row.number);
    }
}

} // namespace
