// Identifiers for new WANs: what the allocator would give, unless that cannot be used.
//
// The allocator (store/id_list) knows a rule, but not which identifiers are taken, reserved or too great to
// be read again. Here the creation of a WAN and of the management device ask which one to use.
#pragma once

#include <cstdint>

// The routing tables of these WANs (rules/route_rule) would be the kernel's own `default`, `main` and
// `local`.
inline constexpr uint32_t first_reserved_id = 153;
inline constexpr uint32_t last_reserved_id = 155;

// The identifier for a new WAN: the one that the allocator is about to give when that can be used, else the
// lowest that can. Usable are 1 to 255 but for 153 to 155, as long as no list entry, no section and no WAN
// that is being rewritten has them. Returns 0, logged, when there is none. Writes nothing.
//
// Hold the configuration (config_hold) from here to wan_id_take().
uint8_t wan_id_choose();

// Puts a chosen identifier on the list and sees that maxWanId covers it; one that is not the allocator's own
// is logged. Within an operation.
void wan_id_take(uint8_t id);

// Keeps the identifier of a WAN that is deleted and written again from being given away in between, for its
// own lifetime. One at a time: in the lane of changes.
class wan_id_hold {
public:
    explicit wan_id_hold(uint8_t id);
    ~wan_id_hold();
    wan_id_hold(const wan_id_hold &) = delete;
    wan_id_hold &operator=(const wan_id_hold &) = delete;
};
