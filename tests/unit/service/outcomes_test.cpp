// What became of changes: the order in which outcomes are handed over, and which of them are kept.
#include "service/outcomes.h"

#include "base/clock.h"
#include "support/gateway.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <thread>
#include <unistd.h>

namespace {

class outcomes_test : public testing::Test {
protected:
    ~outcomes_test() override
    {
        outcomes_wake(-1);
        take_all();
    }

    static void add(uint8_t wan_id, wan_action action = wan_action::changed, const char *file = "")
    {
        outcome_add({.action = action, .wanId = wan_id, .result = result_ok, .file = file});
    }

    // The WANs of the outcomes that were not taken yet.
    static std::vector<unsigned> take_all()
    {
        std::vector<unsigned> ids;
        while (const wan_outcome *const next = outcome_next()) {
            ids.push_back(next->wanId);
            outcome_taken();
        }
        return ids;
    }

    static std::vector<unsigned> kept_ids()
    {
        const wan_outcome *kept[most_kept_outcomes];
        const size_t count = outcomes_kept(kept);
        std::vector<unsigned> ids;
        for (size_t i = 0; i < count; i++)
            ids.push_back(kept[i]->wanId);
        return ids;
    }
};

TEST_F(outcomes_test, actions_have_their_names_on_the_bus)
{
    EXPECT_STREQ("created", wan_action_name(wan_action::created));
    EXPECT_STREQ("changed", wan_action_name(wan_action::changed));
    EXPECT_STREQ("deleted", wan_action_name(wan_action::deleted));
    EXPECT_STREQ("pending", wan_action_name(wan_action::pending));
    EXPECT_STREQ("cancelled", wan_action_name(wan_action::cancelled));
    EXPECT_STREQ("refused", wan_action_name(wan_action::refused));
    EXPECT_STREQ("failed", wan_action_name(wan_action::failed));
    EXPECT_STREQ("lost", wan_action_name(wan_action::lost));
}

TEST_F(outcomes_test, they_are_taken_in_the_order_in_which_they_were_added)
{
    for (const uint8_t id : std::initializer_list<uint8_t>{3, 1, 2, 1})
        add(id);

    EXPECT_EQ((std::vector<unsigned>{3, 1, 2, 1}), take_all());
    EXPECT_EQ(nullptr, outcome_next());
}

TEST_F(outcomes_test, texts_outlive_their_owner_and_a_missing_one_is_empty)
{
    const uint64_t before = steady_milliseconds();
    {
        std::string reason = "No space left on device", path = "/etc/config/network";
        outcome_add(
            {.action = wan_action::failed, .wanId = 1, .result = reason.c_str(), .file = path.c_str()});
        reason.assign(reason.size(), '?');
        path.assign(path.size(), '?');
    }
    outcome_add({.action = wan_action::created, .wanId = 2, .result = result_ok, .file = nullptr});

    const wan_outcome *const first = outcome_next();
    EXPECT_STREQ("No space left on device", first->result);
    EXPECT_STREQ("/etc/config/network", first->file);
    EXPECT_GE(first->when, before);
    EXPECT_LE(first->when, steady_milliseconds());
    outcome_taken();
    EXPECT_STREQ("", outcome_next()->file);
}

TEST_F(outcomes_test, the_last_sixteen_are_kept_but_none_of_a_change_that_waits)
{
    for (uint8_t id = 1; id <= 20; id++) {
        add(id);
        add(100, wan_action::pending);
    }

    (void)take_all();

    std::vector<unsigned> expected;
    for (unsigned id = 5; id <= 20; id++)
        expected.push_back(id);
    EXPECT_EQ(expected, kept_ids());
}

TEST_F(outcomes_test, whoever_waits_is_woken_for_what_is_there_and_for_what_comes)
{
    const int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    const auto woken = [&] {
        uint64_t count = 0;
        return read(descriptor, &count, sizeof(count)) == sizeof(count);
    };
    outcomes_wake(descriptor);
    EXPECT_FALSE(woken()) << "there is nothing";
    outcomes_wake(-1);

    add(1);
    EXPECT_FALSE(woken()) << "nobody waits";
    outcomes_wake(descriptor);
    EXPECT_TRUE(woken());
    add(2);
    add(3);
    EXPECT_TRUE(woken());
    EXPECT_FALSE(woken());

    EXPECT_EQ((std::vector<unsigned>{1, 2, 3}), take_all());
    close(descriptor);
}

TEST_F(outcomes_test, threads_add_while_another_takes)
{
    constexpr unsigned adders = 4, each = 500;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < adders; i++)
        threads.emplace_back([i] {
            for (unsigned n = 0; n < each; n++)
                outcome_add({.action = wan_action::changed,
                             .wanId = static_cast<uint8_t>(i),
                             .other = static_cast<uint8_t>(n),
                             .result = result_ok,
                             .file = ""});
        });

    unsigned next[adders] = {}, taken = 0;
    const bool all = wait_until([&] {
        for (; const wan_outcome *const outcome = outcome_next(); taken++) {
            EXPECT_EQ(next[outcome->wanId]++ & 0xff, outcome->other);
            outcome_taken();
        }
        return taken == adders * each;
    });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_TRUE(all);
}

} // namespace
