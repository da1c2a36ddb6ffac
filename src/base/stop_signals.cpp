#include "base/stop_signals.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <pthread.h>
#include <unistd.h>

stop_signal_mask::stop_signal_mask(action wanted)
{
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGHUP);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    pthread_sigmask(wanted == block ? SIG_BLOCK : SIG_UNBLOCK, &stop, &before_);
}

stop_signal_mask::~stop_signal_mask()
{
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

namespace {

// How many stop_holds there are; `stopping` when the process is ending and there will be no more.
constexpr int stopping = -1;
constexpr int ending = -2; // the same, but that a stop may still end it sooner
constinit std::atomic<int> holds = 0;
constinit std::atomic<bool> stop_wanted = false;

} // namespace

stop_hold::stop_hold()
{
    for (;;) {
        int present = holds;
        if (present < 0)
            (void)pause(); // another thread is ending the process
        else if (holds.compare_exchange_weak(present, present + 1))
            return;
    }
}

stop_hold::~stop_hold()
{
    if (holds.fetch_sub(1) == 1 && stop_wanted)
        stop_process();
}

void stop_hold_end()
{
    constexpr timespec pause_time = {0, 1000000};
    for (int present = 0; !holds.compare_exchange_strong(present, ending) && present > 0; present = 0)
        (void)nanosleep(&pause_time, nullptr);
}

void stop_process()
{
    stop_wanted = true;
    int present = 0;
    if (holds.compare_exchange_strong(present, stopping) || present == ending)
        exit(0);
}
