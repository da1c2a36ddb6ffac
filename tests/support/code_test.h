// Base of tests that call the daemon's code inside the test program: its process-wide settings are those of a
// daemon that has just started on the gateway as shipped.
#pragma once

#include "support/gateway.h"

class code_test : public gateway_test {
protected:
    code_test();

    // Puts everything back to where a test begins, for the next row of a case table.
    void start_over();
    // Takes up the configuration's settings again, as a restart of the daemon would. Throws
    // std::runtime_error when the daemon would not start.
    static void load_settings();
    // Stores the uplink's name and takes it up.
    void set_uplink(const std::string &name);
    // Stores the identifiers in use, in this order; maxWanId is raised to the highest.
    void set_ids(std::initializer_list<unsigned> ids);
};
