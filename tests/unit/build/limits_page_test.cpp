// That the page of limits and the cases that show them name the same.
#include "support/gateway.h"

#include <gtest/gtest.h>

#include <regex>
#include <set>

namespace {

std::set<std::string> all_matches(const std::string &text, const char *pattern)
{
    std::set<std::string> names;
    const std::regex expression(pattern);
    for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end; ++match)
        names.insert((*match)[1].str() + "." + (*match)[2].str());
    return names;
}

class limits_page : public gateway_test {
protected:
    std::string text_of(const char *path) const
    {
        return gateway.file(std::string(KORVEL_SOURCE_DIR) + path);
    }
};

TEST_F(limits_page, names_each_case_of_a_limit_and_no_other)
{
    const std::set<std::string> cases =
        all_matches(text_of("/tests/kernel/limits_test.cpp"), R"(TEST_F\((\w+), (\w+)\))");

    EXPECT_LT(5U, cases.size());
    EXPECT_EQ(cases, all_matches(text_of("/docs/limits.md"), R"(`(known_\w*limit|ninth_wan_limit)\.(\w+)`)"));
}

} // namespace
