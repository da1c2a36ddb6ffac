// The same work by a shell script: both are programs that somebody starts, so the daemon is asked through the
// bus tool.
#include "measure.h"

#include "tools/programs.h"

#include <stdexcept>

namespace {

constexpr int wans = 32;
constexpr int vid = 4000;

double time_of_program(const command_words &words)
{
    int status = 0;
    const double time = time_of([&] { status = run_silently(words); });
    if (status != 0)
        throw std::runtime_error(command_line(words) + ": status " + std::to_string(status));
    return time;
}

// What was added is taken away again, by laying down everything anew.
double time_of_add(ground &gateway, const command_words &words)
{
    gateway.lay_down(wans);
    const double time = time_of_program(words);
    if (listed_ids().size() != wans + 1)
        throw std::runtime_error(command_line(words) + " does not add a WAN");
    return time;
}

} // namespace

void measure_script(ground &gateway, const effort &effort, figures &out)
{
    constexpr double most_of_add = 1, most_of_get = 0.25;
    const std::string script = KORVEL_BENCH_DIRECTORY "/integrator.sh";
    const std::string id = std::to_string(wan_id_of(0));
    gateway.stop_daemon();
    gateway.bring_up(wans);
    gateway.start_daemon();

    comparison add, get;
    for (int round = 0; round < effort.rounds; round++) {
        add.measure(
            [&] {
                return time_of_add(gateway,
                                   {"ubus", "call", "korvel", "add", wan_request(wan_kinds[0], vid)});
            },
            [&] {
                return time_of_add(gateway, {"sh", script, "add", std::to_string(vid)});
            });
        get.measure(
            [&] {
                return time_of_program({"ubus", "call", "korvel", "get", "{\"wanId\":" + id + "}"});
            },
            [&] {
                return time_of_program({"sh", script, "get", id});
            });
    }
    gateway.stop_daemon();
    out.push_back({"add by the bus tool", wans, "a shell script", add.ratio(), most_of_add});
    out.push_back({"get by the bus tool", wans, "a shell script", get.ratio(), most_of_get});
}
