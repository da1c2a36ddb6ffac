// The daemon's sockets in the event loop: accepts clients and carries bytes between them and the bus.
#pragma once

#include "bus.h"
#include "unique_fd.h"

namespace ubusd {

// Makes a listening socket at a path, whatever was there before; everybody may connect. On failure the result
// is empty and errno tells why.
unique_fd listen_at(const char *path);

// One per process: the event loop's callbacks have no way to tell two apart.
class server {
public:
    // Accepts from a listening socket as soon as the event loop runs, and serves the clients.
    server(bus &bus, unique_fd listener);
    ~server();
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    // Serves a connected socket. One whose user the system does not know is closed.
    void adopt(unique_fd socket);

private:
    struct uloop_place {
        uloop_fd fd{};
        uloop_timeout retry{};
    };

    void accept_clients();
    void serve(client &served, unsigned events);
    bool read_some(client &sender);

    bus &bus_;
    unique_fd listener_;
    // Given up while a user is looked up, so that the user database can be opened even for the last client
    // that the system has a descriptor for.
    unique_fd spare_;
    uloop_place place_;
};

} // namespace ubusd
