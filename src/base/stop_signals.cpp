#include "base/stop_signals.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constinit int signal_pipe[2] = {-1, -1};

// Runs on any thread, in the middle of anything.
void note_signal(int number)
{
    const int interrupted = errno;
    const uint8_t byte = static_cast<uint8_t>(number);
    (void)!write(signal_pipe[1], &byte, 1); // a pipe that is full rings already
    errno = interrupted;
}

// How many stop_holds and stop_delays there are, and how many of them are delays. `ending`: the process ends,
// and there will be no more.
constexpr int ending = -1;
constinit std::atomic<int> holds = 0;
constinit std::atomic<int> delays = 0;
constinit std::atomic<bool> asked_for = false;

} // namespace

int stop_signals_catch()
{
    if (signal_pipe[0] < 0 && pipe2(signal_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return -1;
    for (const int number : {SIGHUP, SIGINT, SIGTERM})
        (void)signal(number, note_signal);
    return signal_pipe[0];
}

int stop_signal_take()
{
    uint8_t number = 0;
    return read(signal_pipe[0], &number, 1) == 1 ? number : 0;
}

stop_hold::stop_hold()
{
    for (int present = holds;;) {
        if (present == ending)
            (void)pause(); // another thread is ending the process
        else if (holds.compare_exchange_weak(present, present + 1))
            return;
    }
}

stop_hold::~stop_hold()
{
    holds--;
}

stop_delay::stop_delay()
{
    delays++;
}

stop_delay::~stop_delay()
{
    delays--;
}

void stop_point()
{
    while (asked_for)
        (void)pause();
}

void stop_wait_for_holds()
{
    asked_for = true;
    constexpr timespec pause_time = {0, 1000000};
    unsigned passed = 0;
    for (int none = 0; !holds.compare_exchange_strong(none, ending); none = 0) {
        if (passed++ >= stop_delay::most_milliseconds && holds == delays)
            return;
        (void)nanosleep(&pause_time, nullptr);
    }
}
