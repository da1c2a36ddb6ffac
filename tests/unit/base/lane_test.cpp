// A lane's thread, and what comes after it.
#include "base/lane.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <pthread.h>
#include <set>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<bool> threads_are_short = false;
std::atomic<int> times_given_back = 0;

} // namespace

// The names are those that the linker gives to wrapped calls.
extern "C" {

int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                          void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                          void *argument)
{
    return threads_are_short ? EAGAIN : __real_pthread_create(thread, attributes, body, argument);
}

void __real_mxuci_give_memory_back(void);
void __wrap_mxuci_give_memory_back(void)
{
    times_given_back++;
    __real_mxuci_give_memory_back();
}
}

namespace {

constexpr int many = 1000; // more pieces than one thread does

class lane_test : public testing::Test {
protected:
    static void SetUpTestSuite()
    {
        if (bell >= 0)
            return; // a lane does not end
        bell = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        ASSERT_GE(bell, 0);
        ASSERT_EQ(0, worker.start(bell));
    }
    void TearDown() override { threads_are_short = false; }

    // Has the lane note its thread, and waits for that.
    static void do_one(pid_t &thread)
    {
        worker.give([](void *out) { *static_cast<pid_t *>(out) = static_cast<pid_t>(syscall(SYS_gettid)); },
                    &thread);
        EXPECT_EQ(&thread, worker.at_work());
        pollfd ringing = {bell, POLLIN, 0};
        ASSERT_EQ(1, poll(&ringing, 1, 60000));
        eventfd_t times = 0;
        ASSERT_EQ(0, eventfd_read(bell, &times));
        ASSERT_EQ(&thread, worker.take());
        EXPECT_TRUE(worker.is_idle());
    }

    static std::set<pid_t> threads_of_many()
    {
        std::set<pid_t> threads;
        for (int piece = 0; piece < many; piece++) {
            pid_t thread = 0;
            do_one(thread);
            threads.insert(thread);
        }
        return threads;
    }

    static inline lane worker;
    static inline int bell = -1;
};

TEST_F(lane_test, a_thread_makes_room_for_another_now_and_then)
{
    const std::set<pid_t> threads = threads_of_many();
    EXPECT_GT(threads.size(), 1U);
    EXPECT_LT(threads.size(), many / 10U);
    EXPECT_FALSE(threads.contains(getpid()));
}

TEST_F(lane_test, a_thread_that_finds_no_other_goes_on)
{
    pid_t thread = 0;
    threads_are_short = true;
    do_one(thread); // by the thread that the one before was making room for, if it was
    do_one(thread);
    EXPECT_EQ(std::set{thread}, threads_of_many());
    threads_are_short = false;
    EXPECT_GT(threads_of_many().size(), 1U);
}

// A quiet second, and one more. On a machine that stalls while there is work that second comes too early:
// then the work is done again.
TEST_F(lane_test, memory_is_given_back_once_when_it_is_quiet)
{
    using clock = std::chrono::steady_clock;
    for (int i = 0; i < 2; i++) {
        int before = 0;
        clock::time_point begun;
        do {
            before = times_given_back;
            begun = clock::now();
            pid_t thread = 0;
            for (int piece = 0; piece < 3; piece++)
                do_one(thread);
        } while (clock::now() - begun > std::chrono::milliseconds(500));
        EXPECT_EQ(before, times_given_back) << "while there is work";
        for (int tries = 0; tries < 600 && times_given_back == before; tries++)
            (void)usleep(100000);
        EXPECT_EQ(before + 1, times_given_back);
        (void)usleep(1200000);
        EXPECT_EQ(before + 1, times_given_back);
    }
}

} // namespace
