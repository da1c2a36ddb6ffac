// The list of WAN identifiers in use, network.korvel.wanList, and the allocation of new ones. What changes
// the list or maxWanId is called within an operation.
#pragma once

#include "base/config.h"
#include "wan/wan_names.h"

#include <cstdint>

// The list's entries, in order of addition; null when `network` could not be loaded or has no such list.
uci_list *wan_listed_ids(const uci_loaded &network);

// How many entries the list has in what is loaded; a plain option counts as one. 0 when it is missing.
size_t wan_listed_count(const uci_loaded &network);
// How many entries the list has; 0 when it is missing, -1 when it cannot be read. Loads the configuration
// itself.
int wan_listed_count();

// Takes an identifier off the list. Returns 0, or the configuration library's non-zero result.
int wan_id_unlist(const wan_names &names);

// Deletes the list as a whole; it may be missing.
void wan_list_delete();

// Has identifiers start from 1 again: maxWanId is 0 in memory, and in the configuration if the result is 0.
int wan_ids_restart();

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
// configuration and in memory; duplicates are not looked for: new WANs ask store/new_id first.
uint32_t wan_id_alloc(uint32_t requested);

// Commits an empty handle of the section's `port_binding`, which the library refuses: the configuration stays
// exactly as it was.
void wan_port_binding_reset(const char *section);
