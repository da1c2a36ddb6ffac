// From names to elements, within a package that is loaded.
#pragma once

#include "model.h"

namespace uci {

// Splits "PACKAGE[.SECTION[.OPTION]][=VALUE]" in place. UCI_ERR_PARSE: malformed, and ptr is all zero.
int parse_tuple(uci_ptr *ptr, char *tuple);

// Fills s, o and last from the names, as far as they are in ptr->p, and sets the flags. UCI_ERR_INVAL: the
// section is a malformed reference.
int resolve_in_package(uci_ptr *ptr);

// Whether the lookup of ptr found everything that it names, and nothing of that has been deleted through ptr.
// What was made through ptr after the lookup does not count: callers know such a ptr as one that found
// nothing.
bool was_found(const uci_ptr *ptr);

} // namespace uci
