// How large the daemon's program is without symbols: as it is released, and as small as it can be built.
#include "measure.h"

#include "tools/programs.h"

#include <filesystem>
#include <stdexcept>

namespace {

spread kilobytes_of(const std::string &program)
{
    const std::string stripped = std::string(bench_directory) + "/stripped";
    if (run_silently({"strip", "-o", stripped, program}) != 0)
        throw std::runtime_error("strip fails for " + program);
    const double kilobytes = static_cast<double>(std::filesystem::file_size(stripped)) / 1000;
    return {kilobytes, kilobytes, kilobytes};
}

} // namespace

void measure_size(ground &, const effort &effort, figures &out)
{
    constexpr double most = 96;
    constexpr char beside[] = "kB, with the bus and configuration libraries beside it";
    constexpr char beside_mxuci[] = "kB, with a platform's own mxuci library, too";
    out.push_back(
        {"stripped program", -1, beside, kilobytes_of(KORVEL_BENCH_PROGRAMS "/korvel-small"), std::nullopt});
    if (effort.smallest.empty())
        return;
    out.push_back({"stripped program, smallest build", -1, beside,
                   kilobytes_of(effort.smallest + "/korvel-small"), std::nullopt});
    out.push_back({"stripped program, smallest build", -1, beside_mxuci,
                   kilobytes_of(effort.smallest + "/korvel-small-beside-mxuci"), most});
}
