// Commits: pending changes go into configuration files. The file stays locked until the new one is in place,
// so programs that commit at the same time follow one another and none works from contents that another has
// replaced.
#include <unistd.h>

#include "load.h"
#include "save.h"
#include "write.h"

namespace uci {
namespace {

// Writes the file with all pending changes, if any of them applies, and empties the delta file once they are
// safe.
int write_pending(package *fresh)
{
    locked_file delta;
    size_t applied;
    int code = apply_deltas(fresh, &delta, &applied);
    if (code != UCI_OK || applied == 0)
        return code;
    code = write_config(fresh, fresh->path);
    if (code == UCI_OK && delta.file && ftruncate(delta.file.get(), 0) != 0)
        code = UCI_ERR_IO;
    return code;
}

int commit_with_delta(context *ctx, uci_package **p, bool overwrite)
{
    package *const old = full(*p);
    locked_file config;
    int code = lock_config(old->path, &config);
    if (code == UCI_OK && !overwrite)
        code = save(old);
    if (code != UCI_OK)
        return code;

    package *fresh;
    code = read_package(ctx, old->e.name, old->path, config.file.get(), &fresh);
    if (code != UCI_OK) {
        if (!overwrite) {
            free_package(old);
            *p = nullptr;
        }
        return code;
    }
    fresh->has_delta = true;
    code = write_pending(fresh);
    if (overwrite) {
        free_package(fresh);
        return code;
    }
    free_package(old);
    publish(fresh);
    *p = fresh;
    return code;
}

int commit(context *ctx, uci_package **p, bool overwrite)
{
    if (!p || !*p)
        return UCI_ERR_INVAL;
    return (*p)->has_delta ? commit_with_delta(ctx, p, overwrite) : write_plain(full(*p), overwrite);
}

} // namespace
} // namespace uci

int uci_commit(uci_context *ctx, uci_package **p, bool overwrite)
{
    return uci::run_call(ctx, [&](uci::context *full) { return uci::commit(full, p, overwrite); });
}
