// The argument policies, entry by entry, and how a request is taken apart.
#include "service/policies.h"

#include "support/gateway.h"
#include "support/golden_tables.h"

#include <libubox/blobmsg_json.h>

#include <set>

namespace {

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
    text_lines lines = {first + number};
    for (const golden_argument &argument : golden_arguments())
        lines.push_back(argument.name + ":" + std::to_string(argument.type));
    for (const char *name : last)
        lines.push_back(name + number);
    return lines;
}

TEST(policies, add_takes_its_arguments_in_order)
{
    EXPECT_EQ(with_record_arguments("notUsed", {}), entries(add_policy.rows));
}

TEST(policies, modify_takes_the_same_at_the_same_places_and_the_waiting_time)
{
    EXPECT_EQ(with_record_arguments("wanId", {"wait"}), entries(modify_policy.rows));
    EXPECT_STREQ("wait", modify_policy.rows[arg_wait].name);
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

    constexpr size_t vid = arg_position(WAN_FIELD(vid));
    expect_only(vid);
    EXPECT_EQ(100U, blobmsg_get_u32(attributes[vid]));
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

    expect_only(arg_position(WAN_FIELD(mtu)));
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
