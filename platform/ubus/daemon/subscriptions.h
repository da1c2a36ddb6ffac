// Subscriptions: objects that watch another object and get what its owner notifies them of.
#pragma once

#include "access.h"
#include "registry.h"
#include "request.h"

namespace ubusd {

class subscriptions {
public:
    subscriptions(const registry &objects, const access_rules &access) : objects_(objects), access_(access) {}

    int subscribe(const request &request);
    int unsubscribe(const request &request);
    // Answers the sender with the list of subscribers, unless it wants no reply. The subscribers are called
    // by the bus.
    void report_subscribers(const request &request, const object &subject) const;
    // Ends what a vanishing object watches and what watches it, and tells the other sides.
    void forget(object &gone);

private:
    struct edge {
        object *subscriber = nullptr;
        object *target = nullptr;
    };

    int find_edge(const request &request, edge &edge_out) const;
    static void end(object &subscriber, object &target);

    const registry &objects_;
    const access_rules &access_;
};

} // namespace ubusd
