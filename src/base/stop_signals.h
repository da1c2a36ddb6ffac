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
