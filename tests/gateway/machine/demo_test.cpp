// The demonstration's steps: what they show, and that they wait for it.
#include "machine/inside.h"

#include <gtest/gtest.h>

namespace {

// A command whose output is there every other time only, as that of one which looks at rules that a script is
// taking back and installing anew.
constexpr char flickering[] =
    "flicker() { echo >> /tmp/times; [ $(($(wc -l < /tmp/times) % 2)) -eq 1 ] || echo 'it is \"there\"'; }; ";

inside_result run_step(const std::string &step)
{
    return run_in_gateway(std::string("set -eu; . " KORVEL_DEMO_STEPS "; ") + flickering + step);
}

TEST(demo_steps, what_was_waited_for_is_what_is_shown)
{
    EXPECT_EQ("\n$ flicker\nit is \"there\"\n", run_step("run_until 'is \"there' flicker").output);
}

TEST(demo_steps, what_does_not_come_is_named_and_ends_the_demonstration)
{
    const inside_result result = run_step("step_deadline=0; run_until never flicker; echo on");

    EXPECT_EQ(1, result.status);
    EXPECT_EQ("demo: 'flicker' did not show in time: never\n", result.output);
}

TEST(demo_steps, a_command_that_fails_ends_the_demonstration)
{
    EXPECT_EQ("\n$ sh -c 'exit 3'\ndemo: this failed with status 3\n",
              run_step("run \"sh -c 'exit 3'\"; echo on").output);
    EXPECT_EQ("\n$ echo seen\nseen\ndemo: this should have been refused\n",
              run_step("run_refused 'echo seen'; echo on").output);
}

} // namespace
