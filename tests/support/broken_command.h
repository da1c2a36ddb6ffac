// A shell command when no process can be started. A program that uses this links korvel_broken_command.
#pragma once

#include <string>

// The command that cannot be started as long as this lives; every other command starts as usual.
class broken_command {
public:
    explicit broken_command(const std::string &command);
    ~broken_command();
    broken_command(const broken_command &) = delete;
    broken_command &operator=(const broken_command &) = delete;
};
