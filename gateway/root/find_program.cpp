// Finding the programs of the machine.
#include "root/find_program.h"

#include <cstdlib>
#include <sstream>
#include <unistd.h>

std::string find_program(const std::string &name)
{
    const char *const path = getenv("PATH");
    // An ordinary user's PATH has no sbin on many machines.
    std::istringstream directories(std::string(path ? path : "") +
                                   ":/usr/local/sbin:/usr/sbin:/usr/bin:/sbin:/bin");
    for (std::string directory; std::getline(directories, directory, ':');) {
        const std::string candidate = directory + "/" + name;
        if (!directory.empty() && directory != gateway_bin && access(candidate.c_str(), X_OK) == 0)
            return candidate;
    }
    return {};
}
