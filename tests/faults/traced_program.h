// A program that runs under this one's eyes: each call that it makes of the kernel is seen before it is made
// and may be refused, left out or made its last. Its children run free and unseen, its threads do not. One at
// a time, and all from one thread. For x86-64.
#pragma once

#include "faults/calls.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

// What becomes of a call.
struct fate {
    enum { make, refuse, leave_out, kill } what = make;
    int error = 0; // for `refuse`
};

class traced_program {
public:
    // Asked about each call; what it made of it is told afterwards (a negative result is an error's number).
    std::function<fate(const system_call &)> before_call;
    std::function<void(const system_call &, int64_t result)> after_call;
    // Asked about each child that it starts, when set: whether the child's program is to end at once with
    // status 1.
    std::function<bool()> child_fails;
    // Told of this process's other children that have ended.
    std::function<void(pid_t, int wait_status)> other_ended;

    // Starts words[0], found on PATH, stopped before its first call. Its output goes to the file.
    traced_program(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                   const std::string &output);
    ~traced_program(); // kills it
    traced_program(const traced_program &) = delete;
    traced_program &operator=(const traced_program &) = delete;

    // Lets it run until the condition holds, which is asked whenever something has happened. Returns whether
    // it did within the time. It goes on with the next run().
    bool run(const std::function<bool()> &until, unsigned seconds);
    // Lets it run until it waits for events or has ended, without a look at its calls, which takes most of
    // the time that a run takes. Returns whether it came to that within the time.
    bool run_unseen(unsigned seconds);
    void kill(int signal_number) const;

    pid_t pid() const { return pid_; }
    bool ended() const { return ended_; }
    int wait_status() const { return wait_status_; }
    // Whether its first thread waits for events, and the others to be given something to do.
    bool idle() const { return waiting_ && waits_for_events(); }

private:
    struct thread_state {
        bool in_call = false;
        system_call call;
        fate decided;
    };
    bool waits_for_events() const;
    void handle(pid_t thread, int status);
    void handle_stop(pid_t thread, int status);
    int handle_call(pid_t thread);
    void enter_call(thread_state &state, const system_call &call);
    void leave_call(thread_state &state, int64_t result);
    void handle_child(pid_t child);
    void go_on(pid_t thread, int signal_number) const;
    void end_thread(pid_t thread, int status);

    pid_t pid_ = 0;
    bool ended_ = false;
    bool waiting_ = false;
    bool children_traced_ = false;
    bool seen_ = true;
    int wait_status_ = 0;
    std::map<pid_t, thread_state> threads_;
    std::map<pid_t, bool> children_; // those held back, and whether they are to fail
};
