// The manual pages that are installed: they are well-formed, of the build's version, and true to the
// program's usage.
#include "support/gateway.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace {

namespace fs = std::filesystem;

constexpr char image[] = "/tmp/image";

class manual_test : public gateway_test {
protected:
    manual_test()
    {
        const program_result result =
            run_program({"cmake", "--install", KORVEL_BUILD_DIR, "--prefix", image});
        EXPECT_EQ(0, result.status) << result.errors;
    }

    // Those of all sections.
    static text_lines pages()
    {
        text_lines paths;
        for (const fs::directory_entry &entry :
             fs::recursive_directory_iterator(fs::path(image) / "usr/share/man"))
            if (entry.is_regular_file())
                paths.push_back(entry.path());
        return paths;
    }

    // As it is read, without bold and underlined letters.
    static std::string shown(const std::string &page)
    {
        return run_program({"sh", "-c", "mandoc -T ascii -O width=200 \"$0\" | sed 's/.\b//g'", page}).output;
    }
};

TEST_F(manual_test, pages_are_well_formed)
{
    EXPECT_LE(1U, pages().size());
    for (const std::string &page : pages()) {
        SCOPED_TRACE(page);
        const program_result result = run_program({"mandoc", "-T", "lint", "-W", "warning", page});
        EXPECT_EQ(0, result.status);
        EXPECT_EQ("", result.output);
    }
}

TEST_F(manual_test, pages_name_the_builds_version)
{
    for (const std::string &page : pages()) {
        SCOPED_TRACE(page);
        EXPECT_NE(std::string::npos, shown(page).find("korvel " KORVEL_VERSION));
    }
}

TEST_F(manual_test, the_daemons_usage_is_its_synopsis)
{
    const std::string usage = gateway.run_korvel({"-h"}).output;

    const std::string page = shown(std::string(image) + "/usr/share/man/man8/korvel.8");

    const std::string synopsis = "korvel [-dh]\n";
    EXPECT_TRUE(usage.starts_with("Usage: " + synopsis)) << usage;
    EXPECT_NE(std::string::npos, page.find("SYNOPSIS\n     " + synopsis)) << page;
}

TEST_F(manual_test, every_method_is_named)
{
    gateway.start_netd();
    gateway.start_korvel();
    const std::string page = shown(std::string(image) + "/usr/share/man/man8/korvel.8");

    const program_result listed =
        run_program({"sh", "-c", "ubus -v list korvel | sed -n 's/^\t\"\\([^\"]*\\)\".*/\\1/p'"});

    EXPECT_LT(0U, listed.output.size());
    std::string method;
    for (const char c : listed.output) {
        if (c != '\n') {
            method += c;
            continue;
        }
        EXPECT_NE(std::string::npos, page.find("\n     " + method + " ")) << method;
        method.clear();
    }
}

} // namespace
