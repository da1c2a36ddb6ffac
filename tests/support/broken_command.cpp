#include "support/broken_command.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>

namespace {

std::string broken;

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
    if (strcmp(program, "/bin/sh") == 0 && broken == arguments[2])
        return EAGAIN;
    return __real_posix_spawn(child, program, actions, attributes, arguments, environment);
}
}

broken_command::broken_command(const std::string &command)
{
    broken = command;
}

broken_command::~broken_command()
{
    broken.clear();
}
