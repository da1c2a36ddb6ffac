// The event loop's timers and children, with an action each.
#pragma once

#include "netd/bus_headers.h"

#include <functional>
#include <string>
#include <vector>

// Runs its action once, some time after each start. The action may destroy the timer. One thread, as all of
// the loop.
class timer {
public:
    explicit timer(std::function<void()> action);
    ~timer();
    timer(const timer &) = delete;
    timer &operator=(const timer &) = delete;

    void start(int milliseconds); // again: counts from now
    void stop();
    bool running() const { return state_.pending; }

private:
    struct loop_timer : uloop_timeout {
        timer *owner;
    };
    static void fire(uloop_timeout *state);

    loop_timer state_{};
    std::function<void()> action_;
};

// A program that runs beside the loop, which reaps it and then runs the action with its wait status.
class child {
public:
    explicit child(std::function<void(int)> ended);
    ~child();
    child(const child &) = delete;
    child &operator=(const child &) = delete;

    // Starts a program, found on PATH, with the variables added to the environment. False when that failed;
    // the reason is on standard error. Not while it runs.
    bool start(const std::vector<std::string> &words, const std::vector<std::string> &variables);
    bool running() const { return state_.pending; }

private:
    struct loop_process : uloop_process {
        child *owner;
    };
    static void reap(uloop_process *state, int wait_status);

    loop_process state_{};
    std::function<void(int)> ended_;
};

// Runs its action whenever this process gets the signal, from the loop. At most one at a time.
class signal_source {
public:
    signal_source(int signal_number, std::function<void()> action);
    ~signal_source();
    signal_source(const signal_source &) = delete;
    signal_source &operator=(const signal_source &) = delete;

private:
    struct loop_descriptor : uloop_fd {
        signal_source *owner;
    };
    static void arrived(uloop_fd *state, unsigned events);

    loop_descriptor state_{};
    int writer_ = -1;
    std::function<void()> action_;
};
