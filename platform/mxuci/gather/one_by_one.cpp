// For a platform whose own mxuci knows no gathering: every call takes effect at once.
#include "mxuci_gather.h"

extern "C" {
#include <uci.h>
}

bool mxuci_gathers(void)
{
    return false;
}

int mxuci_gather_begin(void)
{
    return UCI_ERR_INVAL;
}

void mxuci_gather_end(void) {}

int mxuci_gather_view(const char *, uci_context **context_out, uci_package **package_out)
{
    *context_out = nullptr;
    *package_out = nullptr;
    return UCI_ERR_INVAL;
}

mxuci_failure mxuci_gather_failure(void)
{
    return {};
}

int mxuci_gather_stage(const char *, mxuci_staged *, int, int *count_out)
{
    *count_out = 0;
    return UCI_ERR_INVAL;
}

int mxuci_gather_lock(const char *, bool *unchanged_out)
{
    *unchanged_out = false;
    return UCI_ERR_INVAL;
}

void mxuci_gather_placed(const char *) {}
