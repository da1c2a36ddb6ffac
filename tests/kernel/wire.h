// A network device on which a test puts frames and sees those that come out.
#pragma once

#include "kernel/frames.h"

class wire {
public:
    // A device of a network, which is a namespace of iproute2; "" is the gateway's own. Throws
    // std::runtime_error when it is not there.
    wire(const std::string &network, const std::string &device);
    ~wire();
    wire(const wire &) = delete;
    wire &operator=(const wire &) = delete;

    const mac_address &address() const { return address_; }

    // Sends it out of the device.
    void send(const frame &bytes) const;

    // Forgets what has come in so far.
    void forget();
    // The first frame with that text that has come in since; nullptr when there is none.
    const frame *got(const std::string &text) { return find(text, false); }
    // The same for frames that came with an 802.1Q tag: they are not this device's, but of a VLAN on it.
    const frame *passed_on(const std::string &text) { return find(text, true); }

private:
    struct arrival {
        frame bytes;
        bool tagged;
    };
    void take_arrivals();
    bool take_arrival();
    const frame *find(const std::string &text, bool tagged);

    std::string device_;
    int socket_;
    mac_address address_{};
    std::vector<arrival> arrivals_;
};

// Keeps the calling thread on one processor. Frames sent in a row then come out in their order, whatever way
// they go: each is passed on by the processor that sent it, one after the other.
class on_one_processor {
public:
    on_one_processor();
    ~on_one_processor();
    on_one_processor(const on_one_processor &) = delete;
    on_one_processor &operator=(const on_one_processor &) = delete;
};
