// The object `boardinfo`: its method `all` replies with what is in /gateway/boardinfo.json at that moment.
// Without the file there is no such object.
#pragma once

#include "netd/bus_headers.h"

class board_object {
public:
    explicit board_object(ubus_context *bus) : bus_(bus) {}

    // Puts the object on the bus or takes it off, as the file is there or not.
    void follow_file();

private:
    ubus_context *bus_;
    bool offered_ = false;
};
