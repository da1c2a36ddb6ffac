// The judgement passes what is whole and truthfully told of, and nothing else.
#include "faults/judgement.h"

#include <gtest/gtest.h>

namespace {

const whole_states states = {
    .before = {{"/etc/config/network", {0600, "before\n"}}, {"/etc/config/firewall", {0644, "before\n"}}},
    .after = {{"/etc/config/network", {0600, "after hidden-word\n"}},
              {"/etc/config/firewall", {0644, "after\n"}}},
    .reloads = {"/etc/init.d/network", "/etc/init.d/firewall"},
    .meaning = success::means_done,
};

const heard_reply done = {true, true, R"({"status":0})"};
const heard_reply refused = {true, false, R"({"status":-1})"};

observation left(const file_tree &files)
{
    return {.at_once = files, .present = files};
}

TEST(judgement, the_whole_and_nothing_pass)
{
    const verdict before = judge(left(states.before), states);
    EXPECT_TRUE(before.before && !before.after && before.wrong.empty());
    const verdict after = judge(left(states.after), states);
    EXPECT_TRUE(after.after && !after.before && after.wrong.empty());
}

TEST(judgement, a_mixture_is_wrong_and_says_in_what)
{
    observation seen = left(states.before);
    seen.present["/etc/config/firewall"] = states.after.at("/etc/config/firewall");
    EXPECT_EQ(
        "is neither; against before: other /etc/config/firewall; against after: other /etc/config/network",
        judge(seen, states).wrong);
}

TEST(judgement, a_file_left_over_is_wrong)
{
    observation seen = left(states.after);
    seen.present["/etc/config/.network.uci-AbCdEf"] = {0600, ""};
    EXPECT_NE("", judge(seen, states).wrong);
}

TEST(judgement, what_the_next_start_made_whole_is_marked)
{
    observation seen = left(states.after);
    EXPECT_FALSE(judge(seen, states).healed);
    seen.at_once["/etc/config/.korvel.record"] = {0600, ""};
    EXPECT_TRUE(judge(seen, states).healed);
}

TEST(judgement, a_secret_that_others_could_read_for_a_moment_is_wrong)
{
    observation seen = left(states.after);
    seen.at_once["/etc/config/.network.new"] = {0644, "hidden-word"};
    EXPECT_EQ("a secret can be read in /etc/config/.network.new", judge(seen, states).wrong);
}

TEST(judgement, an_answer_binds)
{
    observation seen = left(states.before);
    seen.reply = done;
    EXPECT_NE("", judge(seen, states).wrong);
    seen.reply = refused;
    EXPECT_EQ("", judge(seen, states).wrong);
    seen = left(states.after);
    seen.reply = refused;
    EXPECT_NE("", judge(seen, states).wrong);
    seen.reply = done;
    EXPECT_EQ("", judge(seen, states).wrong);
}

TEST(judgement, an_answer_that_hides_failures_binds_where_no_call_failed)
{
    whole_states hiding = states;
    hiding.meaning = success::hides_failures;
    observation seen = left(states.before);
    seen.reply = done;
    EXPECT_NE("", judge(seen, hiding).wrong);
    seen.call_failed = true;
    seen.messages = {"<27>korvel: cannot write /etc/config/network: Input/output error"};
    EXPECT_EQ("", judge(seen, hiding).wrong);
}

TEST(judgement, a_promise_does_not_bind)
{
    whole_states promised = states;
    promised.meaning = success::promises;
    observation seen = left(states.before);
    seen.reply = done;
    EXPECT_EQ("", judge(seen, promised).wrong);
}

TEST(judgement, a_failure_has_to_be_logged_with_file_and_reason)
{
    observation seen = left(states.before);
    seen.call_failed = true;
    seen.failed_paths = {"/etc/config/firewall", "/etc/config/.network.uci-AbCdEf"};
    seen.error = EIO;
    seen.messages = {"<30>korvel: information"};
    EXPECT_EQ("failed without a word in the log", judge(seen, states).wrong);
    seen.messages = {"<27>korvel: something failed"};
    EXPECT_EQ("the log does not name file and reason: <27>korvel: something failed",
              judge(seen, states).wrong);
    seen.messages = {"<27>korvel: cannot write /etc/config/network: Input/output error"};
    EXPECT_EQ("", judge(seen, states).wrong);
}

TEST(judgement, services_that_were_not_told_are_named)
{
    observation seen = left(states.after);
    seen.must_reload = true;
    seen.reloads = {"/etc/init.d/network"};
    EXPECT_EQ("is as after, but not reloaded: /etc/init.d/firewall", judge(seen, states).wrong);
    seen.reloads.push_back("/etc/init.d/firewall");
    EXPECT_EQ("", judge(seen, states).wrong);
}

TEST(judgement, memory_that_was_lost_does_not_count)
{
    observation seen = left(states.after);
    seen.present["/tmp/wan_list"] = {0600, ""};
    EXPECT_NE("", judge(seen, states).wrong);
    seen.memory_lost = true;
    EXPECT_EQ("", judge(seen, states).wrong);
}

} // namespace
