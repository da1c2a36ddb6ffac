#include "support/broken_command.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>
#include <utility>

namespace {

std::string broken;
std::function<bool()> is_broken;
std::vector<std::string> started;

} // namespace

extern "C" {

int __real_posix_spawn(pid_t *child, const char *program, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const arguments[],
                       char *const environment[]);

// A shell's arguments are "sh", "-c" and the command.
int __wrap_posix_spawn(pid_t *child, const char *program, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const arguments[],
                       char *const environment[])
{
    if (strcmp(program, "/bin/sh") == 0) {
        if (broken == arguments[2] && (!is_broken || is_broken()))
            return EAGAIN;
        started.emplace_back(arguments[2]);
    }
    return __real_posix_spawn(child, program, actions, attributes, arguments, environment);
}
}

broken_command::broken_command(const std::string &command, std::function<bool()> condition)
{
    broken = command;
    is_broken = std::move(condition);
}

broken_command::~broken_command()
{
    broken.clear();
}

std::vector<std::string> take_started_commands()
{
    return std::exchange(started, {});
}
