// The settings that start-up reads, and the integer reader.
#include "service/settings.h"

#include "base/text.h"
#include "support/gateway.h"

namespace {

class settings_test : public gateway_test {
protected:
    settings_test()
    {
        maxWanId = 0;
        text_ref(uplink_name).clear();
        text_ref(vlan_prefix).clear();
    }
};

TEST_F(settings_test, an_option_is_read_as_a_decimal_number)
{
    constexpr struct {
        const char *text;
        uint32_t number;
    } cases[] = {
        {"0", 0},
        {"7", 7},
        {"4095", 4095},
        {"007", 7},
        {" 5", 5},
        {"12abc", 12},
        {"abc", 0},
        {"0x10", 0},
        {"-1", UINT32_MAX},
        // The buffer holds 11 characters of the text.
        {"00000000012", 12},
        {"000000000123", 12},
        {"0000000001234", 12},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.text);
        gateway.uci_set("network.korvel.vid", row.text);
        uint32_t value = 99;

        EXPECT_EQ(0, uci_get_int("korvel", "vid", &value));

        EXPECT_EQ(row.number, value);
    }
}

TEST_F(settings_test, an_option_that_cannot_be_read_leaves_the_number_alone)
{
    uint32_t value = 99;

    EXPECT_NE(0, uci_get_int("korvel", "no_such_option", &value));
    EXPECT_NE(0, uci_get_int("no_such_section", "maxWanId", &value));
    gateway.remove("/etc/config/network");
    EXPECT_NE(0, uci_get_int("korvel", "maxWanId", &value));

    EXPECT_EQ(99U, value);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(settings_test, both_settings_are_read)
{
    gateway.uci_set("network.korvel.maxWanId", "12");
    gateway.uci_set("network.korvel.pon_adapt", "nas0");

    EXPECT_EQ(0, settings_load());

    EXPECT_EQ(12U, maxWanId);
    EXPECT_STREQ("nas0", uplink_name);
    EXPECT_STREQ("nas0.", vlan_prefix);
    EXPECT_TRUE(gateway.log().empty());
}

TEST_F(settings_test, without_a_highest_identifier_nothing_else_is_read)
{
    gateway.uci_delete("network.korvel.maxWanId");

    EXPECT_NE(0, settings_load());

    EXPECT_STREQ("", uplink_name);
    EXPECT_STREQ("", vlan_prefix);
    EXPECT_EQ(text_lines{"Failed to get maxWanId"}, gateway.log_texts(LOG_ERR));
}

TEST_F(settings_test, without_an_uplink_name_it_is_pon)
{
    gateway.uci_delete("network.korvel.pon_adapt");

    EXPECT_EQ(0, settings_load());

    EXPECT_EQ("pon", std::string_view(uplink_name));
    EXPECT_EQ("pon.", std::string_view(vlan_prefix));
    EXPECT_EQ(text_lines{"Failed to get value: network.korvel.pon_adapt"}, gateway.log_texts(LOG_ERR));
}

TEST_F(settings_test, a_long_uplink_name_is_cut_and_crowds_out_the_point)
{
    constexpr struct {
        const char *option;
        const char *uplink;
        const char *prefix;
    } cases[] = {
        {"p", "p", "p."},
        {"abcdefgh", "abcdefgh", "abcdefgh."},
        {"abcdefghi", "abcdefghi", "abcdefghi"},
        {"abcdefghij", "abcdefghij", "abcdefghi"},
        {"abcdefghijk", "abcdefghijk", "abcdefghi"},
        {"abcdefghijkl", "abcdefghijk", "abcdefghi"},
        {"abcdefghijklm", "abcdefghijk", "abcdefghi"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.option);
        text_ref(uplink_name).clear();
        gateway.uci_set("network.korvel.pon_adapt", row.option);

        EXPECT_EQ(0, settings_load());

        EXPECT_STREQ(row.uplink, uplink_name);
        EXPECT_STREQ(row.prefix, vlan_prefix);
    }
}

std::string device_name(const char *uplink, const char *prefix, const wan_config &config)
{
    text_ref(uplink_name).set(uplink);
    text_ref(vlan_prefix).set(prefix);
    char name[12];
    wan_device_name(config, name);
    return name;
}

wan_config tagged(uint16_t vid)
{
    wan_config config = {};
    config.vlanMode = 1;
    config.vid = vid;
    return config;
}

TEST_F(settings_test, a_device_is_the_uplink_or_a_vlan_device_on_it)
{
    wan_config untagged = tagged(100);
    untagged.vlanMode = 0;

    EXPECT_EQ("pon.100", device_name("pon", "pon.", tagged(100)));
    EXPECT_EQ("pon", device_name("pon", "pon.", untagged));
    untagged.vlanMode = 2; // any mode but 1 is untagged
    EXPECT_EQ("pon", device_name("pon", "pon.", untagged));
    EXPECT_EQ("abcdefghi", device_name("abcdefghi", "abcdefghi", untagged));
}

TEST_F(settings_test, a_device_name_has_at_most_11_characters)
{
    EXPECT_EQ("abcdef.100", device_name("abcdef", "abcdef.", tagged(100)));
    EXPECT_EQ("abcdef.4095", device_name("abcdef", "abcdef.", tagged(4095)));
    EXPECT_EQ("abcdefg.409", device_name("abcdefg", "abcdefg.", tagged(4095)));
    EXPECT_EQ("abcdefghi40", device_name("abcdefghijk", "abcdefghi", tagged(4095)));
}

} // namespace
