// Mutexes that need no C++ run-time library, and their guard.
#pragma once

#include <pthread.h>

struct mutex {
    pthread_mutex_t handle = PTHREAD_MUTEX_INITIALIZER;

    void lock() { pthread_mutex_lock(&handle); }
    void unlock() { pthread_mutex_unlock(&handle); }
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
