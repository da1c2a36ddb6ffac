// How long one `get` takes while others keep the daemon busy, compared with one on an idle daemon.
#include "measure.h"

#include "root/find_program.h"
#include "tools/programs.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int wans = 32;
constexpr size_t samples = 200; // of each scenario, as far as there is time
constexpr double most_seconds = 40;
constexpr char reload[] = "/etc/init.d/network";
constexpr char asked_wan[] = R"({"wanId":1})"; // two status commands
constexpr unsigned moment = 300000;            // microseconds until something has surely begun

void write_script(const fs::path &path, const std::string &text)
{
    write_text(path, "#!/bin/sh\n" + text + "\n");
    fs::permissions(path, fs::perms(0755));
}

// The times that queries take, in order.
std::vector<double> sample(ground &gateway)
{
    constexpr unsigned pause = 5000; // microseconds, as between two looks of one client

    std::vector<double> times;
    double passed = 0;
    while (times.size() < samples && passed < most_seconds) {
        times.push_back(time_of([&] { (void)gateway.client().call("korvel", "get", asked_wan); }));
        passed += times.back();
        (void)usleep(pause);
    }
    std::ranges::sort(times);
    return times;
}

double at_share(const std::vector<double> &sorted, double share)
{
    return sorted[static_cast<size_t>(share * static_cast<double>(sorted.size() - 1))];
}

// A client that adds a WAN, whose first reload does what the script says.
class addition {
public:
    explicit addition(const std::string &script)
    {
        write_script(reload, "echo $$ > /tmp/reloading\n" + script);
        client_ = ground::start(
            {"ubus", "-t", "100", "call", "korvel", "add", wan_request(wan_kinds.back(), 4000)});
        (void)usleep(moment);
    }
    ~addition()
    {
        write_script(reload, "");
        (void)run_silently({"sh", "-c", "kill $(cat /tmp/reloading)"});
        (void)usleep(moment);
    }
    addition(const addition &) = delete;
    addition &operator=(const addition &) = delete;

private:
    process client_;
};

// Has the bus tool wait before it asks, as if the network daemon took so long.
class late_answers {
public:
    explicit late_answers(const std::string &wait)
    {
        fs::rename(tool_, kept_);
        write_script(tool_, wait + "\nexec " + kept_.string() + " \"$@\"");
    }
    ~late_answers() { fs::rename(kept_, tool_); }
    late_answers(const late_answers &) = delete;
    late_answers &operator=(const late_answers &) = delete;

private:
    const fs::path tool_ = fs::path(gateway_bin) / "ubus";
    const fs::path kept_ = fs::path(gateway_bin) / "ubus-at-once";
};

std::vector<double> beside_slow_addition(ground &gateway)
{
    const addition slow("exec sleep 5");
    return sample(gateway);
}

std::vector<double> beside_hanging_addition(ground &gateway)
{
    const addition hanging("exec sleep 1000");
    return sample(gateway);
}

std::vector<double> beside_queries_of_all(ground &gateway)
{
    std::vector<process> others(4);
    for (process &other : others)
        other = ground::start({"sh", "-c", "while ubus -S call korvel all; do :; done"});
    (void)usleep(moment);
    return sample(gateway);
}

std::vector<double> with_late_answers(ground &gateway, const char *wait)
{
    const late_answers late(wait);
    return sample(gateway);
}

void add_rows(const char *scenario, const std::vector<double> &times, double idle, figures &out)
{
    const struct {
        const char *name;
        double share;
    } rows[] = {{"median", 0.5}, {"99 of 100", 0.99}, {"worst", 1}};
    for (const auto &row : rows) {
        const double ratio = at_share(times, row.share) / idle;
        out.push_back({std::string("get, ") + scenario + ", " + row.name,
                       wans,
                       "the median of an idle daemon",
                       {ratio, ratio, ratio},
                       std::nullopt,
                       std::to_string(times.size()) + " calls"});
    }
}

} // namespace

void measure_latency(ground &gateway, const effort &, figures &out)
{
    gateway.stop_daemon();
    gateway.bring_up(wans);
    gateway.start_daemon();
    const std::vector<double> at_rest = sample(gateway);
    const double idle = at_share(at_rest, 0.5);
    add_rows("idle", at_rest, idle, out);
    add_rows("an addition with a reload of 5 s", beside_slow_addition(gateway), idle, out);
    add_rows("four clients ask for all", beside_queries_of_all(gateway), idle, out);
    add_rows("answers after 10 ms", with_late_answers(gateway, "sleep 0.01"), idle, out);
    add_rows("answers after 100 ms", with_late_answers(gateway, "sleep 0.1"), idle, out);
    add_rows("no answers", with_late_answers(gateway, "exec sleep 1000"), idle, out);
    add_rows("a reload that hangs", beside_hanging_addition(gateway), idle, out);
    gateway.stop_daemon();
}
