// A program that the launcher starts and that runs as long as the gateway does.
#pragma once

#include "tools/journal.h"

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>

inline constexpr std::chrono::seconds serving_deadline{15};

class launched_program {
public:
    // Starts words[0]; what it prints goes to /gateway/<name>.out, a program's name with directories left
    // out. Returns when `serves` holds, which is asked every few milliseconds. Throws std::runtime_error with
    // what the program has printed when it ends before that or does not serve within serving_deadline.
    launched_program(const command_words &words, const std::function<bool()> &serves);
    // Sends SIGTERM and waits; SIGKILL follows when that takes too long.
    ~launched_program();
    launched_program(const launched_program &) = delete;
    launched_program &operator=(const launched_program &) = delete;

private:
    [[noreturn]] void fail(const std::string &what);
    bool has_ended();

    const std::string name_;
    const std::string output_path_;
    pid_t child_ = 0; // 0: none, or its end has been collected
};
