// The WANs as the daemon reports them.
#pragma once

#include "ctl/bus.h"
#include "ctl/output.h"
#include "wan/wan_config.h"

class wan_list {
public:
    wan_list() = default;
    ~wan_list() { free(rows_); }
    wan_list(const wan_list &) = delete;
    wan_list &operator=(const wan_list &) = delete;

    // Asks for all of them, with one call. Returns the bus status; a failure leaves the list empty.
    int ask(bus_connection &bus);
    // The same, which tells a failure.
    exit_status read(bus_connection &bus);

    const wan_config *begin() const { return rows_; }
    const wan_config *end() const { return rows_ + size_; }
    size_t size() const { return size_; }
    // The WAN of an identifier, or null.
    const wan_config *find(uint8_t id) const;

    // False: memory is short.
    bool add(const wan_config &record);

private:
    wan_config *rows_ = nullptr;
    size_t size_ = 0;
};

// A WAN's fields as JSON, in an object that is open. Without secrets the password is left out.
enum class secrets : uint8_t { hidden, shown };
void write_wan(json_writer &json, const wan_config &record, secrets which);
