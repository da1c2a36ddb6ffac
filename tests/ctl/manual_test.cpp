// The manual, the help and the completion know the same program.
#include "ctl/ctl_test.h"
#include "ctl/findings.h"
#include "ctl/request.h"

namespace {

class ctl_manual_test : public ctl_test {
protected:
    std::string manual() const { return gateway.file(KORVEL_SOURCE_DIR "/docs/man/korvelctl.8.in"); }
};

TEST_F(ctl_manual_test, has_every_command_and_option)
{
    const std::string text = manual();
    option_row row = {};
    for (const char *options = change_options(); next_option(options, row);)
        EXPECT_NE(std::string::npos, text.find(std::string("Fl -") + row.name)) << row.name;
    size_t commands = 0;
    for (const std::string &line : lines_of(ctl({"--help"}).output))
        if (line.starts_with("  ") && line[2] >= 'a' && line[2] <= 'z') {
            const std::string name = line.substr(2, line.find(' ', 2) - 2);
            EXPECT_NE(std::string::npos, text.find(".Cm " + name)) << name;
            commands++;
        }
    EXPECT_LT(5U, commands);
}

TEST_F(ctl_manual_test, has_every_exit_status_with_its_words)
{
    const std::string text = manual();
    const std::string statuses = text.substr(text.find(".Sh EXIT STATUS"));
    for (const exit_status_row &row : exit_statuses)
        EXPECT_NE(std::string::npos,
                  statuses.find(".It " + std::to_string(code(row.status)) + '\n' + row.meaning + '\n'))
            << row.meaning;
}

TEST_F(ctl_manual_test, the_help_fits_the_screen_s_width)
{
    for (const std::string &line : lines_of(ctl({"--help"}).output))
        EXPECT_GE(110U, line.size()) << line;
}

TEST_F(ctl_manual_test, the_shell_completes_commands_options_and_words)
{
    if (run_program({"sh", "-c", "command -v bash"}).status != 0)
        GTEST_SKIP() << "bash is not installed";
    const auto completed = [](const std::string &line) {
        const program_result result = run_program(
            {"bash", "-c",
             ". " KORVEL_SOURCE_DIR "/ctl/korvelctl.bash; COMP_WORDS=(" + line +
                 "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _korvelctl; echo \"${COMPREPLY[*]}\""});
        EXPECT_EQ("", result.errors);
        return result.output;
    };
    EXPECT_EQ("status\n", completed("korvelctl st"));
    EXPECT_EQ("--watch\n", completed("korvelctl status --w"));
    EXPECT_EQ("--pppoe --password-file --prio --ports --prefix6\n", completed("korvelctl add --p"));
    EXPECT_EQ("other\n", completed("korvelctl add --service o"));
    EXPECT_EQ("none\n", completed("korvelctl modify 1 --ports n"));
}

} // namespace
