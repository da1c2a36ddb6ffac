// Each argument by itself: what is accepted, what is stored, and what a refusal calls it.
#include "create/parse_args.h"

#include "service/policies.h"
#include "support/golden_tables.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

// The arguments of one type, in the order in which a request is judged.
std::vector<golden_argument> arguments_of(int type)
{
    std::vector<golden_argument> arguments = golden_arguments();
    std::erase_if(arguments, [&](const golden_argument &argument) { return argument.type != type; });
    return arguments;
}

const std::vector<golden_argument> numbers = arguments_of(BLOBMSG_TYPE_INT32);
const std::vector<golden_argument> flags = arguments_of(BLOBMSG_TYPE_INT8);
const std::vector<golden_argument> texts = arguments_of(BLOBMSG_TYPE_STRING);

const wan_field &field_of(const std::string &name)
{
    for (const arg_rule &rule : arg_rules)
        if (name == rule.field.name)
            return rule.field;
    throw std::out_of_range("no rule for " + name);
}

// One more than the greatest number that the argument's field keeps.
uint32_t field_range(const golden_argument &argument)
{
    return 1U << (8 * field_of(argument.name).size);
}

// A request under construction, and what became of it.
class parse_args_test : public testing::Test {
protected:
    parse_args_test() { restart(); }
    ~parse_args_test() override { blob_buf_free(&message_); }

    // An empty request and a record with a value in every byte, to see what is left alone.
    void restart()
    {
        blob_buf_init(&message_, 0);
        memset(&record, 0x5a, sizeof(record));
        memset(refused, 0, sizeof(refused));
    }
    void number(const char *name, uint32_t value) { blobmsg_add_u32(&message_, name, value); }
    void flag(const char *name, unsigned value)
    {
        blobmsg_add_u8(&message_, name, static_cast<uint8_t>(value));
    }
    void text(const char *name, const std::string &value)
    {
        blobmsg_add_string(&message_, name, value.c_str());
    }

    int parse()
    {
        blob_attr *attributes[add_arg_count];
        parse_request(add_policy.rows, message_.head, attributes);
        return wan_parse_args(attributes, &record, refused);
    }

    void expect_refusal(const char *display)
    {
        EXPECT_EQ(-1, parse());
        EXPECT_STREQ(display, refused);
    }
    void expect_stored(const char *name, uint32_t value)
    {
        EXPECT_EQ(0, parse());
        EXPECT_EQ(value, field_number(record, field_of(name)));
        EXPECT_STREQ("", refused);
    }

    wan_config record;
    char refused[display_name_size];

private:
    blob_buf message_ = {};
};

constexpr uint32_t filler8 = 0x5a;

TEST_F(parse_args_test, numbers_are_accepted_within_their_range)
{
    for (const golden_argument &row : numbers) {
        for (const uint32_t value : {row.low, row.high}) {
            SCOPED_TRACE(row.name + std::to_string(value));
            restart();
            number(row.name.c_str(), value);

            expect_stored(row.name.c_str(), value);
        }
    }
}

TEST_F(parse_args_test, numbers_outside_their_range_are_refused_by_name)
{
    for (const golden_argument &row : numbers) {
        const uint32_t below = row.low - 1; // for a range from 0 the greatest number of all
        for (const uint32_t value : {below, row.high + 1, field_range(row) - 1}) {
            SCOPED_TRACE(row.name + std::to_string(value));
            restart();
            number(row.name.c_str(), value);

            expect_refusal(row.display.c_str());
        }
    }
}

TEST_F(parse_args_test, a_number_is_cut_to_its_width_before_it_is_judged)
{
    for (const golden_argument &row : numbers) {
        SCOPED_TRACE(row.name);
        restart();
        number(row.name.c_str(), field_range(row) + row.high);
        expect_stored(row.name.c_str(), row.high);

        restart();
        number(row.name.c_str(), field_range(row) + row.high + 1);
        expect_refusal(row.display.c_str());
    }
}

TEST_F(parse_args_test, cut_numbers_by_example)
{
    number("wanMode", 256);
    expect_stored("wanMode", 0);

    restart();
    number("mtu", 66036); // 500 in 16 bits
    expect_refusal("MTU");
}

TEST_F(parse_args_test, flags_are_0_or_1)
{
    for (const golden_argument &row : flags) {
        SCOPED_TRACE(row.name);
        for (const unsigned value : {0U, 1U}) {
            restart();
            flag(row.name.c_str(), value);
            expect_stored(row.name.c_str(), value);
        }
        for (const unsigned value : {2U, 255U}) {
            restart();
            flag(row.name.c_str(), value);
            expect_refusal(row.display.c_str());
        }
    }
}

TEST_F(parse_args_test, texts_are_accepted_up_to_their_length)
{
    for (const golden_argument &row : texts) {
        for (const uint32_t length : {row.low, row.high - 1, row.high}) {
            SCOPED_TRACE(row.name + std::to_string(length));
            restart();
            const std::string value(length, 'x');
            text(row.name.c_str(), value);

            EXPECT_EQ(0, parse());

            EXPECT_STREQ(value.c_str(), field_text(record, field_of(row.name)));
        }
    }
}

TEST_F(parse_args_test, longer_texts_are_refused_by_name)
{
    for (const golden_argument &row : texts) {
        for (const uint32_t length : {row.high + 1, row.high + 1000}) {
            SCOPED_TRACE(row.name + std::to_string(length));
            restart();
            text(row.name.c_str(), std::string(length, 'x'));

            expect_refusal(row.display.c_str());
        }
    }
}

TEST_F(parse_args_test, the_content_of_a_text_is_not_examined)
{
    text("ip", "not an address");
    text("bind", "1x 0");

    EXPECT_EQ(0, parse());

    EXPECT_STREQ("not an address", record.ip);
    EXPECT_STREQ("1x 0", record.bind);
}

TEST_F(parse_args_test, what_a_request_leaves_out_stays_as_it_was)
{
    wan_config before;
    memset(&before, 0x5a, sizeof(before));

    EXPECT_EQ(0, parse());

    EXPECT_EQ(0, memcmp(&before, &record, sizeof(record)));
    EXPECT_STREQ("", refused);
}

TEST_F(parse_args_test, an_argument_changes_its_own_field_only)
{
    wan_config expected;
    memset(&expected, 0x5a, sizeof(expected));
    expected.prio = 5;
    number("prio", 5);

    EXPECT_EQ(0, parse());

    EXPECT_EQ(0, memcmp(&expected, &record, sizeof(record)));
}

TEST_F(parse_args_test, the_first_entry_is_not_looked_at)
{
    number("notUsed", 12345);

    EXPECT_EQ(0, parse());

    EXPECT_EQ(filler8, record.wanId);
}

TEST_F(parse_args_test, every_argument_has_its_display_name_and_place)
{
    const std::vector<golden_argument> arguments = golden_arguments();
    ASSERT_EQ(arguments.size(), std::size(arg_rules));
    for (size_t i = 0; i < arguments.size(); i++)
        EXPECT_EQ(arguments[i].display, arg_rules[i].display);
}

TEST_F(parse_args_test, of_several_invalid_arguments_the_first_in_order_is_named)
{
    // From the last argument to the first, each addition moves the refusal to the front.
    const std::vector<golden_argument> arguments = golden_arguments();
    for (size_t first = arguments.size(); first-- > 0;) {
        const std::string display = arguments[first].display;
        SCOPED_TRACE(display);
        restart();
        for (size_t i = arguments.size(); i-- > first;) {
            const arg_rule &rule = arg_rules[i];
            if (rule.type == BLOBMSG_TYPE_STRING)
                text(rule.field.name, std::string(rule.field.size, 'x'));
            else if (rule.type == BLOBMSG_TYPE_INT8)
                flag(rule.field.name, 2);
            else
                number(rule.field.name, 5000);
        }

        expect_refusal(display.c_str());
    }
}

TEST_F(parse_args_test, what_was_stored_before_a_refusal_stays_stored)
{
    number("wanMode", 1);
    number("mtu", 649);
    number("service", 2);

    expect_refusal("MTU");

    EXPECT_EQ(1, record.wanMode);
    EXPECT_EQ(0x5a5a, record.mtu);
    EXPECT_EQ(filler8, record.service);
}

TEST_F(parse_args_test, the_longest_display_name_fills_its_buffer)
{
    flag("ipv6PrefixProxy", 2);
    memset(refused, 'x', sizeof(refused));

    EXPECT_EQ(-1, parse());

    EXPECT_STREQ("IPV6_PREFIX_PROXY", refused);
    EXPECT_EQ(sizeof(refused), sizeof("IPV6_PREFIX_PROXY"));
}

} // namespace
