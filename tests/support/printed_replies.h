// What `ubus -S call` prints, in tests that need no bus: a program in its place prints what the test lays
// down and keeps a list of what was asked.
#pragma once

#include "support/gateway.h"

class printed_replies {
public:
    // Every object answers with nothing and status 4, as one that is not on the bus.
    explicit printed_replies(gateway &gateway);

    // What a call of this object prints from now on, byte for byte.
    void set(const std::string &object, const std::string &text);
    // What a call of any other object prints.
    void set_default(const std::string &text);
    // The command lines so far, in order.
    text_lines asked() const;
    void forget_asked();

private:
    gateway &gateway_;
};
