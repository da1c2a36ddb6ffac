// A thread for work that waits: for children, for files. It does one piece of work at a time.
//
// All functions are for the thread that started it.
#pragma once

#include <atomic>
#include <ctime>
#include <semaphore.h>

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

    sem_t news_ = {};                 // by start(); counts what is to be begun
    work_function work_ = nullptr;    // what that is; the thread's own from then on
    void *argument_ = nullptr;        // the same
    std::atomic<bool> ended_ = false; // and it is nobody's until take()
    int bell_ = -1;
    void *given_ = nullptr;
};

// Rings a bell: adds 1 to an eventfd. Any thread.
void ring(int bell);
