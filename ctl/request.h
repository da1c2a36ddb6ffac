// A change as it is asked for on the command line: options with names and words, which become arguments.
#pragma once

#include "ctl/bus.h"
#include "ctl/field_row.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "ctl/wan_list.h"
#include "service/policies.h"
#include "wan/wan_config.h"

// An argument's field, and the numbers that it takes.
struct arg_row {
    uint8_t position; // among field_rows
    uint16_t low, high;
};
inline constexpr auto arg_rows = [] {
    std::array<arg_row, record_arg_count> made = {};
    for (size_t row = 0; row < record_arg_count; row++) {
        const arg_rule &rule = arg_rules[row];
        made[row] = {field_position(rule.field, rule.type), static_cast<uint16_t>(rule.low),
                     static_cast<uint16_t>(rule.high)};
    }
    return made;
}();
inline const field_row &arg_field(size_t row)
{
    return field_rows[arg_rows[row].position];
}

// A set of arguments, by their rows in the table.
class arg_set {
public:
    constexpr arg_set() = default;
    constexpr arg_set(std::initializer_list<size_t> rows)
    {
        for (const size_t row : rows)
            add(row);
    }
    constexpr bool has(size_t row) const { return (bits_ >> row & 1) != 0; }
    constexpr void add(size_t row) { bits_ |= uint64_t{1} << row; }
    constexpr bool has_any(arg_set other) const { return (bits_ & other.bits_) != 0; }
    constexpr bool empty() const { return bits_ == 0; }
    constexpr arg_set operator|(arg_set other) const
    {
        other.bits_ |= bits_;
        return other;
    }
    static constexpr arg_set all()
    {
        arg_set set;
        set.bits_ = (uint64_t{1} << record_arg_count) - 1;
        return set;
    }

private:
    uint64_t bits_ = 0;
};
static_assert(record_arg_count < 64);

// The row of an argument: ARG(mtu).
#define ARG(member) (arg_position(WAN_FIELD(member)) - first_record_arg)

struct wan_request {
    wan_config record = {};
    arg_set given; // by the options
    uint8_t wan_id = 0;
    uint32_t wait = 0;
    bool waits = false; // --in was given
    bool again = false; // another routed WAN may have the VLAN
    bool dry_run = false;
    secrets which = secrets::hidden;
    const char *ports = nullptr; // the words of --ports, read when the board has told its ports
};

// Reads the command line of `add` (which has no identifier) or `modify` (which has one). Tells what is wrong.
enum class takes_id : uint8_t { no, yes };
exit_status read_request(std::span<char *const> words, takes_id id, wan_request *request);

// The options, for next_option().
const char *change_options();

// Takes what was given over into a record: the defaults of a new WAN, or what is stored.
void lay_over(const wan_request &request, wan_config *record);
// What a new WAN has where the options leave it open.
wan_config new_wan(const wan_request &request);

// The arguments as a message and as JSON members.
void add_arguments(bus_message &message, const wan_config &record, arg_set which);
void write_arguments(json_writer &json, const wan_config &record, arg_set which, secrets secret);

// Whether two records have the same arguments.
bool same_arguments(const wan_config &one, const wan_config &other);
