// Who gets a lock that several wait for.
#include "base/lock.h"

#include "base/os.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

// Whether a thread of this process has gone to sleep.
bool sleeps(pid_t thread)
{
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string number, name, state;
    stat >> number >> name >> state;
    return state == "S";
}

TEST(fair_mutex, those_who_wait_get_it_in_the_order_in_which_they_came)
{
    constexpr int waiters = 8;
    fair_mutex lock;
    std::vector<int> order; // guarded by the lock
    std::vector<std::thread> threads;
    lock.lock();
    for (int i = 0; i < waiters; i++) {
        std::atomic<pid_t> thread = 0; // read below, before this round ends
        threads.emplace_back([&lock, &order, &thread, i] {
            thread = static_cast<pid_t>(syscall(SYS_gettid));
            const scoped_lock hold(lock);
            order.push_back(i);
        });
        while (thread == 0 || !sleeps(thread))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    lock.unlock();
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ((std::vector{0, 1, 2, 3, 4, 5, 6, 7}), order);
}

TEST(fair_mutex, one_at_a_time_holds_it)
{
    fair_mutex lock;
    int holders = 0, most = 0; // guarded by the lock
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; i++)
        threads.emplace_back([&] {
            for (int round = 0; round < 500; round++) {
                const scoped_lock hold(lock);
                most = std::max(most, ++holders);
                std::this_thread::yield();
                holders--;
            }
        });
    for (std::thread &thread : threads)
        thread.join();

    EXPECT_EQ(1, most);
}

TEST(timed_signal, the_wait_ends_when_the_clock_shows_the_moment)
{
    mutex lock;
    timed_signal signal;
    ASSERT_TRUE(signal.open());
    const uint64_t end = steady_milliseconds() + 300;
    {
        const scoped_lock hold(lock);
        while (signal.wait_until(lock, end))
            ;
        EXPECT_GE(steady_milliseconds(), end);
        EXPECT_FALSE(signal.wait_until(lock, end)) << "that is over";
    }
    signal.close();
}

TEST(timed_signal, a_waiting_thread_lets_the_mutex_go_and_is_woken_by_what_is_sent)
{
    mutex lock;
    timed_signal signal;
    ASSERT_TRUE(signal.open());
    bool waits = false, sent = false; // guarded by the mutex
    bool in_time = true;
    std::thread waiter([&] {
        const uint64_t end = steady_milliseconds() + 60000;
        const scoped_lock hold(lock);
        waits = true;
        while (!sent && in_time)
            in_time = signal.wait_until(lock, end);
    });

    for (bool told = false; !told;) {
        const scoped_lock hold(lock);
        told = sent = waits;
        if (told)
            signal.send();
    }
    waiter.join();

    EXPECT_TRUE(in_time);
    signal.close();
}

} // namespace
