// Programs that a test starts: run to their end with what they print, or kept running beside the test.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

using program_environment = std::vector<std::pair<std::string, std::string>>;
using program_arguments = std::vector<std::string>;

// How long a test waits before something that should happen counts as not happening: longer than a busy
// machine leaves a program without its turn.
constexpr std::chrono::milliseconds default_deadline{30000};

// Calls the condition every few milliseconds until it holds. False when it still does not hold at the
// deadline.
bool wait_until(const std::function<bool()> &condition,
                std::chrono::milliseconds deadline = default_deadline);

struct program_result {
    int status; // exit status, or 128 + the signal that ended it
    std::string output;
    std::string errors;
};

// A program beside the test. Its destructor kills it.
class child_process {
public:
    child_process() = default;
    // Starts args[0], found on PATH, with the given variables added to the environment. Where a path is
    // given, standard output or standard error goes to that file, cut first; else it stays the test's own.
    // Throws std::runtime_error when it cannot be started.
    explicit child_process(const program_arguments &args, const program_environment &variables = {},
                           const std::string &output_path = {}, const std::string &errors_path = {});
    ~child_process() { stop_hard(); }
    child_process(child_process &&other) noexcept { swap(other); }
    child_process &operator=(child_process &&other) noexcept
    {
        swap(other);
        return *this;
    }

    // 0 when nothing was started or its end has been collected.
    pid_t pid() const { return pid_; }
    bool running();
    // Waits for its end and returns its status as program_result does. Throws std::runtime_error at the
    // deadline.
    int wait(std::chrono::milliseconds deadline = default_deadline);
    // Sends the signal, then waits.
    int stop(int signal_number, std::chrono::milliseconds deadline = default_deadline);

private:
    void swap(child_process &other) noexcept
    {
        std::swap(pid_, other.pid_);
        std::swap(status_, other.status_);
        std::swap(name_, other.name_);
    }
    void stop_hard();

    pid_t pid_ = 0;
    int status_ = 0;
    std::string name_;
};

// Runs a program to its end and returns what it printed. Throws std::runtime_error when it cannot be started
// or does not end in time. Any thread.
program_result run_program(const program_arguments &args, const program_environment &variables = {},
                           std::chrono::milliseconds deadline = std::chrono::seconds(60));
