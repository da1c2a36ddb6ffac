// What names a routed WAN's interface outside the WAN's own sections.
#pragma once

#include "base/text.h"

#include <span>

// One option that may do so.
struct wan_reference {
    const char *config, *section, *option;
    bool substring;          // a longer value that contains the name counts too
    bool whole_section;      // the section goes, not the option alone
    const char *also_delete; // an option that was made from it; null: none
};

std::span<const wan_reference> wan_references();

// Reads the option, cut at value_out.size - 1. Returns 0, or the failure.
int wan_read_reference(const wan_reference &where, text_ref value_out);

// Deletes the option and what was made from it. Returns 0, or what failed.
int wan_delete_reference(const wan_reference &where);

// Deletes each option that names an interface. Returns the OR of what failed.
int wan_delete_references(const char *interface);
