// Each argument by itself: what is accepted, what is stored, and what a refusal calls it.
#include "create/parse_args.h"

#include "service/policies.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

namespace {

struct number_case {
    const char *name;
    const char *display;
    uint32_t accepted_low;
    uint32_t accepted_high;
    unsigned bits; // what is kept of the request's number
};

constexpr number_case number_cases[] = {
    {"wanMode", "WAN_MODE", 0, 1, 8},   {"ipProtocol", "IP_PROTOCOL", 0, 3, 8},
    {"ipMode", "IP_MODE", 0, 2, 8},     {"vid", "VID", 0, 4095, 16},
    {"mvid", "MVID", 0, 4095, 16},      {"prio", "PRIO", 0, 7, 8},
    {"mtu", "MTU", 650, 1500, 16},      {"service", "SERVICE", 0, 7, 8},
    {"iphostId", "IPHOST_ID", 0, 2, 8},
};

struct flag_case {
    const char *name;
    const char *display;
};

constexpr flag_case flag_cases[] = {
    {"napt", "NAPT"},
    {"vlanMode", "VLAN_MODE"},
    {"disableLanDhcp", "DIS_LAN_DHCP"},
    {"autoDns", "AUTO_DNS"},
    {"autoDnsV6", "AUTO_DNS_V6"},
    {"ipv6PrefixProxy", "IPV6_PREFIX_PROXY"},
    {"pppDialMode", "PPP_DIAL_MODE"},
    {"ipv6DsLite", "DS_LITE"},
};

struct text_case {
    const char *name;
    const char *display;
    size_t longest;
};

constexpr text_case text_cases[] = {
    {"bind", "BIND", 16},
    {"priDns", "PRI_DNS", 15},
    {"secDns", "SEC_DNS", 15},
    {"priDnsV6", "PRI_DNS_V6", 39},
    {"secDnsV6", "SEC_DNS_V6", 39},
    {"ip", "IP", 15},
    {"mask", "MASK", 15},
    {"gateway", "GATEWAY", 15},
    {"ipv6Addr", "IPV6_ADDR", 44},
    {"ipv6Gateway", "IPV6_GATEWAY", 39},
    {"ipv6Prefix", "IPV6_PREFIX", 43},
    {"pppUser", "PPP_USER", 64},
    {"pppPwd", "PPP_PWD", 64},
    {"pppServName", "PPP_SERVNAME", 64},
    {"ipv6AddrDsLite", "DS_LITE_ADDR", 64},
};

// In the order in which a request is judged.
constexpr const char *display_order[] = {
    "WAN_MODE",
    "IP_PROTOCOL",
    "IP_MODE",
    "NAPT",
    "VLAN_MODE",
    "VID",
    "MVID",
    "PRIO",
    "MTU",
    "SERVICE",
    "DIS_LAN_DHCP",
    "BIND",
    "AUTO_DNS",
    "PRI_DNS",
    "SEC_DNS",
    "AUTO_DNS_V6",
    "PRI_DNS_V6",
    "SEC_DNS_V6",
    "IP",
    "MASK",
    "GATEWAY",
    "IPV6_PREFIX_PROXY",
    "IPV6_ADDR",
    "IPV6_GATEWAY",
    "IPV6_PREFIX",
    "PPP_USER",
    "PPP_PWD",
    "PPP_SERVNAME",
    "PPP_DIAL_MODE",
    "IPHOST_ID",
    "DS_LITE",
    "DS_LITE_ADDR",
};

const wan_field &field_of(const std::string &name)
{
    for (const arg_rule &rule : arg_rules)
        if (name == rule.field.name)
            return rule.field;
    throw std::out_of_range("no rule for " + name);
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
    for (const number_case &row : number_cases) {
        for (const uint32_t value : {row.accepted_low, row.accepted_high}) {
            SCOPED_TRACE(row.name + std::to_string(value));
            restart();
            number(row.name, value);

            expect_stored(row.name, value);
        }
    }
}

TEST_F(parse_args_test, numbers_outside_their_range_are_refused_by_name)
{
    for (const number_case &row : number_cases) {
        const uint32_t below = row.accepted_low - 1; // for a range from 0 the greatest number of all
        for (const uint32_t value : {below, row.accepted_high + 1, (1U << row.bits) - 1}) {
            SCOPED_TRACE(row.name + std::to_string(value));
            restart();
            number(row.name, value);

            expect_refusal(row.display);
        }
    }
}

TEST_F(parse_args_test, a_number_is_cut_to_its_width_before_it_is_judged)
{
    for (const number_case &row : number_cases) {
        SCOPED_TRACE(row.name);
        restart();
        number(row.name, (1U << row.bits) + row.accepted_high);
        expect_stored(row.name, row.accepted_high);

        restart();
        number(row.name, (1U << row.bits) + row.accepted_high + 1);
        expect_refusal(row.display);
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
    for (const flag_case &row : flag_cases) {
        SCOPED_TRACE(row.name);
        for (const unsigned value : {0U, 1U}) {
            restart();
            flag(row.name, value);
            expect_stored(row.name, value);
        }
        for (const unsigned value : {2U, 255U}) {
            restart();
            flag(row.name, value);
            expect_refusal(row.display);
        }
    }
}

TEST_F(parse_args_test, texts_are_accepted_up_to_their_length)
{
    for (const text_case &row : text_cases) {
        for (const size_t length : {size_t{0}, row.longest - 1, row.longest}) {
            SCOPED_TRACE(row.name + std::to_string(length));
            restart();
            const std::string value(length, 'x');
            text(row.name, value);

            EXPECT_EQ(0, parse());

            EXPECT_STREQ(value.c_str(), field_text(record, field_of(row.name)));
        }
    }
}

TEST_F(parse_args_test, longer_texts_are_refused_by_name)
{
    for (const text_case &row : text_cases) {
        for (const size_t length : {row.longest + 1, row.longest + 1000}) {
            SCOPED_TRACE(row.name + std::to_string(length));
            restart();
            text(row.name, std::string(length, 'x'));

            expect_refusal(row.display);
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
    ASSERT_EQ(std::size(display_order),
              std::size(number_cases) + std::size(flag_cases) + std::size(text_cases));
    for (size_t i = 0; i < std::size(display_order); i++)
        EXPECT_STREQ(display_order[i], arg_rules[i].display);
}

TEST_F(parse_args_test, of_several_invalid_arguments_the_first_in_order_is_named)
{
    // From the last argument to the first, each addition moves the refusal to the front.
    for (size_t first = std::size(display_order); first-- > 0;) {
        SCOPED_TRACE(display_order[first]);
        restart();
        for (size_t i = std::size(display_order); i-- > first;) {
            const arg_rule &rule = arg_rules[i];
            if (rule.type == BLOBMSG_TYPE_STRING)
                text(rule.field.name, std::string(rule.field.size, 'x'));
            else if (rule.type == BLOBMSG_TYPE_INT8)
                flag(rule.field.name, 2);
            else
                number(rule.field.name, 5000);
        }

        expect_refusal(display_order[first]);
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
