// The names that are made of identifiers and services.
#include "wan/wan_names.h"

#include <gtest/gtest.h>

namespace {

wan_config tagged(uint8_t service, uint16_t vid)
{
    wan_config config = {};
    config.vlanMode = 1;
    config.vid = vid;
    config.service = service;
    config.wanMode = wan_mode_routed;
    return config;
}

std::string link_name(uint8_t id, const wan_config &config)
{
    char name[35];
    memset(name, 'x', sizeof(name));
    wan_link_name(id, config, name);
    return name;
}

TEST(wan_names, sections_are_named_after_the_identifier)
{
    constexpr struct {
        uint32_t id;
        const char *text;
        const char *interface;
        const char *interface_v6;
        const char *dialled_v6;
        const char *dslite;
    } cases[] = {
        {1, "1", "wan_1", "wan_1_v6", "wan_1_6", "dslite_1"},
        {42, "42", "wan_42", "wan_42_v6", "wan_42_6", "dslite_42"},
        {255, "255", "wan_255", "wan_255_v6", "wan_255_6", "dslite_255"},
        // Identifier texts have three digits; what follows is cut.
        {999, "999", "wan_999", "wan_999_v6", "wan_999_6", "dslite_999"},
        {1000, "100", "wan_100", "wan_1000_v6", "wan_1000_6", "dslite_1000"},
        {12345, "123", "wan_123", "wan_12345_v", "wan_12345_6", "dslite_1234"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.id);

        const wan_names names(row.id);

        EXPECT_STREQ(row.text, names.id);
        EXPECT_STREQ(row.interface, names.interface);
        EXPECT_STREQ(row.interface_v6, names.interface_v6);
        EXPECT_STREQ(row.dialled_v6, names.dialled_v6);
        EXPECT_STREQ(row.dslite, names.dslite);
    }
}

TEST(wan_names, commands_name_the_interface)
{
    EXPECT_STREQ("ubus -S call network.interface.wan_7 status", status_command("wan_7").text);
    EXPECT_STREQ("ACTION=\"ifupdate\" INTERFACE=\"wan_255\" hotplug-call iface &",
                 update_command("wan_255").text);
}

TEST(wan_names, the_status_command_has_47_characters)
{
    EXPECT_STREQ("ubus -S call network.interface.wan_255_6 status", status_command("wan_255_6").text);
    EXPECT_STREQ("ubus -S call network.interface.wan_100_v6 statu", status_command("wan_100_v6").text);
}

TEST(wan_names, the_management_device_has_its_identifier_in_its_link_name_only)
{
    constexpr struct {
        uint32_t id;
        const char *link_name;
    } cases[] = {
        {1, "1_OTHER_B_TMP"},
        {1234567, "1234567_OTHER_B"}, // 15 characters
        {UINT32_MAX, "-1_OTHER_B_TMP"},
    };
    for (const auto &row : cases) {
        char name[16];
        management_link_name(row.id, name);
        EXPECT_STREQ(row.link_name, name);
    }
    EXPECT_EQ(std::string("pon.") + management_vid, management_device_name);
}

TEST(wan_names, a_three_digit_prefix_has_no_underscore)
{
    EXPECT_STREQ("7_", wan_names::device_prefix(7).text);
    EXPECT_STREQ("10_", wan_names::device_prefix(10).text);
    EXPECT_STREQ("99_", wan_names::device_prefix(99).text);
    EXPECT_STREQ("100", wan_names::device_prefix(100).text);
    EXPECT_STREQ("255", wan_names::device_prefix(255).text);
}

TEST(wan_names, services_have_their_names_and_groups)
{
    constexpr struct {
        uint8_t code;
        const char *name;
        bool internet;
        bool binds_ports;
        bool carries_calls;
    } cases[] = {
        {0, "TR069_INTERNET", true, true, false}, {1, "INTERNET", true, true, false},
        {2, "TR069", false, false, false},        {3, "OTHER", false, true, false},
        {4, "VOIP", false, false, true},          {5, "TR069_VOIP", false, false, true},
        {6, "VOIP_INTERNET", true, true, true},   {7, "TR069_VOIP_INTERNET", true, true, true},
        {8, "OTHER", false, false, false},        {9, "OTHER", false, false, false},
        {255, "OTHER", false, false, false},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(static_cast<int>(row.code));

        const wan_service &service = wan_service_of(row.code);

        EXPECT_STREQ(row.name, service.name);
        EXPECT_EQ(row.internet, service.internet);
        EXPECT_EQ(row.binds_ports, service.binds_ports);
        EXPECT_EQ(row.carries_calls, service.carries_calls);
    }
}

TEST(wan_names, a_link_name_tells_identifier_service_mode_and_tag)
{
    EXPECT_EQ("3_INTERNET_R_VID_100", link_name(3, tagged(1, 100)));

    wan_config untagged = tagged(2, 100);
    untagged.vlanMode = 0;
    EXPECT_EQ("2_TR069_R_VID_", link_name(2, untagged));
    untagged.vlanMode = 2; // any mode but 1 is untagged
    EXPECT_EQ("2_TR069_R_VID_", link_name(2, untagged));

    wan_config bridged = tagged(3, 4095);
    bridged.wanMode = wan_mode_bridged;
    EXPECT_EQ("9_OTHER_B_VID_4095", link_name(9, bridged));
    bridged.wanMode = 2; // any mode but routed is shown as bridged
    EXPECT_EQ("9_OTHER_B_VID_4095", link_name(9, bridged));
}

TEST(wan_names, a_link_name_has_at_most_33_characters)
{
    EXPECT_EQ("25_TR069_VOIP_INTERNET_R_VID_100", link_name(25, tagged(7, 100)));    // 32
    EXPECT_EQ("25_TR069_VOIP_INTERNET_R_VID_4095", link_name(25, tagged(7, 4095)));  // 33
    EXPECT_EQ("255_TR069_VOIP_INTERNET_R_VID_409", link_name(255, tagged(7, 4095))); // of 34
}

TEST(wan_names, scripts_are_named_after_the_identifier)
{
    EXPECT_STREQ("/etc/korvel/rule_wan_1.sh", bridge_rule_path(1).text);
    EXPECT_STREQ("/etc/korvel/rule_wan_255.sh", bridge_rule_path(255).text);
    EXPECT_STREQ("/etc/hotplug.d/iface/99-wan_1", route_rule_path(1).text);
    EXPECT_STREQ("/etc/hotplug.d/iface/99-wan_255", route_rule_path(255).text);
}

} // namespace
