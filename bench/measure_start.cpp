// Start-up: from the start of the process to its object on the bus.
#include "measure.h"

#include <algorithm>

namespace {

constexpr double most = 2;

// What cannot be avoided before the object is there: the settings are in `network`, the board tells its ports
// by a command, and where WANs are listed, none of which has a multicast VLAN, the IGMP program is to forget
// what it was told. What the daemon runs beyond that counts against it, so this is not learnt from its calls.
std::string plan_of_start(int wans)
{
    return std::string("load network\nask ubus -S call boardinfo all\n") +
           (wans > 0 ? "run /userfs/bin/xponigmpcmd clearAll\n" : "");
}

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
        const std::string plan = std::string(bench_directory) + "/start-plan";
        write_text(plan, plan_of_start(wans));
        comparison result;
        for (int round = 0; round < effort.rounds; round++)
            result.measure(
                [&] {
                    return time_until_served(gateway, {"korvel", "-d"}, "korvel");
                },
                [&] {
                    return time_until_served(gateway, {gateway.bare_program(), plan}, "bare");
                });
        out.push_back({"start-up", wans,
                       "a client that loads network, runs the same commands, connects and registers",
                       result.ratio(), most});
    }
}
