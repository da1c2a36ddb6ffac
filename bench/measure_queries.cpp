// Queries and refusals, compared with a program that runs the same commands one after the other and judges
// nothing.
#include "measure.h"

#include "tools/programs.h"

#include <stdexcept>

namespace {

constexpr int gets_per_round = 20;

std::string wan_argument(int index)
{
    return "{\"wanId\":" + std::to_string(wan_id_of(index)) + "}";
}

// What a query of WANs takes in any case.
std::vector<std::string> plan_of(int first, int count)
{
    std::vector<std::string> plan = {"load network"};
    for (int index = first; index < first + count; index++)
        for (const std::string &command : status_commands(index))
            plan.push_back("ask " + command);
    return plan;
}

comparison compare_query(ground &gateway, int rounds, const char *method, const std::string &arguments,
                         const std::vector<std::string> &plan)
{
    gateway.plan(plan);
    comparison result;
    for (int round = 0; round < rounds; round++)
        result.measure(
            [&] { return time_of([&] { gateway.client().must_call("korvel", method, arguments); }); },
            [&] { return time_of([&] { gateway.client().must_call("bare", "go"); }); });
    return result;
}

void measure_gets(ground &gateway, int rounds, int wans, figures &out)
{
    constexpr double most_alone = 1.05, most_of_two = 0.7;
    for (int index = 0; index < static_cast<int>(wan_kinds.size()); index++) {
        const bool asks_twice = status_commands(index).size() == 2;
        const comparison result =
            compare_query(gateway, gets_per_round * rounds, "get", wan_argument(index), plan_of(index, 1));
        out.push_back({std::string("get, ") + wan_kind_of(index).name, wans, "load and popen, one by one",
                       result.ratio(), asks_twice ? most_of_two : most_alone});
    }
}

void measure_all(ground &gateway, int rounds, int wans, figures &out)
{
    constexpr double most = 0.6;
    constexpr int wans_that_count = 32;
    const comparison result = compare_query(gateway, rounds, "all", "{}", plan_of(0, wans));
    out.push_back({"all", wans, "load and popen, one by one", result.ratio(),
                   wans < wans_that_count ? std::nullopt : std::optional(most)});
}

constexpr char refused[] = R"({"wanMode":1,"mtu":1})";

double time_of_refusals(ground &gateway, const char *object, const char *method)
{
    constexpr int calls = 200;
    return time_of([&] {
        for (int i = 0; i < calls; i++)
            (void)gateway.client().call(object, method, refused);
    });
}

double time_of_refusals_by_tool(const char *object, const char *method)
{
    return time_of([&] {
        constexpr int calls = 3;
        for (int i = 0; i < calls; i++)
            (void)run_silently({"ubus", "call", object, method, refused});
    });
}

// Which processor a program comes to wait on, and so how soon it wakes, is settled early and then stays. A
// round is to be one more throw of that.
void start_anew(ground &gateway)
{
    gateway.stop_daemon();
    gateway.stop_bare();
    gateway.start_daemon();
    gateway.start_bare();
}

// A refusal has to be told, which an empty method does not: a message more for the bus and for the client.
void measure_refusal(ground &gateway, int rounds, figures &out)
{
    const struct {
        const char *method, *text;
        std::optional<double> most;
    } rows[] = {{"empty", "an empty method of a bare object", 1.2},
                {"refuse", "a method of a bare object with the same reply", std::nullopt}};
    for (const auto &row : rows) {
        comparison result;
        for (int round = 0; round < rounds; round++) {
            start_anew(gateway);
            result.measure([&] { return time_of_refusals(gateway, "korvel", "add"); },
                           [&] { return time_of_refusals(gateway, "bare", row.method); });
        }
        out.push_back({"invalid request", -1, row.text, result.ratio(), row.most});
    }
    comparison by_tool;
    for (int round = 0; round < rounds; round++)
        by_tool.measure([] { return time_of_refusals_by_tool("korvel", "add"); },
                        [] { return time_of_refusals_by_tool("bare", "empty"); });
    out.push_back({"invalid request by the bus tool", -1, rows[0].text, by_tool.ratio(), rows[0].most});
}

} // namespace

void measure_queries(ground &gateway, const effort &effort, figures &out)
{
    gateway.stop_daemon();
    for (const int wans : gateway.sizes()) {
        gateway.bring_up(wans);
        gateway.start_daemon();
        gateway.start_bare();
        measure_gets(gateway, effort.rounds, wans, out);
        measure_all(gateway, effort.rounds, wans, out);
        gateway.stop_daemon();
    }
    gateway.start_daemon();
    measure_refusal(gateway, effort.rounds, out);
}
