#include "base/clock.h"

#include <ctime>

namespace {

uint64_t milliseconds_of(clockid_t clock)
{
    timespec now = {};
    (void)clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

} // namespace

uint64_t steady_milliseconds()
{
    return milliseconds_of(CLOCK_MONOTONIC);
}

uint64_t wall_milliseconds()
{
    return milliseconds_of(CLOCK_REALTIME);
}
