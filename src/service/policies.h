// The arguments of `add` and `modify`: one table from which the bus policies, the validation and the names shown to
// clients are made.
#pragma once

#include "base/bus_headers.h"
#include "store/wan_fields.h"

// One argument that is stored in the record. `field.name` is its name on the bus.
struct arg_rule {
    wan_field field;
    blobmsg_type type;   // INT32, INT8 (a boolean) or STRING
    uint32_t low, high;  // accepted numbers, judged after the cut to the field's width; unused for texts, whose greatest
                         // accepted length is the field's size less one
    const char *display; // what a refusal calls it
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

extern const blobmsg_policy add_policy[add_arg_count];
extern const blobmsg_policy modify_policy[modify_arg_count];
// The policy of `get` and `del`: wanId alone.
extern const blobmsg_policy wan_id_policy[1];

// The longest display name and its terminator.
inline constexpr size_t display_name_size = 18;
