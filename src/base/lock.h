// Mutexes that need no C++ run-time library, and their guard.
#pragma once

#include <cstdint>
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

// Something that a thread waits for with a mutex held, but not for ever.
class timed_signal {
public:
    // Before the first use, and after the last. False: the system has none.
    bool open();
    void close() { pthread_cond_destroy(&handle_); }

    void send() { pthread_cond_signal(&handle_); }
    // Waits, without the mutex, until it is sent or the clock of steady_milliseconds() shows that much.
    // False: the time is over. It may also return for no reason.
    bool wait_until(mutex &held, uint64_t milliseconds);

private:
    pthread_cond_t handle_;
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
