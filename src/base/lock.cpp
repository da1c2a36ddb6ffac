#include "base/lock.h"

#include <cerrno>
#include <ctime>

void fair_mutex::lock()
{
    const scoped_lock hold(counters_);
    const unsigned ticket = tickets_++;
    while (ticket != turn_)
        pthread_cond_wait(&next_turn_, &counters_.handle);
}

void fair_mutex::unlock()
{
    const scoped_lock hold(counters_);
    turn_++;
    pthread_cond_broadcast(&next_turn_);
}

bool timed_signal::open()
{
    pthread_condattr_t steady;
    if (pthread_condattr_init(&steady) != 0)
        return false;
    const bool opened =
        pthread_condattr_setclock(&steady, CLOCK_MONOTONIC) == 0 && pthread_cond_init(&handle_, &steady) == 0;
    (void)pthread_condattr_destroy(&steady);
    return opened;
}

bool timed_signal::wait_until(mutex &held, uint64_t milliseconds)
{
    const timespec end = {static_cast<time_t>(milliseconds / 1000),
                          static_cast<long>(milliseconds % 1000 * 1000000)};
    return pthread_cond_timedwait(&handle_, &held.handle, &end) != ETIMEDOUT;
}
