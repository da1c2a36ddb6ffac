// Shell commands: which are started, and one when no process can be. A program that uses this links
// korvel_broken_command.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The command that cannot be started as long as this lives and the condition, when there is one, holds; every
// other command starts as usual.
class broken_command {
public:
    explicit broken_command(const std::string &command, std::function<bool()> condition = {});
    ~broken_command();
    broken_command(const broken_command &) = delete;
    broken_command &operator=(const broken_command &) = delete;
};

// The commands that were started since the last call, in order.
std::vector<std::string> take_started_commands();
