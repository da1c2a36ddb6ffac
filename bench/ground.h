// The gateway that the daemon is measured on: bus, network daemon and board as in the virtual gateway;
// services and rules do nothing, and there are as many WANs as wanted.
#pragma once

#include "bus.h"

#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

// A kind of WAN.
struct wan_kind {
    const char *name;
    const char *arguments; // of `add`, without its VLAN
    // Behind "wan_<id>", of the interfaces whose status tells about it, in the order in which they are asked.
    std::vector<const char *> suffixes;
};
extern const std::vector<wan_kind> wan_kinds; // WANs are of these in turn, bridged ones while there are ports
inline constexpr size_t bridged_kind = 3;

// A process that is killed at the end.
class process {
public:
    process() = default;
    explicit process(pid_t pid) : pid_(pid) {}
    process(process &&other) noexcept { std::swap(pid_, other.pid_); }
    process &operator=(process &&other) noexcept
    {
        std::swap(pid_, other.pid_);
        return *this;
    }
    ~process() { end(); }
    void end();
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = 0;
};

class ground {
public:
    // Inside a private root, which it changes for good. Has the daemon itself add the WANs, as many as the
    // greatest size. `daemon`: the program, by its path or to be found. Throws std::runtime_error when
    // something does not start or fails.
    ground(const std::vector<int> &sizes, const std::string &daemon);
    ground(const ground &) = delete;
    ground &operator=(const ground &) = delete;

    const std::vector<int> &sizes() const { return sizes_; }

    // Lays down the configuration and the scripts of a gateway with so many WANs.
    void lay_down(int wans) const;
    // The same, and the network daemon brings them up.
    void bring_up(int wans);

    // Starts the daemon, unless it runs, and waits until it serves.
    void start_daemon();
    // Starts it anew with its calls being written to a file.
    void start_watched_daemon(const std::string &calls_path);
    void stop_daemon();
    pid_t daemon() const { return daemon_.pid(); }

    // Starts what the daemon is compared with, unless it runs.
    void start_bare();
    void stop_bare();
    static const char *bare_program();
    // Has it take up the lines of a plan.
    void plan(const std::vector<std::string> &lines);

    bus &client() { return *bus_; }
    static process start(const std::vector<std::string> &words);

private:
    void quieten();
    void start_netd();
    void add_wans();

    std::vector<int> sizes_;
    std::string program_;
    process log_, ubusd_, netd_, daemon_, bare_;
    std::unique_ptr<bus> bus_;
};

inline constexpr char bench_directory[] = "/gateway/bench";

// The identifier of the WAN that was added as the n-th, from 0.
int wan_id_of(int index);
const wan_kind &wan_kind_of(int index);
// The daemon's command that asks for the status of an interface.
std::string status_command(const std::string &interface);
std::vector<std::string> status_commands(int index);

// A request `add` or, with an identifier, `modify` for a WAN of that kind.
std::string wan_request(const wan_kind &kind, int vid, int id = 0);

// What is stored: all of a file, and the identifiers in use.
std::string file_text(const std::string &path);
void write_text(const std::string &path, const std::string &text);
std::vector<int> listed_ids();
