// The method `add` without a bus: what it answers to which request.
#include "create/add.h"

#include "service/settings.h"
#include "support/code_test.h"
#include "support/handler_call.h"

namespace {

class add_test : public code_test {
protected:
    handled add(const std::string &arguments) { return call_handler(wan_handle_add, arguments); }

    void expect_answer(const handled &outcome, int bus_status, int result, const std::string &info)
    {
        EXPECT_EQ(bus_status, outcome.status);
        EXPECT_EQ(1U, outcome.replies);
        EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
        EXPECT_EQ(BLOBMSG_TYPE_INT32, outcome.reply.at("status").type);
        EXPECT_EQ(BLOBMSG_TYPE_STRING, outcome.reply.at("info").type);
        EXPECT_EQ(result, outcome.result());
        EXPECT_EQ(info, outcome.info());
        EXPECT_EQ(info.size() + 1, outcome.reply.at("info").length);
    }
};

TEST_F(add_test, without_a_mode_it_is_an_invalid_argument)
{
    const std::string before = gateway.config("network");
    for (const char *arguments : {"{}", R"({"mtu":2000})", R"({"wanMode":"1"})", R"({"wanMode":true})"}) {
        SCOPED_TRACE(arguments);

        expect_answer(add(arguments), UBUS_STATUS_INVALID_ARGUMENT, -1, "korvel get ERR! Invalid WAN mode.");
    }
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_TRUE(gateway.commands().empty());
}

TEST_F(add_test, a_refused_argument_is_named_and_nothing_is_written)
{
    const std::string before = gateway.config("network");
    const struct {
        const char *arguments;
        const char *name;
    } cases[] = {
        {R"({"wanMode":2})", "WAN_MODE"},
        {R"({"wanMode":1,"mtu":2000})", "MTU"},
        {R"({"wanMode":0,"vid":4096,"service":8})", "VID"},
        {R"({"wanMode":0,"bind":"11111111111111111"})", "BIND"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.arguments);

        expect_answer(add(row.arguments), UBUS_STATUS_OK, -1,
                      std::string("korvel add ERR! Invalid ") + row.name + ".");
    }
    EXPECT_EQ(before, gateway.config("network"));
    EXPECT_TRUE(gateway.commands().empty());
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(add_test, a_conflict_is_answered_with_its_code)
{
    gateway.store_wan(bridged_wan(1, "1000", {.vid = 100}));
    load_settings();
    const struct {
        wan_config wan;
        int result;
    } cases[] = {
        {bridged_wan(2, "0100", {.vid = 100}), -2},
        {bridged_wan(2, "1000", {.vid = 200}), -3},
        {bridged_wan(2, "0000", {.vid = 200, .service = 3}), -4},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.result);

        expect_answer(add(add_request(row.wan)), UBUS_STATUS_OK, row.result, "korvel modify ERR!");
    }
    EXPECT_TRUE(gateway.commands().empty());
}

TEST_F(add_test, a_created_wan_is_answered_without_its_identifier)
{
    expect_answer(add(add_request(bridged_wan(1, "1000", {.vid = 100}))), UBUS_STATUS_OK, 0,
                  "korvel modify OK.");

    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));
    EXPECT_EQ("100", gateway.device_option(1, "vid"));
}

TEST_F(add_test, the_unused_argument_makes_no_difference)
{
    std::string with_unused = add_request(bridged_wan(1, "1000", {.vid = 100}));
    with_unused.insert(1, R"("notUsed":77,)");

    expect_answer(add(with_unused), UBUS_STATUS_OK, 0, "korvel modify OK.");

    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));
    EXPECT_FALSE(gateway.device_section(77));
}

TEST_F(add_test, arguments_of_other_methods_are_ignored)
{
    std::string with_others = add_request(bridged_wan(1, "1000", {.vid = 100}));
    with_others.insert(1, R"("wanId":77,"wait":60,)");

    expect_answer(add(with_others), UBUS_STATUS_OK, 0, "korvel modify OK.");

    EXPECT_EQ("1", gateway.uci_get("network.korvel.wanList"));
}

TEST_F(add_test, what_the_request_leaves_out_is_zero)
{
    expect_answer(add(R"({"wanMode":1,"service":2})"), UBUS_STATUS_OK, 0, "korvel modify OK.");

    EXPECT_EQ("0", gateway.device_option(1, "IpProtocolType"));
    EXPECT_EQ("0", gateway.device_option(1, "mtu"));
    EXPECT_EQ("pon", gateway.device_option(1, "name"));
    EXPECT_EQ("1_TR069_R_VID_", gateway.device_option(1, "lkname"));
}

} // namespace
