// Sorts name servers into a record.
#pragma once

#include "wan/wan_config.h"

#include <cstddef>

// Takes servers one after the other. The first two with a point become the record's IPv4 servers, the first
// two others with a colon its IPv6 servers; the rest is dropped, and a place that nobody takes keeps what it
// held. The record must outlive it.
class dns_sorter {
public:
    explicit dns_sorter(wan_config &record) : record_(record) {}
    void take(const char *server);

private:
    wan_config &record_;
    size_t v4_count_ = 0;
    size_t v6_count_ = 0;
};
