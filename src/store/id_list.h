// The list of WAN identifiers in use, network.korvel.wanList, and the allocation of new ones.
#pragma once

#include <cstdint>

// What wan_min_free_id() answers when the list cannot be read; as a signed number -1.
inline constexpr uint32_t no_free_id = UINT32_MAX;

// The first gap of the list, walked in stored order: the first k, from 1, at which the k-th entry is not k;
// the length plus one when there is no gap. no_free_id when `network` cannot be loaded or the list is missing
// or a plain option.
uint32_t wan_min_free_id();

// What stands for a WAN where there is not room for 255 of them: its own identifier up to highest_own, the
// first gap of the list from there on (so two WANs may share one), and its own again without a list.
uint32_t wan_own_or_free_id(uint8_t wan_id, uint8_t highest_own);

// The identifier that wan_id_alloc(0) would give now. Writes nothing.
uint32_t wan_id_next();

// Raises maxWanId to an identifier, in the configuration and in memory, when it is below: a WAN beyond it
// cannot be read. Same locking as wan_id_alloc().
void wan_id_cover(uint32_t id);

// Picks an identifier and appends it to the list. `requested` counts with its low 8 bits: 0 asks for a new
// identifier (the first gap when `use_min_wan_id` is set, else the highest one so far plus one), any other
// value puts that identifier on the list again. Returns the identifier. Lists and maxWanId change in the
// configuration and in memory; duplicates are not looked for: new WANs ask store/new_id first. Call with the
// handler mutex held, or before the bus is connected.
uint32_t wan_id_alloc(uint32_t requested);

// Commits an empty handle of the section's `port_binding`, which the library refuses: the configuration stays
// exactly as it was.
void wan_port_binding_reset(const char *section);
