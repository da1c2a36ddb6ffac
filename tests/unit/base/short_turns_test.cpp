// Turns of another length, and what a program has that is started meanwhile.
#include "base/short_turns.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

static bool operator==(const turn_attributes &one, const turn_attributes &other)
{
    return memcmp(&one, &other, sizeof(one)) == 0;
}

namespace {

// But for the flags, which are about what is started.
turn_attributes own_turns()
{
    turn_attributes found = {};
    EXPECT_EQ(0, syscall(SYS_sched_getattr, 0, &found, sizeof(found), 0));
    found.flags = 0;
    return found;
}

// Those of a process that this thread starts.
turn_attributes turns_of_a_child()
{
    int ends[2];
    EXPECT_EQ(0, pipe2(ends, O_CLOEXEC));
    const pid_t child = fork();
    if (child == 0) {
        const turn_attributes own = own_turns();
        _exit(write(ends[1], &own, sizeof(own)) == static_cast<ssize_t>(sizeof(own)) ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    turn_attributes found = {};
    EXPECT_EQ(static_cast<ssize_t>(sizeof(found)), read(ends[0], &found, sizeof(found)));
    close(ends[0]);
    close(ends[1]);
    return found;
}

// In a thread of its own, once that is prepared; where it may not be, the test is skipped.
void in_a_thread(const std::function<bool()> &prepared, const std::function<void()> &body)
{
    int error = 0;
    std::thread([&] {
        error = prepared() ? 0 : errno;
        if (error == 0)
            body();
    }).join();
    if (error != 0)
        GTEST_SKIP() << strerror(error);
}

bool as_it_is()
{
    return true;
}

bool nicer()
{
    return setpriority(PRIO_PROCESS, 0, 3) == 0;
}

bool less_nice()
{
    return setpriority(PRIO_PROCESS, 0, -3) == 0;
}

bool before_all_others()
{
    const sched_param lowest = {.sched_priority = 1};
    return sched_setscheduler(0, SCHED_RR, &lowest) == 0;
}

bool behind_all_others()
{
    const sched_param none = {};
    return sched_setscheduler(0, SCHED_IDLE, &none) == 0;
}

// Checks short turns and what comes after them, for a thread that may have them.
void check_turns()
{
    const turn_attributes usual = own_turns();
    if (usual.length == 0)
        GTEST_SKIP() << "all turns have one length here";

    take_usual_turns();
    EXPECT_EQ(usual, own_turns()) << "before";

    for (int i = 0; i < 2; i++) {
        take_short_turns();
        const turn_attributes shorter = own_turns();
        EXPECT_LT(shorter.length, usual.length);
        EXPECT_EQ(usual.niceness, shorter.niceness);
        EXPECT_EQ(usual, turns_of_a_child());
    }

    take_usual_turns();
    EXPECT_EQ(usual, own_turns()) << "afterwards";
    EXPECT_EQ(usual, turns_of_a_child());
}

TEST(short_turns_test, are_the_threads_own_and_not_those_of_what_it_starts)
{
    in_a_thread(as_it_is, check_turns);
}

TEST(short_turns_test, leave_niceness_as_it_is)
{
    in_a_thread(nicer, check_turns);
}

TEST(short_turns_test, are_not_for_threads_with_something_to_lose)
{
    for (bool (*const prepared)() : {less_nice, before_all_others, behind_all_others})
        in_a_thread(prepared, [] {
            const turn_attributes before = own_turns();
            take_short_turns();
            EXPECT_EQ(before, own_turns());
            EXPECT_EQ(before, turns_of_a_child());
        });
}

} // namespace
