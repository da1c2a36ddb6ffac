// A thread for work that waits: for children, for files. It does one piece of work at a time.
//
// All functions are for the thread that started it.
#pragma once

#include "base/lock.h"

#include <ctime>

class lane {
public:
    using work_function = void (*)(void *argument);

    // Starts the thread. `bell` is an eventfd that it rings when a piece of work has ended. Returns 0, or an
    // errno.
    int start(int bell);

    // Has a piece of work done, by a lane that is idle.
    void give(work_function work, void *argument);
    // What was given last, when it has ended and was not taken yet; null otherwise. Then the lane is idle.
    void *take();
    // What was given and not taken yet, null when the lane is idle.
    void *at_work() const { return given_; }
    bool is_idle() const { return !given_; }

private:
    int start_thread();
    static void *run(void *self);
    work_function next_work(time_t seconds);
    void serve();

    mutex lock_;                                     // the rest is under it, but for given_
    pthread_cond_t news_ = PTHREAD_COND_INITIALIZER; // anew by start(), with its clock
    work_function work_ = nullptr;                   // what is to be begun
    void *argument_ = nullptr;
    bool ended_ = false;
    int bell_ = -1;
    void *given_ = nullptr;
};

// Rings a bell: adds 1 to an eventfd. Any thread.
void ring(int bell);
