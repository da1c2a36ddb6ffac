// The two queries, field by field, without a bus.
#include "store/query.h"

#include "base/text.h"
#include "service/settings.h"
#include "wan/wan_config.h"
#include "support/golden_tables.h"
#include "support/handler_call.h"
#include "support/open_count.h"
#include "support/printed_replies.h"

namespace {

// What the wrapped calls below note, or do instead of what they are for.
bool no_memory_for_records = false;
bool no_memory_for_fields = false; // a reply buffer does not grow

} // namespace

// The names are those that the linker gives to wrapped calls.
extern "C" {

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size)
{
    return no_memory_for_records && size == sizeof(wan_config) ? nullptr : __real_calloc(count, size);
}

void *__real_realloc(void *memory, size_t size);
void *__wrap_realloc(void *memory, size_t size)
{
    // A reply's buffer; nothing else here grows to such a size.
    return no_memory_for_fields && size > 512 && size < 1024 ? nullptr : __real_realloc(memory, size);
}
}

namespace {

void expect_fields(const reply_part &table, const std::vector<golden_field> &fields)
{
    ASSERT_EQ(fields.size(), table.parts.size());
    for (size_t i = 0; i < fields.size(); i++) {
        SCOPED_TRACE(fields[i].name);
        const reply_part &part = table.parts[i];
        EXPECT_EQ(fields[i].name, part.name);
        EXPECT_EQ(fields[i].type, part.type);
        if (part.type == BLOBMSG_TYPE_STRING) {
            EXPECT_EQ(part.text.size() + 1, part.length);
        }
    }
}

// A reply as text, one line a field.
std::string lines_of(const reply_part &reply)
{
    std::string lines;
    for (const reply_part &part : reply.parts)
        lines += part.name + ": " +
                 (part.type == BLOBMSG_TYPE_STRING ? '"' + part.text + '"' : std::to_string(part.number)) +
                 "\n";
    return lines;
}

// Every field but wanId is 0 or empty.
void expect_blank(const reply_part &table, uint32_t id)
{
    EXPECT_EQ(id, table.at("wanId").number);
    for (const reply_part &part : table.parts) {
        SCOPED_TRACE(part.name);
        EXPECT_EQ("", part.text);
        if (part.name != "wanId") {
            EXPECT_EQ(0U, part.number);
        }
    }
}

class query_test : public gateway_test {
protected:
    query_test()
    {
        maxWanId = 255;
        no_memory_for_records = false;
        no_memory_for_fields = false;
        bus.set_default(R"({"up":false})");
    }

    void list_id(const char *id) { gateway.uci_add_list("network.korvel.wanList", id); }

    printed_replies bus{gateway};
};

class get_test : public query_test {};

TEST_F(get_test, a_wan_is_reported_with_its_fields_in_order)
{
    gateway.store_wan(routed_dhcp(3));

    const handled outcome = call_handler(wan_handle_get, R"({"wanId":3})");

    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(1U, outcome.replies);
    expect_fields(outcome.reply, golden_get_fields());
}

TEST_F(get_test, every_field_carries_what_was_read)
{
    wan_config wan = routed_pppoe(
        3, {.vid = 100, .mvid = 200, .prio = 5, .ip_protocol = 3, .disable_lan_dhcp = 1, .bind = "1010"});
    wan.iphostId = 2;
    gateway.store_wan(wan);
    gateway.uci_set("network.wan_3.service", "isp");
    gateway.uci_set("network.wan_3.demand", "300");
    gateway.set_config("network", gateway.config("network") +
                                      "\nconfig interface 'dslite_3'\n\toption peeraddr '2001:db8::aa'\n");
    bus.set("network.interface.wan_3_6",
            R"({"up":true,"ipv6-address":[{"address":"2001:db8::9","mask":128},)"
            R"({"address":"2001:db8::a","mask":64}],"ipv6-prefix":[{"address":"2001:db8:1::","mask":56}],)"
            R"("route":[{"nexthop":"fe80::1"}],"dns-server":["2001:db8::53","2001:db8::54"]})");
    bus.set("network.interface.wan_3",
            R"({"up":true,"uptime":4000,"ipv4-address":[{"address":"192.0.2.9","mask":24},)"
            R"({"address":"192.0.2.10"}],"route":[{"nexthop":"192.0.2.1"}],)"
            R"("dns-server":["192.0.2.53","192.0.2.54"]})");

    const reply_part reply = call_handler(wan_handle_get, R"({"wanId":3})").reply;

    EXPECT_EQ(golden("bus/get_pppoe"), lines_of(reply));
}

TEST_F(get_test, without_an_identifier_it_is_an_invalid_argument)
{
    for (const char *arguments : {"{}", R"({"wanId":"3"})", R"({"wanId":true})", R"({"id":3})"}) {
        SCOPED_TRACE(arguments);

        const handled outcome = call_handler(wan_handle_get, arguments);

        EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, outcome.status);
        EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
        EXPECT_EQ(-1, outcome.result());
        EXPECT_EQ("korvel get ERR! Invalid WAN ID.", outcome.info());
    }
}

TEST_F(get_test, a_wan_that_cannot_be_read_is_an_invalid_argument)
{
    gateway.store_wan(routed_dhcp(3));
    maxWanId = 4;
    for (const char *arguments : {R"({"wanId":0})", R"({"wanId":4})", R"({"wanId":5})", R"({"wanId":256})"}) {
        SCOPED_TRACE(arguments);

        const handled outcome = call_handler(wan_handle_get, arguments);

        EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, outcome.status);
        EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
        EXPECT_EQ(-1, outcome.result());
        EXPECT_EQ("korvel get ERR!", outcome.info());
    }
}

TEST_F(get_test, eight_bits_of_the_identifier_count)
{
    gateway.store_wan(routed_dhcp(1));

    const handled outcome = call_handler(wan_handle_get, R"({"wanId":257})");

    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ("1_INTERNET_R_VID_", outcome.reply.at("wanName").text);
}

TEST_F(get_test, a_full_port_binding_is_reported_with_17_characters)
{
    gateway.store_wan(bridged_wan(1, "1111111111111111"));
    const std::string section = gateway.device_section(1).value();
    for (int i = 0; i < 4; i++)
        gateway.uci_add_list("network." + section + ".port_binding", "1");

    const handled outcome = call_handler(wan_handle_get, R"({"wanId":1})");

    EXPECT_EQ(std::string(17, '1'), outcome.reply.at("bind").text);
    EXPECT_EQ(18U, outcome.reply.at("bind").length);
    EXPECT_EQ("pon", outcome.reply.at("device").text);
}

TEST_F(get_test, the_longest_texts_are_reported_whole)
{
    gateway.store_wan(routed_pppoe(1));
    const std::string longest(64, 'p');
    for (const char *option : {"username", "password", "service"})
        gateway.uci_set(std::string("network.wan_1.") + option, longest);

    const reply_part reply = call_handler(wan_handle_get, R"({"wanId":1})").reply;

    EXPECT_EQ(longest, reply.at("pppUser").text);
    EXPECT_EQ(longest, reply.at("pppPwd").text);
    EXPECT_EQ(longest, reply.at("pppServName").text);
}

TEST_F(get_test, a_reply_that_has_no_room_for_all_fields_is_no_half_of_one)
{
    gateway.store_wan(routed_dhcp(3));
    no_memory_for_fields = true;

    const handled outcome = call_handler(wan_handle_get, R"({"wanId":3})");

    no_memory_for_fields = false;
    EXPECT_EQ(UBUS_STATUS_UNKNOWN_ERROR, outcome.status);
    ASSERT_EQ(1U, outcome.replies);
    EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
    EXPECT_EQ("korvel get ERR!", outcome.reply.at("info").text);
}

class all_test : public query_test {
protected:
    handled all() { return call_handler(wan_handle_all); }

    void expect_failure(const handled &outcome, int bus_status, const char *info)
    {
        EXPECT_EQ(bus_status, outcome.status);
        EXPECT_EQ(1U, outcome.replies);
        EXPECT_EQ((text_lines{"status", "info"}), outcome.reply.names());
        EXPECT_EQ(-1, outcome.result());
        EXPECT_EQ(info, outcome.info());
    }
};

TEST_F(all_test, every_wan_is_a_table_of_all_fields_in_order)
{
    gateway.store_wan(routed_dhcp(42));
    gateway.store_wan(bridged_wan(255, "1000"));
    gateway.store_wan(routed_static(7));
    gateway.uci_set("network.wan_42.iphostId", "2");

    const handled outcome = all();

    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(1U, outcome.replies);
    EXPECT_EQ((text_lines{"42", "255", "7"}), outcome.reply.names());
    for (const reply_part &table : outcome.reply.parts) {
        SCOPED_TRACE(table.name);
        EXPECT_EQ(BLOBMSG_TYPE_TABLE, table.type);
        expect_fields(table, golden_fields());
        EXPECT_EQ(table.name, std::to_string(table.at("wanId").number));
    }
    EXPECT_EQ(2U, outcome.reply.at("42").at("iphostId").number);
    EXPECT_EQ("7_INTERNET_R_VID_", outcome.reply.at("7").at("wanName").text);
}

TEST_F(all_test, without_listed_wans_there_is_no_reply)
{
    const handled without_list = all();
    EXPECT_EQ(0, without_list.status);
    EXPECT_EQ(0U, without_list.replies);

    gateway.remove("/etc/config/network");
    const handled without_network = all();
    EXPECT_EQ(0, without_network.status);
    EXPECT_EQ(0U, without_network.replies);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(all_test, an_earlier_wan_that_cannot_be_read_is_listed_blank)
{
    gateway.store_wan(routed_dhcp(3));
    list_id("5");
    gateway.store_wan(routed_dhcp(9));

    const handled outcome = all();

    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ((text_lines{"3", "5", "9"}), outcome.reply.names());
    EXPECT_EQ("3_INTERNET_R_VID_", outcome.reply.at("3").at("wanName").text);
    expect_fields(outcome.reply.at("5"), golden_fields());
    expect_blank(outcome.reply.at("5"), 5);
    EXPECT_EQ("9_INTERNET_R_VID_", outcome.reply.at("9").at("wanName").text);
    EXPECT_EQ((text_lines{"Failed to get wan device and pon name", "Failed to get wan_5 data: -1"}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(all_test, the_last_wan_that_cannot_be_read_fails_the_whole_reply)
{
    gateway.store_wan(routed_dhcp(3));
    gateway.store_wan(routed_dhcp(5));
    list_id("9");

    expect_failure(all(), UBUS_STATUS_INVALID_ARGUMENT, "korvel read all WAN ERR!");

    EXPECT_EQ((text_lines{"Failed to get wan device and pon name", "Failed to get wan_9 data: -1"}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(all_test, a_list_of_one_that_cannot_be_read_fails)
{
    list_id("0");

    expect_failure(all(), UBUS_STATUS_INVALID_ARGUMENT, "korvel read all WAN ERR!");

    EXPECT_EQ((text_lines{"Failed to get wan data", "Failed to get wan_0 data: -1"}),
              gateway.log_texts(LOG_ERR));
}

TEST_F(all_test, a_plain_option_in_the_lists_place_gives_a_blank_table)
{
    gateway.uci_set("network.korvel.wanList", "3");

    const handled outcome = all();

    EXPECT_EQ(0, outcome.status);
    EXPECT_EQ(text_lines{"0"}, outcome.reply.names());
    expect_blank(outcome.reply.at("0"), 0);
}

TEST_F(all_test, eight_bits_of_a_listed_identifier_count)
{
    gateway.store_wan(routed_dhcp(1));
    list_id("257");

    const handled outcome = all();

    EXPECT_EQ((text_lines{"1", "1"}), outcome.reply.names());
}

TEST_F(all_test, without_memory_for_the_records_it_fails)
{
    gateway.store_wan(routed_dhcp(3));
    no_memory_for_records = true;

    expect_failure(all(), UBUS_STATUS_UNKNOWN_ERROR, "korvel malloc ERR!");
}

TEST_F(all_test, a_reply_that_the_bus_does_not_take_fails)
{
    gateway.store_wan(bridged_wan(1, "1000"));
    std::string config = gateway.config("network");
    constexpr char entry[] = "\tlist wanList '1'\n";
    const size_t list = config.find(entry);
    ASSERT_NE(std::string::npos, list);
    for (int i = 0; i < 1500; i++)
        config.insert(list, entry);
    gateway.set_config("network", config);

    expect_failure(all(), UBUS_STATUS_UNKNOWN_ERROR, "korvel malloc ERR!");
}

// Two loads could be of two states, of which the answer would be a mixture.
TEST_F(all_test, the_configuration_is_opened_once_for_all_wans)
{
    for (uint8_t id = 1; id <= 4; id++)
        gateway.store_wan(routed_dhcp(id));
    const open_count opens("/etc/config/network");

    all();

    EXPECT_EQ(1U, opens.take());
}

} // namespace
