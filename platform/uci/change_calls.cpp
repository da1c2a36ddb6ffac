// The interface functions that change a configuration.
#include "change.h"
#include "lookup.h"

int uci_set(uci_context *ctx, uci_ptr *ptr)
{
    return uci::run_on_resolved(ctx, ptr, uci::apply_set);
}

int uci_add_list(uci_context *ctx, uci_ptr *ptr)
{
    return uci::run_on_resolved(ctx, ptr, uci::apply_add_list);
}

int uci_del_list(uci_context *ctx, uci_ptr *ptr)
{
    return uci::run_on_resolved(ctx, ptr, uci::apply_del_list);
}

int uci_delete(uci_context *ctx, uci_ptr *ptr)
{
    const int code = uci::run_on_resolved(ctx, ptr, uci::apply_delete);
    if (ctx && code == UCI_ERR_MEM)
        ctx->err = UCI_OK; // a value that is no index makes a message "Success"; the tool prints none
    return code;
}

int uci_rename(uci_context *ctx, uci_ptr *ptr)
{
    return uci::run_on_resolved(ctx, ptr, uci::apply_rename);
}

int uci_reorder_section(uci_context *ctx, uci_section *s, int pos)
{
    return uci::run_call(ctx, [&](uci::context *) {
        return s ? uci::apply_reorder(s, pos) : static_cast<int>(UCI_ERR_INVAL);
    });
}

int uci_add_section(uci_context *ctx, uci_package *p, const char *type, uci_section **res)
{
    return uci::run_call(ctx, [&](uci::context *) -> int {
        if (!p || !type || !res)
            return UCI_ERR_INVAL;
        return uci::create_section(uci::full(p), type, nullptr, uci::naming::anonymous, res);
    });
}
