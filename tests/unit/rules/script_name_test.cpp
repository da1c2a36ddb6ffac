// Which names a script may hold.
#include "rules/script_name.h"

#include "support/gateway.h"

#include <cctype>
#include <cstring>

namespace {

class script_name_test : public gateway_test {};

TEST_F(script_name_test, letters_digits_and_a_few_signs_may_stand_in_a_name)
{
    for (int byte = 1; byte <= 255; byte++) {
        const char name[] = {'e', static_cast<char>(byte), '0', '\0'};
        EXPECT_EQ(byte < 128 && (isalnum(byte) || strchr("._:@-", byte)), is_script_name(name)) << byte;
    }
    EXPECT_TRUE(is_script_name("eth0.1"));
}

TEST_F(script_name_test, the_last_character_counts_too)
{
    EXPECT_FALSE(is_script_name("eth0;"));
    EXPECT_FALSE(is_script_name(" eth0"));
}

TEST_F(script_name_test, a_name_that_is_left_out_is_logged_with_its_script)
{
    EXPECT_TRUE(may_stand_in_script("pon.100", "/etc/korvel/rule_wan_3.sh"));
    EXPECT_FALSE(may_stand_in_script("a;reboot", "/etc/korvel/rule_wan_3.sh"));

    EXPECT_EQ(text_lines{"Left out of /etc/korvel/rule_wan_3.sh, not a device's name: a;reboot"},
              gateway.log_texts(LOG_ERR));
}

} // namespace
