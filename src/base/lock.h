// A mutex that needs no C++ run-time library, and its guard.
#pragma once

#include <pthread.h>

struct mutex {
    pthread_mutex_t handle = PTHREAD_MUTEX_INITIALIZER;
};

// Holds a mutex for its own lifetime; the mutex is not recursive.
class scoped_lock {
public:
    explicit scoped_lock(mutex &target) : target_(target) { pthread_mutex_lock(&target_.handle); }
    ~scoped_lock() { pthread_mutex_unlock(&target_.handle); }
    scoped_lock(const scoped_lock &) = delete;
    scoped_lock &operator=(const scoped_lock &) = delete;

private:
    mutex &target_;
};
