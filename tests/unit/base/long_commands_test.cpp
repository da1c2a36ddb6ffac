// Commands that take long: when they are logged, with which words. The clock is set.
#include "base/long_commands.h"

#include "base/os.h"
#include "support/gateway.h"

namespace {

uint64_t now = 5000000;

} // namespace

// The name is the one that the linker gives to the wrapped call.
extern "C" uint64_t __wrap__Z19steady_millisecondsv()
{
    return now;
}

namespace {

class long_commands_test : public gateway_test {
protected:
    text_lines logged() const { return gateway.log_texts(LOG_WARNING); }
};

TEST_F(long_commands_test, nothing_is_logged_of_what_ends_in_time)
{
    {
        const watched_command reload("/etc/init.d/network reload");
        now += long_command_milliseconds - 1;
        EXPECT_EQ(1, log_long_commands());
    }
    EXPECT_TRUE(logged().empty());
    EXPECT_EQ(int{long_command_milliseconds}, log_long_commands());
}

TEST_F(long_commands_test, what_takes_long_is_named_at_growing_distances_and_once_more_at_its_end)
{
    {
        const watched_command reload("/etc/init.d/network reload");
        text_lines expected;
        uint64_t passed = 0;
        for (const unsigned seconds : {30, 60, 120, 240}) {
            now += seconds * 1000 - passed - 1;
            (void)log_long_commands();
            EXPECT_EQ(expected, logged()) << seconds;
            now += 1;
            (void)log_long_commands();
            expected.push_back("It has run for " + std::to_string(seconds) +
                               " s: /etc/init.d/network reload");
            EXPECT_EQ(expected, logged()) << seconds;
            passed = seconds * 1000;
        }
        gateway.clear_log();
        now += 1000;
    }
    EXPECT_EQ(text_lines{"It ended after 241 s: /etc/init.d/network reload"}, logged());
}

TEST_F(long_commands_test, the_next_look_is_when_the_first_of_them_is_due)
{
    const watched_command first("first");
    now += 10000;
    const watched_command second("second");

    EXPECT_EQ(20000, log_long_commands());
    now += 20000;
    EXPECT_EQ(10000, log_long_commands());
    EXPECT_EQ(text_lines{"It has run for 30 s: first"}, logged());
}

TEST_F(long_commands_test, a_long_text_is_cut_and_more_commands_than_expected_are_not_watched)
{
    const std::string text(500, 'x');
    const watched_command commands[] = {watched_command(text.c_str()), watched_command("b"),
                                        watched_command("c"), watched_command("d"), watched_command("e")};
    now += long_command_milliseconds;
    (void)log_long_commands();

    const text_lines lines = logged();
    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ("It has run for 30 s: " + std::string(127, 'x'), lines[0]);
}

} // namespace
