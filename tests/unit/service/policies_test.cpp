// The argument policies, entry by entry, and how a request is taken apart.
#include "service/policies.h"

#include "support/gateway.h"

#include <libubox/blobmsg_json.h>

#include <set>

namespace {

constexpr blobmsg_policy record_arguments[] = {
    {"wanMode", BLOBMSG_TYPE_INT32},       {"ipProtocol", BLOBMSG_TYPE_INT32},
    {"ipMode", BLOBMSG_TYPE_INT32},        {"napt", BLOBMSG_TYPE_INT8},
    {"vlanMode", BLOBMSG_TYPE_INT8},       {"vid", BLOBMSG_TYPE_INT32},
    {"mvid", BLOBMSG_TYPE_INT32},          {"prio", BLOBMSG_TYPE_INT32},
    {"mtu", BLOBMSG_TYPE_INT32},           {"service", BLOBMSG_TYPE_INT32},
    {"disableLanDhcp", BLOBMSG_TYPE_INT8}, {"bind", BLOBMSG_TYPE_STRING},
    {"autoDns", BLOBMSG_TYPE_INT8},        {"priDns", BLOBMSG_TYPE_STRING},
    {"secDns", BLOBMSG_TYPE_STRING},       {"autoDnsV6", BLOBMSG_TYPE_INT8},
    {"priDnsV6", BLOBMSG_TYPE_STRING},     {"secDnsV6", BLOBMSG_TYPE_STRING},
    {"ip", BLOBMSG_TYPE_STRING},           {"mask", BLOBMSG_TYPE_STRING},
    {"gateway", BLOBMSG_TYPE_STRING},      {"ipv6PrefixProxy", BLOBMSG_TYPE_INT8},
    {"ipv6Addr", BLOBMSG_TYPE_STRING},     {"ipv6Gateway", BLOBMSG_TYPE_STRING},
    {"ipv6Prefix", BLOBMSG_TYPE_STRING},   {"pppUser", BLOBMSG_TYPE_STRING},
    {"pppPwd", BLOBMSG_TYPE_STRING},       {"pppServName", BLOBMSG_TYPE_STRING},
    {"pppDialMode", BLOBMSG_TYPE_INT8},    {"iphostId", BLOBMSG_TYPE_INT32},
    {"ipv6DsLite", BLOBMSG_TYPE_INT8},     {"ipv6AddrDsLite", BLOBMSG_TYPE_STRING},
};

// A policy as text, one "name:type" per entry.
text_lines entries(std::span<const blobmsg_policy> policy)
{
    text_lines lines;
    for (const blobmsg_policy &entry : policy)
        lines.push_back(std::string(entry.name) + ":" + std::to_string(entry.type));
    return lines;
}

text_lines with_record_arguments(const char *first, std::initializer_list<const char *> last)
{
    const std::string number = ":" + std::to_string(BLOBMSG_TYPE_INT32);
    text_lines lines = entries(record_arguments);
    lines.insert(lines.begin(), first + number);
    for (const char *name : last)
        lines.push_back(name + number);
    return lines;
}

TEST(policies, add_takes_33_arguments_in_order)
{
    EXPECT_EQ(33U, std::size(add_policy.rows));
    EXPECT_EQ(with_record_arguments("notUsed", {}), entries(add_policy.rows));
}

TEST(policies, modify_takes_the_same_at_the_same_places_and_the_waiting_time)
{
    EXPECT_EQ(34U, std::size(modify_policy.rows));
    EXPECT_EQ(with_record_arguments("wanId", {"wait"}), entries(modify_policy.rows));
    EXPECT_EQ(33U, arg_wait);
}

TEST(policies, get_and_del_take_an_identifier)
{
    EXPECT_EQ(text_lines{"wanId:" + std::to_string(BLOBMSG_TYPE_INT32)}, entries(wan_id_policy.rows));
}

TEST(policies, rules_and_policy_agree_and_names_are_unique)
{
    std::set<std::string> names;
    std::set<std::string> displays;
    for (size_t i = 0; i < record_arg_count; i++) {
        SCOPED_TRACE(arg_rules[i].field.name);

        EXPECT_STREQ(arg_rules[i].field.name, add_policy.rows[first_record_arg + i].name);
        EXPECT_EQ(arg_rules[i].type, add_policy.rows[first_record_arg + i].type);
        EXPECT_EQ(arg_rules[i].type == BLOBMSG_TYPE_STRING, arg_rules[i].field.kind == field_kind::text);
        EXPECT_TRUE(names.insert(arg_rules[i].field.name).second);
        EXPECT_TRUE(displays.insert(arg_rules[i].display).second);
    }
}

class parse_request_test : public gateway_test {
protected:
    parse_request_test() { blob_buf_init(&message, 0); }
    ~parse_request_test() override { blob_buf_free(&message); }

    void expect_only(size_t index)
    {
        for (size_t i = 0; i < std::size(attributes); i++)
            EXPECT_EQ(i == index, attributes[i] != nullptr) << i;
    }

    blob_buf message = {};
    blob_attr *attributes[add_arg_count];
};

constexpr size_t nothing = SIZE_MAX;

TEST_F(parse_request_test, arguments_are_found_at_their_places)
{
    blobmsg_add_u32(&message, "vid", 100);

    parse_request(add_policy.rows, message.head, attributes);

    expect_only(6);
    EXPECT_EQ(100U, blobmsg_get_u32(attributes[6]));
}

TEST_F(parse_request_test, a_request_without_arguments_is_in_order)
{
    parse_request(add_policy.rows, message.head, attributes);

    expect_only(nothing);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(parse_request_test, an_argument_of_another_type_counts_as_missing)
{
    blobmsg_add_string(&message, "vid", "100");
    blobmsg_add_u32(&message, "napt", 1);
    blobmsg_add_u8(&message, "wanMode", 1);
    blobmsg_add_u32(&message, "bind", 1);
    blobmsg_add_u32(&message, "mtu", 1500);

    parse_request(add_policy.rows, message.head, attributes);

    expect_only(9);
}

TEST_F(parse_request_test, an_argument_outside_the_policy_is_ignored)
{
    blobmsg_add_u32(&message, "wanId", 1);
    blobmsg_add_u32(&message, "wait", 1);
    blobmsg_add_u32(&message, "MTU", 1500);

    parse_request(add_policy.rows, message.head, attributes);

    expect_only(nothing);
}

TEST_F(parse_request_test, a_malformed_request_counts_as_one_without_arguments)
{
    blobmsg_add_u32(&message, "vid", 100);
    blobmsg_add_field(&message, BLOBMSG_TYPE_STRING, "bind", "11", 2); // a text without its terminator

    parse_request(add_policy.rows, message.head, attributes);

    expect_only(nothing);
    EXPECT_EQ(text_lines{"Malformed request, its arguments are ignored"}, gateway.log_texts(LOG_ERR));
}

} // namespace
