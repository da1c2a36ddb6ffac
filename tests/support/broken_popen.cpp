#include "support/broken_popen.h"

#include <cerrno>
#include <cstdio>

namespace {

std::string broken_command;

} // namespace

extern "C" {

FILE *__real_popen(const char *command, const char *mode);

FILE *__wrap_popen(const char *command, const char *mode)
{
    if (broken_command != command)
        return __real_popen(command, mode);
    errno = EMFILE;
    return nullptr;
}
}

broken_popen::broken_popen(const std::string &command)
{
    broken_command = command;
}

broken_popen::~broken_popen()
{
    broken_command.clear();
}
