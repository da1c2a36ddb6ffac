// The table of stored options. What it makes of a WAN, in which order, is for create and store to show.
#include "wan/stored_options.h"

#include "service/policies.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

namespace {

TEST(stored_options, a_field_has_one_option)
{
    std::set<std::string> fields;
    for (const stored_option &option : stored_options)
        EXPECT_TRUE(fields.insert(option.field.name).second) << option.field.name;
}

TEST(stored_options, every_argument_is_stored_but_for_those_that_another_tells)
{
    const std::set<std::string> told_by_others = {"vlanMode" /* by vid */, "ipv6DsLite" /* by peeraddr */};
    for (const arg_rule &rule : arg_rules) {
        const bool stored = std::ranges::any_of(stored_options, [&](const stored_option &option) {
            return option.field.offset == rule.field.offset;
        });
        EXPECT_NE(told_by_others.contains(rule.field.name), stored) << rule.field.name;
    }
}

TEST(stored_options, the_kind_of_an_option_fits_its_field)
{
    for (const stored_option &option : stored_options) {
        SCOPED_TRACE(option.field.name);
        const bool is_text = option.field.kind == field_kind::text;
        EXPECT_FALSE(is_text && option.kind == option_kind::unless_zero);
        EXPECT_FALSE(!is_text &&
                     (option.kind == option_kind::entry || option.kind == option_kind::unless_empty));
    }
}

TEST(stored_options, an_option_is_called_by_its_field)
{
    EXPECT_STREQ("service_mode", STORED(service).name);
    EXPECT_STREQ("service", STORED(pppServName).name);
    EXPECT_EQ(option_place::interface, STORED(autoDns).place);
    EXPECT_EQ(option_place::interface_v6, STORED(autoDnsV6).place);
}

} // namespace
