// There is one version, the build's; whatever else names one is held to it.
#include "support/gateway.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

class version_test : public gateway_test {
protected:
    // The first match of the pattern's group in a file of the source tree; empty when there is none.
    std::string find(const std::string &path, const char *pattern) const
    {
        const std::string text = gateway.file(KORVEL_SOURCE_DIR "/" + path);
        std::smatch match;
        return std::regex_search(text, match, std::regex(pattern)) ? match[1].str() : "";
    }
};

TEST_F(version_test, the_package_is_of_the_builds_version)
{
    EXPECT_EQ(KORVEL_VERSION, find("openwrt/korvel/Makefile", "\nPKG_VERSION:=(.*)\n"));
}

TEST_F(version_test, the_newest_entry_of_the_changes_is_the_builds_version)
{
    EXPECT_EQ(KORVEL_VERSION, find("CHANGELOG.md", "\n## (.*)\n"));
}

// Clients and scripts know the command line as it is: no option prints a version.
TEST_F(version_test, the_daemon_itself_does_not_tell)
{
    for (const char *argument : {"-h", "-v", "-V", "--version"}) {
        SCOPED_TRACE(argument);
        const program_result result = gateway.run_korvel({argument});
        EXPECT_EQ(0, result.status);
        EXPECT_EQ(std::string::npos, result.output.find(KORVEL_VERSION));
    }
}

} // namespace
