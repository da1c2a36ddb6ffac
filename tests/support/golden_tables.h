// The arguments and the reply fields of a WAN as clients know them: tests/golden/bus/, apart from the
// daemon's own tables, so that a slip in those shows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct golden_argument {
    std::string name;
    int type;           // BLOBMSG_TYPE_...
    uint32_t low, high; // the accepted values; of a text, lengths
    std::string display;
};
// In the order in which a request is judged.
std::vector<golden_argument> golden_arguments();

struct golden_field {
    std::string name;
    int type;     // BLOBMSG_TYPE_...
    size_t bytes; // in the record
    bool in_get;  // `all` has every field
};
// In the order in which replies have them.
std::vector<golden_field> golden_fields();
std::vector<golden_field> golden_get_fields();
