#include "platform/support/private_mounts.h"

#include "root/namespaces.h"

#include <cerrno>
#include <filesystem>
#include <sched.h>
#include <system_error>

bool enter_private_mounts()
{
    try {
        const auto directory = std::filesystem::current_path();
        (void)enter_namespaces(CLONE_NEWNS);
        separate_mounts();
        std::filesystem::current_path(directory);
        return true;
    } catch (const std::system_error &failure) {
        errno = failure.code().value();
        return false;
    }
}
