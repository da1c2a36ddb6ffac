// The parts that the scripts in tools/ share: what they ask of a machine, and what they say when it is not
// there.
#include "support/process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

const std::string load_parts =
    "set -eu; for part in common packages private_root build; do . " KORVEL_TOOLS "/lib/$part.sh; done; ";

program_result run_script(const std::string &text)
{
    return run_program({"bash", "-c", load_parts + text});
}

// Runs the script as root of a user namespace that is made for it; the preparation comes before.
program_result run_as_root_of_a_namespace(const std::string &preparation, const std::string &text)
{
    return run_program({"unshare", "--user", "--map-root-user", "bash", "-c", preparation + " bash -c \"$0\"",
                        load_parts + text});
}

class private_root_check : public testing::Test {
protected:
    // As an ordinary user sees himself.
    static constexpr char not_root[] = "id() { echo 1000; }; ";
    static constexpr char no_namespaces[] = "echo 0 > /proc/sys/user/max_user_namespaces;";

    void SetUp() override
    {
        const program_result result = run_program({"unshare", "--user", "--map-root-user", "true"});
        if (result.status != 0)
            GTEST_SKIP() << "it runs in a user namespace; " << result.errors;
    }
};

TEST(private_root, can_be_made_where_the_tests_run)
{
    const program_result result = run_script("need_private_root; echo on");

    EXPECT_EQ("on\n", result.output);
    EXPECT_EQ("", result.errors);
}

TEST_F(private_root_check, a_user_is_told_the_setting_that_forbids_it)
{
    const program_result result =
        run_as_root_of_a_namespace(no_namespaces, std::string(not_root) + "need_private_root; echo on");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("bash: no virtual gateway can be made here: unshare: unshare failed: No space left on device\n"
              "What helps:\n"
              "  as root: sysctl user.max_user_namespaces=10000\n"
              "  run this as root; in a chroot and in most containers nobody else can\n",
              result.errors);
}

TEST_F(private_root_check, root_without_rights_is_told_of_its_container)
{
    const program_result result =
        run_as_root_of_a_namespace(std::string(no_namespaces) + "setpriv --bounding-set=-all --inh-caps=-all",
                                   "need_private_root; echo on");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("bash: no virtual gateway can be made here: unshare: unshare failed: No space left on device\n"
              "What helps:\n"
              "  start the container with --privileged\n",
              result.errors);
}

TEST_F(private_root_check, root_needs_the_right_to_make_network_devices)
{
    const program_result result = run_as_root_of_a_namespace(
        "setpriv --bounding-set=-net_admin --inh-caps=-net_admin", "need_private_root; echo on");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.output);
    EXPECT_EQ("bash: no virtual gateway can be made here: root may not make network devices\n"
              "What helps:\n"
              "  start the container with --privileged\n",
              result.errors);
}

class packages : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(mkdtemp(directory_.data()));
        fs::create_symlink("/usr/bin/basename", directory_ + "/basename");
    }
    void TearDown() override { fs::remove_all(directory_); }

    // Finds programs in the test's directory only.
    program_result need(const std::string &preparation, const std::string &names) const
    {
        return run_script("PATH=" + directory_ + "; " + preparation + "need_packages bash " + names);
    }

    std::string directory_ = "/tmp/korvel_packages.XXXXXX";
};

TEST_F(packages, what_is_there_is_not_installed)
{
    const program_result result = run_script("need_packages bash util-linux; echo on");

    EXPECT_EQ("on\n", result.output);
}

TEST_F(packages, missing_ones_are_named_where_nothing_can_install_them)
{
    const program_result result = need("", "no-such-a no-such-b");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("bash: missing, and there is no apt-get to install them: bash no-such-a no-such-b\n",
              result.errors);
}

TEST_F(packages, a_user_without_sudo_is_told_what_to_install)
{
    const program_result result = need("id() { echo 1000; }; apt-get() { :; }; ", "no-such-a");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("bash: missing: bash no-such-a. Neither root nor sudo here; as root: apt-get install bash "
              "no-such-a\n",
              result.errors);
}

TEST_F(packages, those_that_cannot_be_installed_are_named)
{
    const program_result result =
        need("id() { echo 0; }; as_root() { echo refused >&2; return 1; }; apt-get() { :; }; ", "no-such-a");

    EXPECT_EQ(1, result.status);
    EXPECT_TRUE(
        result.errors.ends_with("refused\nbash: cannot install bash no-such-a: see the message above\n"))
        << result.errors;
}

TEST(build_progress, is_shown_at_each_fifth_and_hides_the_rest)
{
    const program_result result = run_script("build() { for i in 1 2 3 4 5 6 7 8 9 10; do"
                                             " echo \"[$i/10] Building $i\"; done; echo note; }; "
                                             "build_with_progress dev all; echo on");

    EXPECT_EQ(
        "   2 of 10 steps\n   4 of 10 steps\n   6 of 10 steps\n   8 of 10 steps\n   10 of 10 steps\non\n",
        result.output);
    EXPECT_EQ("", result.errors);
}

TEST(build_progress, a_build_with_nothing_to_do_shows_none)
{
    EXPECT_EQ(
        "on\n",
        run_script("build() { echo 'ninja: no work to do.'; }; build_with_progress dev; echo on").output);
}

TEST(build_progress, a_build_that_fails_shows_all_and_ends_the_script)
{
    const program_result result =
        run_script("build() { echo '[1/2] Building x'; echo 'x.cpp: error' >&2; return 3; }; "
                   "build_with_progress dev; echo on");

    EXPECT_EQ(3, result.status);
    EXPECT_EQ("   1 of 2 steps\n", result.output);
    EXPECT_EQ("[1/2] Building x\nx.cpp: error\n", result.errors);
}

TEST(build_progress, is_one_line_on_a_terminal)
{
    const program_result result =
        run_script("is_on_terminal() { true; }; printf '[1/2] x\n[2/2] y\n' | show_progress");

    EXPECT_EQ("\r   1 of 2 steps\r   2 of 2 steps\n", result.output);
}

// The script with what `tools/test --cross` is made of.
program_result run_cross(const std::string &text)
{
    return run_script("jobs=1; . " KORVEL_TOOLS "/lib/cross.sh; " + text);
}

TEST(other_machines, a_daemon_above_its_limit_fails)
{
    const char sizes[] = "most_bytes=([small]=10); stripped_size() { echo \"$1\"; }; "
                         "size_row small 10 strip; size_row unlimited 99 strip; size_row small 11 strip";

    const program_result result = run_cross(sizes);

    EXPECT_EQ("small           10        10\nunlimited        99      none\nsmall           11        10\n",
              result.output);
    EXPECT_EQ(1, result.status);
}

TEST(other_machines, a_size_that_cannot_be_taken_fails)
{
    EXPECT_NE(0, run_cross("size_row armhf /nonexistent strip").status);
}

TEST(other_machines, a_tour_that_differs_is_shown)
{
    const char tours[] = "directory=$(mktemp -d); trap 'rm -r $directory' EXIT; "
                         "build_directory() { echo \"$directory/$1\"; }; launcher=launch; "
                         "launch() { echo one; echo \"$3\"; }; take_tour 'this machine' --programs two; "
                         "compare_tour same two; compare_tour other three";

    const program_result result = run_cross(tours);

    EXPECT_EQ(1, result.status);
    EXPECT_NE(std::string::npos, result.output.find("\n-two\n+three\n")) << result.output;
}

TEST(other_machines, archives_of_others_and_security_updates_are_no_sources)
{
    const char lists[] = "apt-get() { printf '%s\\n' 'bookworm http://a/ main' 'bookworm http://a/ main' "
                         "'bookworm-security http://b/ main'; }; debian_sources";

    EXPECT_EQ("deb http://a/ bookworm main\n", run_cross(lists).output);
}

TEST(other_machines, packages_that_cannot_be_had_are_named)
{
    const char nothing_to_fetch[] = "directory=$(mktemp -d); trap 'rm -r $directory' EXIT; build_directory() "
                                    "{ echo \"$directory/$1\"; }; "
                                    "apt-get() { if [ \"$1\" = indextargets ]; then echo bookworm http://a/ "
                                    "main; else echo no network >&2; "
                                    "return 100; fi; }; fetch_foreign_packages; echo on";

    const program_result result = run_cross(nothing_to_fetch);

    EXPECT_EQ(1, result.status);
    EXPECT_TRUE(result.errors.ends_with("no network\nbash: cannot fetch libjson-c-dev libjson-c5 musl-dev "
                                        "for armhf: see the message above\n"))
        << result.errors;
}

// A sample for the test below.
TEST(skipped, tests_skip_what_they_are_asked_to)
{
    if (getenv("KORVEL_SKIP_SAMPLE"))
        GTEST_SKIP() << "the moon\nis not full";
}

TEST(skipped, tests_are_listed_with_their_reasons)
{
    const program_result result =
        run_script("skipped_tests <(KORVEL_SKIP_SAMPLE=1 " + fs::read_symlink("/proc/self/exe").string() +
                   " --gtest_filter='skipped.tests_skip*:packages.what*')");

    EXPECT_EQ("skipped.tests_skip_what_they_are_asked_to: the moon is not full\n", result.output);
}

} // namespace
