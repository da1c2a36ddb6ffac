// Judges the arguments of a request and stores them in a record.
#pragma once

#include "base/bus_headers.h"
#include "base/text.h"
#include "wan/wan_config.h"

#include <cstdint>

// `attributes` is the parsed request in policy order (entry 0 is not looked at); absent ones leave their
// fields alone. Numbers are cut to their field's width before they are judged, so 256 is taken as 0 where 8
// bits are kept. Returns 0, or -1 at the first argument out of range, with its display name in name_out
// (display_name_size bytes) and the fields before it stored.
int wan_parse_args(blob_attr *const attributes[], wan_config *config, text_ref name_out);

// The arguments of a parsed request that are there: bit i for that of arg_rules[i].
uint64_t wan_given_args(blob_attr *const attributes[]);

// Copies the fields of these arguments from one record to another.
void wan_overlay_args(uint64_t arguments, const wan_config &from, wan_config *config);
