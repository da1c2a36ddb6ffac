// Start-up: from the start of the process to its object on the bus.
#include "measure.h"

#include <algorithm>

namespace {

constexpr double most = 2;

// Until the object is there, seen by asking over and over; that costs both sides the same.
double time_until_served(ground &gateway, const std::vector<std::string> &words, const char *object)
{
    process program;
    const double time = time_of([&] {
        program = gateway.start(words);
        while (!gateway.client().has(object))
            continue;
    });
    program.end();
    gateway.client().await(object, false);
    return time;
}

} // namespace

void measure_start(ground &gateway, const effort &effort, figures &out)
{
    gateway.stop_daemon();
    gateway.stop_bare();
    for (const int wans : {0, 32, 250}) {
        if (wans != 0 && std::ranges::find(gateway.sizes(), wans) == gateway.sizes().end())
            continue;
        gateway.lay_down(wans);
        comparison result;
        for (int round = 0; round < effort.rounds; round++)
            result.measure(
                [&] {
                    return time_until_served(gateway, {"korvel", "-d"}, "korvel");
                },
                [&] {
                    return time_until_served(gateway, {gateway.bare_program(), "network"}, "bare");
                });
        out.push_back(
            {"start-up", wans, "a client that loads network, connects and registers", result.ratio(), most});
    }
}
