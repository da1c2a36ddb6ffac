// What is installed: by the build, and by the package's own recipe, which is run in as much of a build tree
// as it takes.
#include "package/recipe.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

namespace {

namespace fs = std::filesystem;

constexpr char feed[] = KORVEL_SOURCE_DIR "/openwrt/korvel";

// Files below a directory with their modes, "755 /usr/sbin/korvel", sorted.
text_lines files_in(const std::string &root)
{
    text_lines files;
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_directory())
            continue;
        std::ostringstream line;
        line << std::oct << static_cast<unsigned>(entry.status().permissions()) << " /"
             << entry.path().lexically_relative(root).string();
        files.push_back(line.str());
    }
    std::sort(files.begin(), files.end());
    return files;
}

class install_test : public gateway_test {
protected:
    install_test()
    {
        const program_result result =
            run_program({"cmake", "--install", KORVEL_BUILD_DIR, "--prefix", built_image});
        EXPECT_EQ(0, result.status) << result.errors;
    }

    // The rows "| `path` | mode | …" of the documentation's table.
    text_lines documented() const
    {
        text_lines files;
        std::istringstream lines(gateway.file(KORVEL_SOURCE_DIR "/docs/behaviour.md"));
        std::string line;
        while (std::getline(lines, line) && line != "## What is installed")
            ;
        while (std::getline(lines, line) && !line.starts_with("## ")) {
            const size_t end = line.find("` | ");
            if (line.starts_with("| `/") && end != std::string::npos)
                files.push_back(line.substr(end + strlen("` | "), 3) + ' ' + line.substr(3, end - 3));
        }
        std::sort(files.begin(), files.end());
        return files;
    }
};

TEST_F(install_test, an_installation_has_exactly_the_documented_files)
{
    const text_lines expected = documented();

    ASSERT_LT(5U, expected.size());
    EXPECT_EQ(expected, files_in(built_image));
}

TEST_F(install_test, the_packages_hold_what_is_installed)
{
    make_package("install-korvel");
    make_package("install-korvel-tools");

    EXPECT_EQ(files_in(built_image), files_in(package_files));
    EXPECT_TRUE(fs::is_directory(std::string(package_files) + "/etc/korvel"));
}

TEST_F(install_test, programs_for_the_prompt_are_in_a_package_of_their_own)
{
    make_package("install-korvel");
    EXPECT_FALSE(fs::exists(std::string(package_files) + "/usr/bin"));
    gateway.remove(package_files);

    make_package("install-korvel-tools");

    EXPECT_EQ((text_lines{"644 /usr/share/bash-completion/completions/korvelctl",
                          "644 /usr/share/man/man8/korvelctl.8", "755 /usr/bin/korvelctl"}),
              files_in(package_files));
}

TEST_F(install_test, what_an_upgrade_of_the_package_keeps_is_in_it)
{
    ASSERT_EQ(0, run_control(gateway, "postinst").status);
    EXPECT_EQ("/etc/korvel/\n", gateway.file(std::string(package_files) + "/conffiles"));
}

TEST_F(install_test, while_an_image_is_made_this_machine_is_let_be)
{
    gateway.install_package();
    gateway.write_file("/etc/init.d/rpcd", "#!/bin/sh\nexec gateway-tool journal \"$0\" \"$@\"\n", 0755);

    EXPECT_EQ(0, run_control(gateway, "postinst", {{"IPKG_INSTROOT", built_image}}).status);
    EXPECT_EQ(0, run_control(gateway, "prerm", {{"IPKG_INSTROOT", built_image}}).status);

    EXPECT_EQ(text_lines{}, gateway.commands());
    EXPECT_TRUE(gateway.uci_get("firewall.korvel"));
    gateway.remove("/etc/init.d/rpcd");
}

TEST_F(install_test, a_removal_takes_the_firewall_s_include_away)
{
    gateway.install_package();

    EXPECT_EQ(0, run_control(gateway, "prerm").status);

    EXPECT_FALSE(gateway.uci_get("firewall.korvel"));
}

TEST_F(install_test, the_feed_s_tests_pass_on_an_installed_package_and_fail_on_a_broken_one)
{
    gateway.install_package();
    for (const char *test : {"/test.sh", "/test-version.sh"}) {
        SCOPED_TRACE(test);
        EXPECT_EQ(0, run_program({feed + std::string(test), "korvel", "1.0.0"}).status);
        EXPECT_EQ(0, run_program({feed + std::string(test), "korvel-tools", "1.0.0"}).status);
        EXPECT_NE(0, run_program({feed + std::string(test), "another", "1.0.0"}).status);
        gateway.fake_program("korvel", "exit 1");
        EXPECT_NE(0, run_program({feed + std::string(test), "korvel", "1.0.0"}).status);
        gateway.remove("/gateway/fakes/korvel");
    }
}

} // namespace
