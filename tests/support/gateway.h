// The gateway of one test. Tests run inside a private root, so the code under test meets its real paths; this
// class puts everything a test can touch back to what a fresh router has, and lets the test look at what
// happened.
#pragma once

#include "support/builders.h"
#include "support/json_value.h"
#include "support/process.h"

#include <gtest/gtest.h>

#include <csignal>
#include <initializer_list>
#include <optional>
#include <string>
#include <syslog.h>
#include <vector>

using text_lines = std::vector<std::string>;

struct log_entry {
    int priority; // LOG_ERR, LOG_INFO, ...
    std::string ident;
    std::string text;
    bool operator==(const log_entry &) const = default;
};
void PrintTo(const log_entry &entry, std::ostream *out);

struct port_counts {
    int lan = 0;
    int lan_phy = 0;
    int wlan_2g = 0;
    int wlan_5g = 0;
};

// What the network daemon's stand-in does beside answering: without `links` it leaves the kernel's devices
// alone, without `hotplug` it starts no hotplug scripts. With `held` its interfaces stay pending until
// hurry_netd(). With `kernel_vlans` VLANs are 802.1Q devices on the uplink, for kernels that have them.
struct netd_options {
    bool links = false;
    bool hotplug = false;
    bool held = false;
    bool kernel_vlans = false;
};

// What a bus client sees of a call.
struct bus_reply {
    int status;       // bus status; 255 when there is no bus
    std::string text; // each reply as one line of JSON, usually one; empty when the object sent none

    // The parsed reply; a member of it, std::out_of_range when there is none.
    json_value json() const { return json_value::parse(text); }
    json_value at(const char *key) const { return json().at(key); }
    bool operator==(const bus_reply &) const = default;
};
void PrintTo(const bus_reply &reply, std::ostream *out);

// A call that runs beside the test, in a process of its own.
class background_call {
public:
    background_call(const std::string &object, const std::string &method, const std::string &json);
    // Waits for the answer.
    bus_reply wait(std::chrono::milliseconds deadline = std::chrono::seconds(60));

private:
    std::string output_path_;
    child_process process_;
};

class gateway {
public:
    // Puts back: /etc/config and /etc/init.d as shipped, /etc/korvel, /etc/hotplug.d/iface, /tmp and pending
    // configuration changes empty, no commands and no messages recorded, ports 4 LAN + 2 + 2 wireless, no
    // programs replaced, no scripted status, no rules in the kernel. No program runs. Throws
    // std::runtime_error outside a private root: it would reset the machine.
    gateway();
    ~gateway();
    gateway(const gateway &) = delete;
    gateway &operator=(const gateway &) = delete;

    // Files. Reading one that is missing throws std::runtime_error with its path; writing makes missing
    // directories.
    void write_file(const std::string &path, const std::string &content, unsigned mode = 0644);
    std::string file(const std::string &path) const;
    bool exists(const std::string &path) const;
    void remove(const std::string &path); // with everything below it; a missing one is fine
    void chmod(const std::string &path, unsigned mode);
    unsigned mode(const std::string &path) const; // permission bits
    text_lines
    list_directory(const std::string &path) const; // names, sorted; empty when there is no such directory

    // Whole configuration files, as text.
    std::string config(const std::string &name) const;
    void set_config(const std::string &name, const std::string &text);

    // One place in the configuration, pending changes included: "network.korvel.wanList",
    // "network.@device[0].ports", or "network.wan_1" for a section's type. A list is joined by blanks.
    // Nothing when it is missing.
    std::optional<std::string> uci_get(const std::string &place) const;
    std::optional<text_lines> uci_list(const std::string &place) const;
    // Options of a section in the order in which they are stored; empty when there is no such section.
    text_lines uci_options(const std::string &section) const;
    // Change and commit. A place that cannot be written throws std::runtime_error.
    void uci_set(const std::string &place, const std::string &value);
    void uci_add_list(const std::string &place, const std::string &value);
    void uci_delete(const std::string &place);

    // Installs the package, which is there but for what a fresh gateway has put back, and does what the first
    // boot does with it. Its rules then follow each reload of the firewall.
    void install_package();

    // Stores the WAN as creation would: its sections, its identifier in wanList, maxWanId raised to it if
    // need be. Nothing is reloaded and no script is written.
    void store_wan(const wan_config &config);
    // Name of the first device section whose lkname begins with "<id>_"; nothing when there is none.
    std::optional<std::string> device_section(unsigned id) const;
    // An option of that section.
    std::optional<std::string> device_option(unsigned id, const std::string &option) const;

    // The commands that the daemon and the scripts started, in order, one line each: name and arguments.
    text_lines commands() const;
    void clear_commands();

    // Messages to the system log so far, in order.
    std::vector<log_entry> log() const;
    text_lines log_texts(int priority) const;
    void clear_log();

    // The board's ports: its description on the bus, and the counts of code that runs inside the test.
    void set_ports(const port_counts &counts);
    void set_board_description(const std::string &json);
    void remove_board_description();

    // The network daemon's reply about an interface: a mode and its arguments, as "json {...}", "absent",
    // "malformed", "slow 2 {...}", "silent", "big". Takes effect at the next request; `absent` also when the
    // daemon runs already.
    void script_interface(const std::string &interface, const std::string &reply);
    void unscript_interface(const std::string &interface);

    // Puts an executable shell script of that name first on PATH. The text goes behind the "#!/bin/sh" line.
    void fake_program(const std::string &name, const std::string &shell_text);
    // Runs a script as a router runs it (busybox shell).
    program_result run_script(const std::string &path, const program_arguments &args = {},
                              const program_environment &variables = {});

    // Programs. Each start waits until the program serves and throws std::runtime_error when it does not.
    void start_bus();
    void stop_bus(); // the stand-in and the daemon stay
    // The network daemon's stand-in, with boardinfo; starts the bus first if it does not run.
    void start_netd(const netd_options &options = {});
    void reload_netd(); // as `network reload` does
    // Waits until no interface of the stand-in is pending and none of its hotplug scripts runs.
    void settle_netd();
    void hurry_netd(); // what is pending comes up, or fails, at once
    void stop_netd(int signal_number = SIGTERM);
    void start_korvel(); // starts the bus first if it does not run
    // Ends the daemon and returns its exit status, 128 + signal when the signal killed it.
    int stop_korvel(int signal_number = SIGTERM);
    void restart_korvel();
    bool korvel_running();
    pid_t korvel_pid() const { return korvel_.pid(); }
    // What the daemon has printed since its last start.
    std::string korvel_output() const;
    // Runs the daemon's program to its end, for command lines that do not serve.
    program_result run_korvel(const program_arguments &args);

    // Calls `korvel`, or any object, and waits for the answer. Any thread.
    bus_reply call(const std::string &method, const std::string &json = "{}") const;
    bus_reply call_object(const std::string &object, const std::string &method,
                          const std::string &json = "{}") const;
    bool object_exists(const std::string &object) const;

    // Rules in force, one per line: "FORWARD -i pon.100 -o eth0.2 -j DROP" for every chain of ebtables'
    // filter table and of broute, "32765: from all fwmark 0x1000/0x1000 lookup 101" for policy rules, routes
    // of a table as ip prints them, "-A OUTPUT ..." for the mangle table's OUTPUT chain. Counters, handles
    // and trailing blanks are left out.
    text_lines ebtables_rules() const;
    text_lines broute_rules() const;
    text_lines ip_rules() const;
    text_lines ip_routes(const std::string &table) const;
    text_lines iptables_mangle_output() const;

private:
    child_process bus_;
    child_process netd_;
    child_process korvel_;
};

// The text of tests/golden/<path>. Throws std::runtime_error with the path when it is missing.
std::string golden(const std::string &path);

// Base of fixtures that have a gateway.
class gateway_test : public testing::Test {
protected:
    ::gateway gateway;
};
