// What stands between hostile text and the terminal.
#include "ctl/output.h"
#include "ctl/option_reader.h"
#include "ctl/words.h"
#include "support/gateway.h"

#include <service/board.h>

namespace {

std::string shown(std::string_view text)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    put_shown(stream, text);
    (void)fclose(stream);
    const std::string result(data, size);
    free(data);
    return result;
}

std::string json_text(std::string_view text)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    put_json_text(stream, text);
    (void)fclose(stream);
    const std::string result(data, size);
    free(data);
    return result;
}

TEST(output_test, what_could_move_a_terminal_is_shown_and_not_sent)
{
    EXPECT_EQ("plain text_1", shown("plain text_1"));
    EXPECT_EQ("\\x1b[2J\\x07", shown("\033[2J\a"));
    EXPECT_EQ("a\\nb\\tc\\x0d", shown("a\nb\tc\r"));
    EXPECT_EQ("back\\\\slash", shown("back\\slash"));
    EXPECT_EQ("\\xc3\\xa4\\xc2\\x9b1m", shown("\xc3\xa4\xc2\x9b"
                                              "1m"));
    EXPECT_EQ("\\x7f\\xff\\x00", shown(std::string_view("\x7f\xff\0", 3)));
}

TEST(output_test, a_cell_has_its_width_whatever_is_in_it)
{
    EXPECT_STREQ("ab   ", shown_cell("ab", 5).text);
    EXPECT_STREQ("abcde", shown_cell("abcde", 5).text);
    EXPECT_STREQ("abcd~", shown_cell("abcdef", 5).text);
    EXPECT_STREQ("a\\x1~", shown_cell("a\033[1m", 5).text);
    EXPECT_STREQ("a\\x1b~", shown_cell("a\033[1m", 6).text);
    EXPECT_EQ(79U, strlen(shown_cell("", 500).text));
}

TEST(output_test, json_is_ascii_and_keeps_what_is_said)
{
    EXPECT_EQ("\"a\\\"\\\\b\"", json_text("a\"\\b"));
    EXPECT_EQ("\"\\u001b[2J\\u000a\"", json_text("\033[2J\n"));
    EXPECT_EQ("\"\\u00e4\\u20ac\\ud83d\\ude00\"", json_text("\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80"));
    EXPECT_EQ("\"it\\u0027s\"", json_text("it's"));
    // No UTF-8: a lone follower, an overlong form, a surrogate, an end too early.
    EXPECT_EQ("\"\\ufffd|\\ufffd\\ufffd|\\ufffd\\ufffd\\ufffd|\\ufffd\"",
              json_text("\x80|\xc0\xaf|\xed\xa0\x80|\xc3"));
}

TEST(output_test, numbers_and_times_are_whole_or_refused)
{
    uint32_t number = 7;
    EXPECT_TRUE(read_number("255", 255, &number));
    EXPECT_EQ(255U, number);
    for (const char *const text : {"", "256", "-1", "+1", " 1", "1x", "0x1", "99999999999999999999"})
        EXPECT_FALSE(read_number(text, 255, &number)) << text;
    const struct {
        const char *text;
        uint32_t seconds;
    } times[] = {{"30", 30}, {"30s", 30}, {"5m", 300}, {"2h", 7200}, {"1d", 86400}, {"0", 0}};
    for (const auto &time : times) {
        EXPECT_TRUE(read_time(time.text, &number)) << time.text;
        EXPECT_EQ(time.seconds, number);
    }
    for (const char *const text : {"", "s", "30w", "30ss", "-1s", "1 s", "99999999h", "2147483648"})
        EXPECT_FALSE(read_time(text, &number)) << text;
    EXPECT_STREQ("10s", time_words(10).text);
    EXPECT_STREQ("4m 10s", time_words(250).text);
    EXPECT_STREQ("3d 4h", time_words(3 * 86400 + 4 * 3600 + 59).text);
}

TEST(output_test, services_are_words_in_any_order)
{
    const char *const words[] = {"tr069,internet", "internet",   "tr069",         "other",
                                 "voip",           "tr069,voip", "voip,internet", "tr069,voip,internet"};
    for (uint8_t code = 0; code < std::size(words); code++) {
        uint8_t read = 99;
        EXPECT_STREQ(words[code], service_words(code).text);
        EXPECT_TRUE(read_service(words[code], &read));
        EXPECT_EQ(code, read) << words[code];
    }
    uint8_t code = 99;
    EXPECT_TRUE(read_service("internet,voip,tr069", &code));
    EXPECT_EQ(7, code);
    for (const char *const wrong : {"", "iptv", "internet,", "other,internet", "inter"})
        EXPECT_FALSE(read_service(wrong, &code)) << wrong;
}

TEST(output_test, ports_are_named_by_kind)
{
    lan_num = 4, wlan_2g_num = 2, wlan_5g_num = 2;
    wan_config record = {};
    char wrong[32] = {};

    EXPECT_TRUE(read_ports("lan1,lan4,ssid3", &record, wrong));
    EXPECT_STREQ("10010010", record.bind);
    EXPECT_STREQ("lan1,lan4,ssid3", port_words(record).text);
    EXPECT_FALSE(read_ports("lan1,lan5", &record, wrong));
    EXPECT_STREQ("lan5", wrong);
    EXPECT_TRUE(read_ports("none", &record, wrong));
    EXPECT_STREQ("none", port_words(record).text);
    EXPECT_TRUE(read_ports("all", &record, wrong));
    EXPECT_STREQ("11111111", record.bind);
    wlan_5g_num = 200; // more than a binding holds
    EXPECT_TRUE(read_ports("all", &record, wrong));
    EXPECT_EQ(sizeof(record.bind) - 1, strlen(record.bind));
    lan_num = wlan_2g_num = wlan_5g_num = 0;
}

} // namespace
