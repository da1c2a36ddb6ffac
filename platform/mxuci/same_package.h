// Compares what two packages say.
#pragma once

extern "C" {
#include <uci.h>
}

// Whether both have the same sections of the same types, names, options and values, in the same order. The
// names of anonymous sections do not count, and neither do lists without values: no file has them.
bool same_package(const uci_package *one, const uci_package *other);
