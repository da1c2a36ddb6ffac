// The ground on which the daemon is tried: a private root with a bus and a board, where services and rules do
// nothing.
#pragma once

#include "faults/judgement.h"
#include "faults/short_memory.h"
#include "faults/watch.h"

#include <memory>

class ground {
public:
    static constexpr unsigned patience = 15; // seconds for what takes a fraction of one

    // Inside a private root, which it changes for good. Throws std::runtime_error when something does not
    // start.
    ground();
    ~ground();
    ground(const ground &) = delete;
    ground &operator=(const ground &) = delete;

    // Starts the bus with what is on it, unless it runs.
    void start_bus();
    // Ends the bus daemon as if something else did.
    void lose_bus();

    // Starts the daemon without letting it run yet.
    std::unique_ptr<traced_program> start_daemon(watch &watched);
    // Sends a request of a client's own; its program runs beside the daemon's.
    void start_client(const bus_request &request);
    // Ends the client and says what it has heard. A reply that was sent may still be on its way.
    heard_reply end_client(bool may_still_answer);
    // Whether the daemon waits for events, and nobody for it, or it has ended.
    bool finished(const traced_program &daemon) const
    {
        return daemon.ended() || (!client_ && daemon.idle());
    }
    // Starts the daemon once more, lets it come to rest without a fault and kills it. Returns what was wrong
    // with that.
    std::string restart();

    // The allocations of a daemon that was started short of memory.
    short_memory &memory() { return *memory_; }
    // The services that were told to reload since they were forgotten.
    std::vector<std::string> reloads() const;
    void forget_reloads();

private:
    short_memory *memory_;
    pid_t log_ = 0, bus_ = 0, board_ = 0, client_ = 0;
    int client_status_ = 0;
    bool bus_lost_ = false;
};
