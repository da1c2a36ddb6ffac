// The daemon's private memory, idle and after many requests of all kinds.
#include "measure.h"

#include <cstring>

#include <stdexcept>

namespace {

constexpr int wans = 32;
constexpr int vid = 4000;

// What of a process no other shares, in MB of 1,000,000 bytes.
double private_megabytes(pid_t pid)
{
    double kilobytes = 0;
    const std::string text = file_text("/proc/" + std::to_string(pid) + "/smaps_rollup");
    for (const char *const name : {"Private_Clean:", "Private_Dirty:"}) {
        const size_t at = text.find(name);
        if (at == text.npos)
            throw std::runtime_error("cannot tell the memory of a process");
        kilobytes += std::stod(text.substr(at + strlen(name)));
    }
    return kilobytes * 1024 / 1e6;
}

// One of many requests: mostly queries, now and then a list of all, a refusal or a change.
void send_request(bus &client, int number)
{
    constexpr int cycle = 25;
    const std::string id = "{\"wanId\":" + std::to_string(wan_id_of(number % wans)) + "}";
    switch (number % cycle) {
    case 5:
        return client.must_call("korvel", "add", wan_request(wan_kind_of(number / cycle), vid));
    case 10:
        return client.must_call("korvel", "modify",
                                wan_request(wan_kind_of(number / cycle), vid + 1, listed_ids().back()));
    case 15:
        return client.must_call("korvel", "del", "{\"wanId\":" + std::to_string(listed_ids().back()) + "}");
    case 20:
        return number % (8 * cycle) < cycle ? client.must_call("korvel", "all")
                                            : client.must_call("korvel", "get", id);
    default:
        if (number % 5 == 1)
            return client.must_call("korvel", "get", id);
        (void)client.call("korvel", "add", R"({"wanMode":1,"mtu":1})");
    }
}

figure memory_figure(const std::string &name, double megabytes, double most)
{
    return {name, wans, "MB of private memory", {megabytes, megabytes, megabytes}, most};
}

} // namespace

void measure_memory(ground &gateway, const effort &effort, figures &out)
{
    constexpr double most_idle = 0.4, most_used = 1, most_growth = 1.05;
    constexpr int settled = 1000;
    gateway.stop_daemon();
    gateway.bring_up(wans);
    gateway.start_daemon();
    out.push_back(memory_figure("idle", private_megabytes(gateway.daemon()), most_idle));
    double first = 0;
    for (int number = 0; number < effort.requests; number++) {
        if (number == settled)
            first = private_megabytes(gateway.daemon());
        send_request(gateway.client(), number);
    }
    const double last = private_megabytes(gateway.daemon());
    if (first > 0)
        out.push_back(memory_figure("after " + std::to_string(settled) + " requests", first, most_used));
    out.push_back(memory_figure("after " + std::to_string(effort.requests) + " requests", last, most_used));
    if (first > 0)
        out.push_back({"memory after " + std::to_string(effort.requests) + " requests",
                       wans,
                       "after " + std::to_string(settled),
                       {last / first, last / first, last / first},
                       most_growth});
    gateway.stop_daemon();
}
