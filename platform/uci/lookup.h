// From names to elements, whose package is loaded where it is not.
#pragma once

#include "model.h"

namespace uci {

// Finds or loads the package that ptr names, then what else it names: resolve_in_package().
int resolve(context *ctx, uci_ptr *ptr);

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
