// Looks elements up for callers, and loads the packages that they are in.
#include "lookup.h"

#include "load.h"
#include "tuple.h"

namespace uci {
namespace {

int find_or_load(context *ctx, const char *name, uci_package **out)
{
    uci_element *const e = find_element(&ctx->root, name);
    if (!e)
        return load(ctx, name, out);
    *out = uci_to_package(e);
    return UCI_OK;
}

} // namespace

int resolve(context *ctx, uci_ptr *ptr)
{
    if (!ptr->s && ptr->o)
        ptr->s = ptr->o->section;
    if (!ptr->p && ptr->s)
        ptr->p = ptr->s->package;
    if (!ptr->p) {
        if (!ptr->package)
            return UCI_ERR_INVAL;
        const int code = find_or_load(ctx, ptr->package, &ptr->p);
        if (code != UCI_OK)
            return code;
    }
    return resolve_in_package(ptr);
}

} // namespace uci

int uci_lookup_next(uci_context *ctx, uci_element **e, uci_list *list, const char *name)
{
    return uci::run_call(ctx, [&](uci::context *) -> int {
        if (!e || !list || !name)
            return UCI_ERR_INVAL;
        *e = uci::find_element(list, name);
        return *e ? UCI_OK : UCI_ERR_NOTFOUND;
    });
}

int uci_parse_ptr(uci_context *ctx, uci_ptr *ptr, char *str)
{
    return uci::run_call(ctx, [&](uci::context *) {
        return ptr ? uci::parse_tuple(ptr, str) : static_cast<int>(UCI_ERR_INVAL);
    });
}

int uci_lookup_ptr(uci_context *ctx, uci_ptr *ptr, char *str, bool extended)
{
    return uci::run_call(ctx, [&](uci::context *full) -> int {
        if (!ptr)
            return UCI_ERR_INVAL;
        if (str) {
            const int code = uci::parse_tuple(ptr, str);
            if (code != UCI_OK)
                return code;
            if ((ptr->flags & uci_ptr::UCI_LOOKUP_EXTENDED) && !extended)
                return UCI_ERR_INVAL;
        }
        return uci::resolve(full, ptr);
    });
}
