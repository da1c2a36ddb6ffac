// Judges the arguments of a request and stores them in a record.
#pragma once

#include "base/bus_headers.h"
#include "base/text.h"
#include "wan/wan_config.h"

// `attributes` is the parsed request in policy order (entry 0 is not looked at); absent ones leave their
// fields alone. Numbers are cut to their field's width before they are judged, so 256 is taken as 0 where 8
// bits are kept. Returns 0, or -1 at the first argument out of range, with its display name in name_out
// (display_name_size bytes) and the fields before it stored.
int wan_parse_args(blob_attr *const attributes[], wan_config *config, text_ref name_out);
