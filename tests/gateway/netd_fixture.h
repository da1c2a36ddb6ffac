// What tests of the network daemon's stand-in share.
#pragma once

#include "support/gateway.h"

#include <algorithm>
#include <string>

class netd_fixture : public gateway_test {
protected:
    // Starts the stand-in and waits until everything is up.
    void start_settled(const netd_options &options = {})
    {
        gateway.start_netd(options);
        gateway.hurry_netd();
        gateway.settle_netd();
    }

    bus_reply status(const std::string &interface)
    {
        return gateway.call_object("network.interface." + interface, "status");
    }

    // The reply with its uptime, the one member that differs from run to run, as 0.
    std::string timeless_status(const std::string &interface)
    {
        constexpr std::string_view key = "\"uptime\":";
        std::string text = status(interface).text;
        const size_t value = text.find(key) + key.size();
        return text.replace(value, text.find(',', value) - value, "0");
    }

    void set_interface_option(const std::string &option, const std::string &value)
    {
        gateway.uci_set("network.wan_1." + option, value);
        gateway.reload_netd();
        gateway.settle_netd();
    }

    // What the hotplug scripts are told from now on, as "ifup wan_1 pon.100".
    void note_events()
    {
        gateway.write_file("/etc/hotplug.d/iface/50-note",
                           "echo \"$ACTION $INTERFACE ${DEVICE-unset}\" >> /tmp/events\n");
        gateway.write_file("/tmp/events", "");
    }
    std::string events() const { return gateway.file("/tmp/events"); }

    text_lines default_routes() const
    {
        text_lines routes = gateway.ip_routes("main");
        std::erase_if(routes, [](const std::string &route) { return !route.starts_with("default"); });
        return routes;
    }

    bool device_exists(const std::string &device) { return gateway.exists("/sys/class/net/" + device); }

    std::string device_attribute(const std::string &device, const std::string &attribute)
    {
        std::string text = gateway.file("/sys/class/net/" + device + "/" + attribute);
        text.pop_back();
        return text;
    }
};
