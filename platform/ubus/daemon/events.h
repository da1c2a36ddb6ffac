// The event object: clients register their objects for event patterns and send events; the bus announces
// objects.
#pragma once

#include "access.h"
#include "registry.h"
#include "request.h"

namespace ubusd {

class events {
public:
    events(const registry &objects, const access_rules &access) : objects_(objects), access_(access) {}

    // Answers a call of the event object.
    int handle(const request &request);
    // Tells everybody who listens, the owner included, that an object with a path came or goes.
    void announce(const char *event, const object &subject);
    // Forgets what a vanishing object listens to.
    void forget(object &gone);

private:
    int add_pattern(const request &request);
    int send(const request &request);
    void deliver(const char *event, std::span<const uint8_t> data, const client *except);

    const registry &objects_;
    const access_rules &access_;
    std::vector<object *> listeners_; // objects with patterns, in order of their first one
    uint16_t sequence_ = 0;
};

} // namespace ubusd
