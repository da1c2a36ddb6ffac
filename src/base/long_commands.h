// Commands that take longer than they should: what hangs is named in the log, and left to run.
#pragma once

#include <cstdint>

// Has a command watched for its own lifetime. Any thread. Logs its end when it was logged that it runs.
class watched_command {
public:
    explicit watched_command(const char *command);
    ~watched_command();
    watched_command(const watched_command &) = delete;
    watched_command &operator=(const watched_command &) = delete;

private:
    struct command_watch *watch_;
};

// After so many milliseconds a command is logged; then after twice the time, and so on.
inline constexpr unsigned long_command_milliseconds = 30000;

// Logs the commands that have run for long, each when its time has come. Returns in how many milliseconds to
// call again at the latest. Any thread.
int log_long_commands();
