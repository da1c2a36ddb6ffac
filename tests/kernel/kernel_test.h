// What the tests in the virtual machine share: a gateway as the package makes it, with its neighbours. To
// start one takes long there, so a test uses the one that is there as far as its WANs are those that it
// wants.
#pragma once

#include "kernel/neighbourhood.h"
#include "support/gateway.h"

#include <vector>

class kernel_test : public testing::Test {
protected:
    ~kernel_test() override;

    // A gateway with exactly these WANs, with the identifiers 1, 2, … unless `above` is their predecessor:
    // one that is there with all or the first of them, or a new one. Everything runs, and all is quiet.
    void given(const std::vector<wan_config> &wans, unsigned above = 0);
    // To be called by a test that does not leave the WANs, their rules or the network as they were.
    static void spoil();
    // A gateway with four LAN ports and the package, after its first boot. Nothing runs.
    static void make_gateway();
    // Starts the bus, the network daemon and the daemon's service.
    static void start();

    // Waits until the daemon serves and all is quiet.
    static void await_service();
    // Waits until the network daemon has nothing pending, no hotplug script runs and no rules are being
    // applied.
    static void settle();

    // Each ends when all is quiet, and fails the test when it is refused. add() returns the WAN's identifier.
    static unsigned add(const wan_config &wan);
    static void modify(const wan_config &wan);
    static void del(unsigned id);

    // Runs a program that has to succeed.
    static void run(const program_arguments &words);
    // Tells the hotplug scripts of an event.
    static void tell(const std::string &action, const std::string &interface, const std::string &device = {});

    static ::gateway &router();
    static neighbourhood &neighbours();
};
