// What the daemon should make of a gateway, worked out a second time and as simply as possible: WANs are
// created, changed and deleted on parsed configurations, scripts are filled in from templates of their own.
// For the board as shipped (8 LAN-side ports), the uplink "pon", and identifiers counted upwards.
#pragma once

#include "support/config_text.h"

#include "wan/wan_config.h"

#include <map>
#include <optional>
#include <string>

class wan_model {
public:
    // Starts from the gateway's configuration files by name, as text; there are no scripts.
    explicit wan_model(const std::map<std::string, std::string> &configurations);

    // The operations of the bus. They return the status of the reply: 0, -1, or a conflict's code.
    int add(const wan_config &wan);
    int modify(const wan_config &wan);
    int del(uint8_t id);
    void delete_all();

    // The record from which a change that waits starts: what was asked for last, less what is not stored.
    wan_config stored(uint8_t id) const;

    std::vector<uint8_t> ids() const;
    const std::map<std::string, config_sections> &configurations() const { return configurations_; }
    // Scripts by path.
    const std::map<std::string, std::string> &scripts() const { return scripts_; }

private:
    config_sections &network() { return configurations_.at("network"); }
    config_section &korvel() { return *find_section(network(), "korvel"); }
    config_section &bridge() { return *find_section(network(), "device"); }
    config_section &wan_zone();
    std::optional<size_t> device_of(uint8_t id) const;

    int conflict(const wan_config &wan, std::optional<size_t> own_device) const;
    uint8_t allocate();
    unsigned first_gap() const;
    unsigned mark_number(uint8_t id) const;
    std::string derived_mac(uint8_t id) const;

    void create(const wan_config &wan, uint8_t id);
    unsigned write_device(const wan_config &wan, uint8_t id);
    void write_routed(const wan_config &wan, uint8_t id, unsigned bound_ports);
    void write_main_interface(const wan_config &wan, uint8_t id);
    void write_dhcp(const wan_config &wan, uint8_t id);
    void write_tunnel(const wan_config &wan, uint8_t id);
    void claim_services(const wan_config &wan, uint8_t id);
    config_section &add_interface(const std::string &name);
    void join_zone(const std::string &interface);

    bool erase(uint8_t id);
    bool erase_interface(const std::string &name);
    void erase_references(const std::string &interface);
    void forget_highest_when_empty();

    void write_bridge_script(const wan_config &wan, uint8_t id);
    void write_route_script(const wan_config &wan, uint8_t id);
    void write_isolation_script();
    void write_multicast_script();

    std::map<std::string, config_sections> configurations_;
    std::map<std::string, std::string> scripts_;
    std::map<uint8_t, wan_config> requested_;
};
