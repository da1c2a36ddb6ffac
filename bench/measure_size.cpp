// How large the daemon's program is without symbols.
#include "measure.h"

#include "tools/programs.h"

#include <filesystem>
#include <stdexcept>

void measure_size(ground &, const effort &, figures &out)
{
    constexpr double most = 96;
    const std::string stripped = std::string(bench_directory) + "/stripped";
    if (run_silently({"strip", "-o", stripped, KORVEL_SMALL_DAEMON}) != 0)
        throw std::runtime_error("strip fails");
    const double kilobytes = static_cast<double>(std::filesystem::file_size(stripped)) / 1000;
    out.push_back({"stripped program",
                   -1,
                   "kB, with the bus and configuration libraries beside it",
                   {kilobytes, kilobytes, kilobytes},
                   most});
}
