#include "base/lock.h"

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
