// The stand-in for the network daemon: one record per interface, each with its object on the bus, following
// the configuration from one reload to the next.
//
// An interface that appears or changes is pending for a moment and then up; its events go to the bus and, in
// the same order, to the hotplug scripts. One that is wanted and cannot come up is tried again at every
// reload. Everything runs on the loop's thread.
#pragma once

#include "netd/board.h"
#include "netd/bus_headers.h"
#include "netd/hotplug.h"
#include "netd/ip_settings.h"
#include "netd/links.h"
#include "netd/loop.h"
#include "netd/network_config.h"
#include "netd/scripted_reply.h"
#include "netd/status_reply.h"

#include <chrono>
#include <list>
#include <memory>
#include <string>
#include <vector>

struct daemon_options {
    bool links = true;         // whether devices and addresses are made in the kernel
    bool kernel_vlans = false; // whether VLAN devices are the kernel's, on their parent, and not pairs
    bool hotplug = true;       // whether hotplug scripts are run
    int pending_ms = 50;       // how long an interface negotiates, unless
    bool real_pace = false;    // it takes the seconds that its protocol takes on a real line
};

class network_daemon {
public:
    // The connection must be in the loop and outlive the daemon.
    network_daemon(ubus_context *bus, const daemon_options &options);
    ~network_daemon();
    network_daemon(const network_daemon &) = delete;
    network_daemon &operator=(const network_daemon &) = delete;

    // Removes all policy rules but the kernel's own, puts the objects on the bus and starts the configured
    // interfaces. False when that is impossible; the reason is on standard error.
    bool start();

    // Takes everything out of the kernel, as an orderly end does; nobody is told.
    void stop();

    // The methods. Each returns a bus status.
    int reload();
    int restart();
    // Adds an interface that is not configured; it makes room when the configuration takes its name. Its
    // device may be "@" and the name of another interface, for that one's.
    int add_dynamic(config_section section);
    // Adds the device's state to the open container; false when there is no such device.
    bool add_device(blob_buf *reply, const std::string &device) const;
    // Adds the status of every interface.
    void add_dump(blob_buf *reply);
    // Only looks which scripted replies and which board description there are.
    void follow_files();
    // Ends every negotiation at once, as if its time had passed.
    void hurry();
    // Replies as soon as no interface is pending and no hotplug script runs.
    void settle(ubus_request_data *request);

private:
    // Why there is an interface: the configuration names it, a dialled one or a client brought it, or a reply
    // is laid down.
    enum class origin { configured, dynamic, scripted };

    struct interface_record;
    struct interface_object : ubus_object {
        interface_record *record;
    };
    struct interface_record {
        interface_record(network_daemon &daemon, config_section section, origin source);

        network_daemon &daemon;
        config_section section;
        origin source;
        link_state state = link_state::down;
        bool wanted = false; // tried again at every reload while it is down
        std::chrono::steady_clock::time_point up_since;
        ip_settings settings; // while up
        std::vector<interface_error> errors;
        timer coming_up;
        std::string path; // on the bus
        interface_object object{};
        bool offered = false;
    };
    struct delayed_reply {
        delayed_reply(network_daemon &daemon, ubus_request_data *request, std::string interface,
                      scripted_reply script);

        network_daemon &daemon;
        ubus_request_data request{};
        std::string interface;
        scripted_reply script;
        timer due;
    };
    using records = std::vector<std::unique_ptr<interface_record>>;

    static int handle_status(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *);
    static int handle_up(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *);
    static int handle_down(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *);
    static int handle_renew(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *);
    static const ubus_method interface_methods[4];
    static ubus_object_type interface_type;

    bool offer_own_objects();
    interface_record *find(const std::string &name);
    void add(config_section section, origin source);
    void add_configured(const config_section &section);
    void remove(const std::string &name);
    void offer(interface_record &record);
    void withdraw(interface_record &record);

    void apply(const network_config &next);
    void stop_changed(const network_config &next, const std::set<std::string> &interrupted);
    void remove_unconfigured(const network_config &next);
    void bring_up(interface_record &record);
    void negotiate(interface_record &record);
    void finish_negotiation(interface_record &record);
    void come_up(interface_record &record);
    void fail(interface_record &record, const std::string &code);
    void bring_along(const config_section &side);
    void go_down(interface_record &record);
    void announce(const interface_record &record, const char *action);
    void tell_hotplug(const interface_record &record, const char *action);
    void reply_if_settled();

    interface_status status_of(const interface_record &record) const;
    const interface_record *downstream() const;
    std::vector<prefix_assignment> assignments_for(const interface_record &record) const;
    void add_usual_reply(blob_buf *reply, const std::string &interface);
    int answer(ubus_request_data *request, const std::string &interface, const scripted_reply &script);
    void finish(delayed_reply *delayed);

    ubus_context *bus_;
    daemon_options options_;
    links links_;
    provider provider_;
    hotplug_queue hotplug_;
    board_object board_;
    network_config config_;
    records interfaces_;
    std::list<delayed_reply> delayed_;
    std::vector<ubus_request_data> waiting_for_settling_;
};
