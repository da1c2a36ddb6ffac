// Taking generated scripts back.
#include "rules/remove_script.h"

#include "support/gateway.h"

namespace {

constexpr char path[] = "/etc/korvel/rule_wan_3.sh";

class remove_script_test : public gateway_test {};

TEST_F(remove_script_test, a_script_takes_back_what_it_installed_and_goes)
{
    gateway.write_file(path, "#!/bin/sh\ngateway-tool journal \"$0\" \"$@\"\n", 0755);

    EXPECT_TRUE(remove_script(path));

    EXPECT_EQ(text_lines{std::string(path) + " -r"}, gateway.commands());
    EXPECT_FALSE(gateway.exists(path));
}

TEST_F(remove_script_test, a_script_that_fails_goes_all_the_same)
{
    gateway.write_file(path, "#!/bin/sh\nexit 1\n", 0755);

    EXPECT_TRUE(remove_script(path));

    EXPECT_FALSE(gateway.exists(path));
}

TEST_F(remove_script_test, one_that_is_not_there_is_left_alone)
{
    EXPECT_TRUE(remove_script(path));

    EXPECT_EQ(text_lines{}, gateway.commands());
}

TEST_F(remove_script_test, one_that_cannot_be_deleted_is_told)
{
    gateway.write_file(std::string(path) + "/inside", "");

    EXPECT_FALSE(remove_script(path));
}

} // namespace
