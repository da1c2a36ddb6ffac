// How stop signals are noticed, and what puts the end of the process off.
#include "base/stop_signals.h"

#include "base/clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <thread>
#include <unistd.h>

namespace {

TEST(stop_signals_test, each_signal_rings_and_is_taken_once)
{
    const int bell = stop_signals_catch();
    ASSERT_GE(bell, 0);
    EXPECT_EQ(0, stop_signal_take());
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        SCOPED_TRACE(number);
        errno = E2BIG;
        ASSERT_EQ(0, raise(number));
        EXPECT_EQ(E2BIG, errno) << "what a signal interrupts does not notice";

        pollfd waiting = {bell, POLLIN, 0};
        EXPECT_EQ(1, poll(&waiting, 1, 0));
        EXPECT_EQ(number, stop_signal_take());
        EXPECT_EQ(0, stop_signal_take());
        EXPECT_EQ(0, poll(&waiting, 1, 0));
    }
}

void wait_a_while()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

// Ends the process while a thread puts that off: with 0 when that was through, with 3 when not.
template <typename work> [[noreturn]] void end_beside(work body)
{
    static std::atomic<bool> begun = false, through = false;
    std::thread([&] {
        body(begun, through);
        for (;;)
            (void)pause();
    }).detach();
    while (!begun)
        std::this_thread::yield();
    stop_wait_for_holds();
    wait_a_while();
    _exit(through ? 0 : 3);
}

TEST(stop_signals_test, the_end_waits_for_the_last_hold_and_for_a_delay)
{
    const auto held = [](std::atomic<bool> &begun, std::atomic<bool> &through) {
        const stop_hold outer;
        {
            const stop_hold inner;
            begun = true;
            wait_a_while();
        }
        wait_a_while();
        through = true;
    };
    const auto delayed = [](std::atomic<bool> &begun, std::atomic<bool> &through) {
        const stop_delay delay;
        begun = true;
        wait_a_while();
        through = true;
    };
    EXPECT_EXIT(end_beside(held), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(end_beside(delayed), testing::ExitedWithCode(0), "");
}

TEST(stop_signals_test, without_holds_there_is_nothing_to_wait_for)
{
    const auto end = [] {
        stop_wait_for_holds();
        _exit(0);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
}

uint64_t milliseconds_of_waiting(bool with_hold)
{
    std::atomic<bool> begun = false;
    std::atomic<bool> *const told = &begun;
    std::thread([told, with_hold] {
        static const stop_delay for_ever;
        *told = true;
        if (with_hold) {
            const stop_hold hold;
            std::this_thread::sleep_for(std::chrono::milliseconds(stop_delay::most_milliseconds + 500));
        }
        for (;;)
            (void)pause();
    }).detach();
    while (!begun)
        std::this_thread::yield();
    wait_a_while(); // for the hold
    const uint64_t start = steady_milliseconds();
    stop_wait_for_holds();
    return steady_milliseconds() - start;
}

TEST(stop_signals_test, a_delay_is_not_waited_for_for_ever_and_a_hold_is)
{
    const auto end = [](bool with_hold, uint64_t least) {
        _exit(milliseconds_of_waiting(with_hold) >= least ? 0 : 3);
    };
    EXPECT_EXIT(end(false, stop_delay::most_milliseconds), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(end(true, stop_delay::most_milliseconds + 200), testing::ExitedWithCode(0), "");
}

TEST(stop_signals_test, a_stop_point_is_passed_until_the_end_is_asked_for)
{
    stop_point();
    const auto held = [](std::atomic<bool> &begun, std::atomic<bool> &through) {
        {
            const stop_hold hold;
            begun = true;
            wait_a_while(); // the end is asked for meanwhile
            through = true;
        }
        stop_point();
        through = false;
    };
    EXPECT_EXIT(end_beside(held), testing::ExitedWithCode(0), "");
}

TEST(stop_signals_test, who_would_hold_the_end_off_when_it_has_come_waits)
{
    const auto end = [] {
        stop_wait_for_holds();
        std::atomic<bool> held = false;
        std::atomic<bool> *const told = &held;
        std::thread([told] {
            const stop_hold hold;
            *told = true;
        }).detach();
        wait_a_while();
        _exit(held ? 3 : 0);
    };
    EXPECT_EXIT(end(), testing::ExitedWithCode(0), "");
}

} // namespace
