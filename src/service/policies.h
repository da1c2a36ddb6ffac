// The arguments of `add` and `modify`: one table from which the bus policies, the validation and the names
// shown to clients are made.
#pragma once

#include <span>

#include "base/bus_headers.h"
#include "wan/wan_fields.h"

// One argument that is stored in the record. `field.name` is its name on the bus.
struct arg_rule {
    wan_field field;
    enum blobmsg_type type; // INT32, INT8 (a boolean) or STRING
    uint32_t low, high;     // accepted numbers, judged after the cut to the field's width; unused for texts,
                            // whose greatest accepted length is the field's size less one
    const char *display;    // what a refusal calls it
};

inline constexpr size_t record_arg_count = 32;

// The row order is the order in which a request is judged, and row i is policy entry i + 1.
extern const arg_rule arg_rules[record_arg_count];

// Positions in the parsed attributes.
enum : size_t {
    arg_wan_id = 0, // `notUsed` in the policy of add
    first_record_arg = 1,
    arg_wan_mode = 1,
    arg_wait = first_record_arg + record_arg_count, // modify only
};

inline constexpr size_t add_arg_count = arg_wait;
inline constexpr size_t modify_arg_count = arg_wait + 1;

// A policy as the bus library's macros want it: a real array, in `rows`.
template <size_t count> struct bus_policy {
    blobmsg_policy rows[count];
};
extern const bus_policy<add_arg_count> add_policy;
extern const bus_policy<modify_arg_count> modify_policy;
// The policy of `get` and `del`: wanId alone.
extern const bus_policy<1> wan_id_policy;

// Takes a request apart: attributes_out[i] is the argument of policy entry i, null when it is missing or of
// another type. A malformed request counts as one without arguments, so that no half of it is acted upon;
// that is logged.
void parse_request(std::span<const blobmsg_policy> policy, blob_attr *message,
                   std::span<blob_attr *> attributes_out);

// The longest display name and its terminator.
inline constexpr size_t display_name_size = 18;
