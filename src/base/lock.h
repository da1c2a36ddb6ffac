// Mutexes that need no C++ run-time library, and their guard.
#pragma once

#include <pthread.h>

// For what is held for moments only.
struct mutex {
    pthread_mutex_t handle = PTHREAD_MUTEX_INITIALIZER;

    void lock() { pthread_mutex_lock(&handle); }
    void unlock() { pthread_mutex_unlock(&handle); }
};

// For what is held long: those who wait get it in the order in which they came, where an ordinary mutex gives
// it to any of them.
class fair_mutex {
public:
    void lock();
    void unlock();

private:
    mutex counters_;
    pthread_cond_t next_turn_ = PTHREAD_COND_INITIALIZER;
    unsigned tickets_ = 0; // handed out so far
    unsigned turn_ = 0;    // whose ticket it is
};

// Holds a mutex for its own lifetime; no mutex is recursive.
template <typename mutex_type> class scoped_lock {
public:
    explicit scoped_lock(mutex_type &target) : target_(target) { target_.lock(); }
    ~scoped_lock() { target_.unlock(); }
    scoped_lock(const scoped_lock &) = delete;
    scoped_lock &operator=(const scoped_lock &) = delete;

private:
    mutex_type &target_;
};
