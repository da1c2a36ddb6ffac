// When stop signals come in, and when a stop ends the process.
#include "base/stop_signals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int end_was_missed = 3;

bool is_blocked(int number)
{
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, number) == 1;
}

TEST(stop_signals_test, a_mask_holds_the_stop_signals_back_and_lets_them_in_for_its_lifetime)
{
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        SCOPED_TRACE(number);
        ASSERT_FALSE(is_blocked(number));
        {
            const stop_signal_mask blocked(stop_signal_mask::block);
            EXPECT_TRUE(is_blocked(number));
            {
                const stop_signal_mask admitted(stop_signal_mask::admit);
                EXPECT_FALSE(is_blocked(number));
            }
            EXPECT_TRUE(is_blocked(number));
        }
        EXPECT_FALSE(is_blocked(number));
    }
    const stop_signal_mask blocked(stop_signal_mask::block);
    EXPECT_FALSE(is_blocked(SIGCHLD));
}

TEST(stop_signals_test, a_stop_ends_the_process_at_once_when_nothing_holds_it_off)
{
    const auto stop = [] {
        {
            const stop_hold over;
        }
        stop_process();
        _exit(end_was_missed);
    };

    EXPECT_EXIT(stop(), testing::ExitedWithCode(0), "^$");
}

TEST(stop_signals_test, a_stop_waits_for_the_last_hold)
{
    const auto stop = [] {
        {
            const stop_hold outer;
            {
                const stop_hold inner;
                stop_process();
                (void)fputs("inner ", stderr);
            }
            (void)fputs("outer", stderr);
        }
        _exit(end_was_missed);
    };

    EXPECT_EXIT(stop(), testing::ExitedWithCode(0), "^inner outer$");
}

TEST(stop_signals_test, a_stop_waits_for_the_hold_of_another_thread)
{
    const auto stop = [] {
        std::atomic<bool> held = false;
        std::atomic<bool> stopped = false;
        const std::jthread other([&] {
            const stop_hold hold;
            held = true;
            while (!stopped)
                std::this_thread::yield();
            (void)fputs("whole", stderr);
        });
        while (!held)
            std::this_thread::yield();
        stop_process();
        stopped = true;
        for (;;)
            (void)pause();
    };

    EXPECT_EXIT(stop(), testing::ExitedWithCode(0), "^whole$");
}

} // namespace
