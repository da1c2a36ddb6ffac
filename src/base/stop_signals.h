// Keeps the stop signals away from code that must not be cut short.
//
// The stop handler logs and exits. Were it to run while its own thread is inside the allocator or the system
// log, it could wait for a lock that this very thread holds. So request handlers and workers run with the
// stop signals blocked, and let them in where the thread only waits for a child.
#pragma once

#include <csignal>

class stop_signal_mask {
public:
    enum action { block, admit };
    explicit stop_signal_mask(action wanted);
    ~stop_signal_mask();
    stop_signal_mask(const stop_signal_mask &) = delete;
    stop_signal_mask &operator=(const stop_signal_mask &) = delete;

private:
    sigset_t before_;
};

// Puts a stop off for its own lifetime: for work that would lose something if it were cut short half-way. Any
// thread.
class stop_hold {
public:
    stop_hold();
    ~stop_hold(); // ends the process when a stop came meanwhile and nobody else holds it off
    stop_hold(const stop_hold &) = delete;
    stop_hold &operator=(const stop_hold &) = delete;
};

// Waits until nobody holds a stop off. Whoever wants to do so afterwards waits for the end of the process,
// which must come next.
void stop_hold_end();

// Ends the process with status 0: at once, or with the last stop_hold. Safe in a signal handler.
void stop_process();
