// The bus: takes the messages of all clients, answers those meant for itself and passes on the others.
#pragma once

#include <memory>
#include <span>
#include <unordered_map>

#include "access.h"
#include "client.h"
#include "events.h"
#include "frame.h"
#include "lookup.h"
#include "registry.h"
#include "request.h"
#include "subscriptions.h"
#include "unique_fd.h"

namespace ubusd {

class bus {
public:
    explicit bus(const access_rules &access) : access_(access) {}

    // Greets a new client. The socket must not block. The client lives until disconnect().
    client &connect(unique_fd socket, caller who);
    // Takes a client down with its objects; the reference is dead afterwards.
    void disconnect(client &gone);
    // Handles every message that is complete with these bytes. `fd` came with them; it belongs to the last
    // message that begins in them, since the kernel ends a read after the piece that carries a descriptor.
    // False if the client sent what can't be a message: it must be disconnected then.
    [[nodiscard]] bool receive(client &sender, std::span<uint8_t> bytes, unique_fd fd);
    // Sends more of what a client waits for.
    void flush(client &reader);

private:
    void handle(client &sender, const frame &message);
    int answer(const request &request);
    int ping(const request &request);
    int add_object(const request &request);
    int remove_object(const request &request);
    int invoke(const request &request);
    int notify(const request &request);
    int relay(const request &request);
    object_type *type_for(const request &request);
    void forward_call(const request &request, const object &callee, bool no_reply);
    void withdraw(object &gone);

    const access_rules &access_;
    std::unordered_map<uint32_t, std::unique_ptr<client>> clients_;
    registry objects_;
    lookups lookups_{objects_, access_};
    events events_{objects_, access_};
    subscriptions subscriptions_{objects_, access_};
};

} // namespace ubusd
