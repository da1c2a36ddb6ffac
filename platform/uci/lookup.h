// From names to elements.
#pragma once

#include "model.h"

namespace uci {

// Splits "PACKAGE[.SECTION[.OPTION]][=VALUE]" in place. UCI_ERR_PARSE: malformed, and ptr is all zero.
int parse_tuple(uci_ptr *ptr, char *tuple);

// Fills s, o and last from the names, as far as they are in ptr->p, and sets the flags. UCI_ERR_INVAL: the
// section is a malformed reference.
int resolve_in_package(uci_ptr *ptr);

// The same after finding or loading the package.
int resolve(context *ctx, uci_ptr *ptr);

// Whether the lookup of ptr found everything that it names, and nothing of that has been deleted through ptr.
// What was made through ptr after the lookup does not count: callers know such a ptr as one that found
// nothing.
bool was_found(const uci_ptr *ptr);

// The body of an interface function that acts on a ptr, which is resolved unless the caller did that before.
template <typename Action> int run_on_resolved(uci_context *ctx, uci_ptr *ptr, Action action)
{
    return run_call(ctx, [&](context *full_ctx) -> int {
        if (!ptr)
            return UCI_ERR_INVAL;
        if (!(ptr->flags & uci_ptr::UCI_LOOKUP_DONE)) {
            const int code = resolve(full_ctx, ptr);
            if (code != UCI_OK)
                return code;
        }
        return ptr->p ? action(ptr) : static_cast<int>(UCI_ERR_INVAL);
    });
}

} // namespace uci
