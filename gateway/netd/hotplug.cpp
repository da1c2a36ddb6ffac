#include "netd/hotplug.h"

#include <cstdio>

hotplug_queue::hotplug_queue(std::function<void()> idle)
    : caller_([this](int wait_status) {
          if (wait_status)
              fprintf(stderr, "gateway-netd: hotplug-call: wait status 0x%x\n",
                      static_cast<unsigned>(wait_status));
          next();
      }),
      idle_(std::move(idle))
{}

void hotplug_queue::add(const std::string &action, const std::string &interface, const std::string &device)
{
    std::erase_if(waiting_, [&](const event &older) { return older.interface == interface; });
    waiting_.push_back({action, interface, device});
    if (!caller_.running())
        next();
}

void hotplug_queue::next()
{
    bool started = false;
    while (!started && !waiting_.empty()) {
        const event current = waiting_.front();
        waiting_.pop_front();
        std::vector<std::string> variables = {"ACTION=" + current.action, "INTERFACE=" + current.interface};
        if (!current.device.empty())
            variables.push_back("DEVICE=" + current.device);
        started = caller_.start({"hotplug-call", "iface"}, variables);
    }
    if (!started)
        idle_();
}
