#include "base/stop_signals.h"

#include <atomic>
#include <cstdlib>
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
constinit std::atomic<int> holds = 0;
constinit std::atomic<bool> stop_wanted = false;

} // namespace

stop_hold::stop_hold()
{
    int present = holds;
    do {
        while (present == stopping) // another thread is ending the process
            (void)pause();
    } while (!holds.compare_exchange_weak(present, present + 1));
}

stop_hold::~stop_hold()
{
    if (holds.fetch_sub(1) == 1 && stop_wanted)
        stop_process();
}

void stop_process()
{
    stop_wanted = true;
    int nobody = 0;
    if (holds.compare_exchange_strong(nobody, stopping))
        exit(0);
}
