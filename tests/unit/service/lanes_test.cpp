// The order of jobs: one at a time in each lane, clients by turns.
#include "service/lanes.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>
#include <poll.h>
#include <string>
#include <vector>

#include "base/operation.h"

namespace {

// What lets the jobs end that are begun.
std::mutex gate_lock;
std::condition_variable gate_news;
bool gate_open = false;
int at_work = 0;

void set_gate(bool open)
{
    const std::lock_guard hold(gate_lock);
    gate_open = open;
    gate_news.notify_all();
}

struct named_job {
    lane_job job;
    std::string name;
    std::vector<std::string> *ended;
};

named_job &named(lane_job &job)
{
    return reinterpret_cast<named_job &>(job);
}

class lanes_test : public testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_EQ(0, lanes_start()); }
    void SetUp() override { set_gate(false); }
    void TearDown() override
    {
        set_gate(true);
        finish();
    }

    // A job that waits for the gate.
    lane_job &job(uint32_t client, const std::string &name)
    {
        jobs_.push_back(std::make_unique<named_job>());
        *jobs_.back() = {{.work =
                              [](lane_job &) {
                                  std::unique_lock hold(gate_lock);
                                  at_work++;
                                  gate_news.notify_all();
                                  gate_news.wait(hold, [] { return gate_open; });
                                  at_work--;
                              },
                          .ended = [](lane_job &self) { named(self).ended->push_back(named(self).name); },
                          .client = client},
                         name,
                         &ended_};
        return jobs_.back()->job;
    }

    void add(uint32_t client, const std::string &name) { lane_add(lane_name::changes, job(client, name)); }

    void finish()
    {
        while (!lane_is_idle(lane_name::changes) || !lane_is_idle(lane_name::queries))
            attend();
    }

    void attend()
    {
        pollfd bell = {lanes_bell(), POLLIN, 0};
        ASSERT_EQ(1, poll(&bell, 1, 60000));
        lanes_attend();
    }

    void wait_for_work(int jobs)
    {
        std::unique_lock hold(gate_lock);
        gate_news.wait(hold, [jobs] { return at_work == jobs; });
    }

    std::vector<std::string> run()
    {
        set_gate(true);
        finish();
        return ended_;
    }

    std::vector<std::unique_ptr<named_job>> jobs_;
    std::vector<std::string> ended_;
};

using names = std::vector<std::string>;

TEST_F(lanes_test, clients_with_one_job_each_find_the_order_in_which_they_came)
{
    for (uint32_t client = 1; client <= 64; client++)
        add(client, std::to_string(client));

    names expected;
    for (int client = 1; client <= 64; client++)
        expected.push_back(std::to_string(client));
    EXPECT_EQ(expected, run());
}

TEST_F(lanes_test, a_client_with_many_jobs_does_not_keep_the_others_waiting)
{
    for (const char *name : {"a1", "a2", "a3", "a4"})
        add(1, name);
    add(2, "b1");
    add(3, "c1");
    add(2, "b2");

    EXPECT_EQ((names{"a1", "a2", "b1", "c1", "a3", "b2", "a4"}), run());
}

TEST_F(lanes_test, who_comes_back_comes_behind_those_who_wait_for_the_first_time)
{
    add(1, "a1");
    add(2, "b1");
    add(3, "c1");
    set_gate(true);
    while (ended_.empty())
        attend();
    add(1, "a2");
    add(4, "d1");

    const names all = run();
    EXPECT_EQ((names{"a1", "b1", "c1", "a2", "d1"}), all);
}

TEST_F(lanes_test, jobs_of_nobody_take_turns_with_all_others)
{
    add(0, "first");
    add(1, "a1");
    add(1, "a2");
    add(0, "second");
    add(0, "third");

    EXPECT_EQ((names{"first", "a1", "second", "third", "a2"}), run());
}

TEST_F(lanes_test, a_job_that_waits_can_be_withdrawn_and_one_at_work_cannot)
{
    lane_job &working = job(1, "working"), &waiting = job(1, "waiting");
    lane_add(lane_name::changes, working);
    lane_add(lane_name::changes, waiting);
    wait_for_work(1);

    EXPECT_FALSE(lane_withdraw(lane_name::changes, working));
    EXPECT_TRUE(lane_withdraw(lane_name::changes, waiting));
    EXPECT_FALSE(lane_withdraw(lane_name::changes, waiting));

    EXPECT_EQ(names{"working"}, run());
}

TEST_F(lanes_test, the_lanes_do_not_wait_for_each_other)
{
    add(1, "change");
    lane_add(lane_name::queries, job(1, "query"));

    wait_for_work(2);
    EXPECT_FALSE(lane_is_idle(lane_name::changes));
    EXPECT_FALSE(lane_is_idle(lane_name::queries));
}

TEST_F(lanes_test, a_change_is_told_that_it_begins_before_it_does)
{
    lane_job &working = job(1, "working"), &waiting = job(1, "waiting");
    static int begun = 0;
    begun = 0;
    working.begins = waiting.begins = [](lane_job &) { begun++; };
    lane_add(lane_name::changes, working);
    lane_add(lane_name::changes, waiting);

    EXPECT_EQ(1, begun);
    (void)run();
    EXPECT_EQ(2, begun);
}

} // namespace
