// What tests of the running daemon share: its replies, services that take their time, changes that were
// applied, and whether what a killed daemon leaves behind is whole.
#pragma once

#include "support/gateway.h"

#include <string>

// The reply of an operation as a bus client gets it: "status", then "info".
bus_reply result_reply(int bus_status, int status, const std::string &info);

// A system service that notes its call and then does not return before it is let go. The shipped script is
// back when the object goes.
class held_service {
public:
    held_service(gateway &router, const std::string &name);
    ~held_service();
    held_service(const held_service &) = delete;
    held_service &operator=(const held_service &) = delete;

    // Whether a caller waits in the service, at the latest at the deadline.
    bool entered(std::chrono::milliseconds deadline = default_deadline) const;
    // Lets go of the caller, and of every later one.
    void let_go();

private:
    gateway &router_;
    std::string path_;
    std::string shipped_;
};

class daemon_test : public gateway_test {
protected:
    // Makes the services' scripts do nothing at all, for tests of many operations.
    void silence_services();

    // Each modification that was applied, as the hotplug system was told of it: "wan_1", in order.
    text_lines applied_updates() const;
    // Waits until that many modifications were applied to this WAN.
    bool updates_reach(unsigned wan_id, size_t count,
                       std::chrono::milliseconds deadline = default_deadline) const;

    // How many modifications wait or are being applied.
    size_t waiting_changes() const;

    // Adds a failure for each configuration that cannot be read, each script without its last line, and each
    // file that does not belong where it is.
    void expect_whole_files() const;
};

// Whether the gateway's stored configurations can all be parsed: the names of those that cannot.
text_lines unreadable_configurations();
