#include "base/stop_signals.h"

#include <pthread.h>

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
