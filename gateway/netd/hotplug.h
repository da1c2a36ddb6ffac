// Telling the hotplug scripts about interfaces, one event after the other, as the network daemon does. While
// scripts run, at most one event of each interface waits, the newest: a storm of changes comes through as few
// events, of which the last tells how it ended.
#pragma once

#include "netd/loop.h"

#include <deque>
#include <functional>
#include <string>

class hotplug_queue {
public:
    // `idle` is called whenever the last event has been dealt with.
    explicit hotplug_queue(std::function<void()> idle);

    // Has `hotplug-call iface` run with ACTION, INTERFACE and, unless it is empty, DEVICE, once the events
    // before it are through.
    void add(const std::string &action, const std::string &interface, const std::string &device);
    bool empty() const { return waiting_.empty() && !caller_.running(); }

private:
    struct event {
        std::string action, interface, device;
    };
    void next();

    std::deque<event> waiting_;
    child caller_;
    std::function<void()> idle_;
};
