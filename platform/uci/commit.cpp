// Writes packages to configuration files. The file stays locked until the new one is in place, so programs
// that commit at the same time follow one another and none works from contents that another has replaced.
#include "store.h"

#include <sys/stat.h>
#include <unistd.h>

#include "export.h"
#include "file.h"
#include "load.h"
#include "memory.h"

namespace uci {
namespace {

int lock_config(const char *path, locked_file *out)
{
    const int code = open_locked(path, locking::exclusive, when_missing::create, UCI_FILEMODE, out);
    return code == UCI_ERR_NOTFOUND ? static_cast<int>(UCI_ERR_IO) : code;
}

int write_config(const package *p, const char *path)
{
    bytes contents;
    const int code = export_text(p, &contents);
    if (code != UCI_OK)
        return code;
    return replace_file(path, mode_of(path, UCI_FILEMODE), contents.data.get(), contents.size);
}

// A package that is written as it is in memory.
int commit_plain(const package *p, bool overwrite)
{
    if (!p->path && !overwrite)
        return UCI_ERR_INVAL;
    const text path = p->path ? copy_text(p->path) : join_path(p->ctx->confdir, p->e.name);
    if (!path)
        return UCI_ERR_MEM;
    locked_file config;
    int code = lock_config(path.get(), &config);
    if (code != UCI_OK)
        return code;
    code = write_config(p, path.get());
    if (code != UCI_OK && config.created)
        unlink(path.get());
    return code;
}

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

} // namespace

int commit(context *ctx, uci_package **p, bool overwrite)
{
    if (!p || !*p)
        return UCI_ERR_INVAL;
    return (*p)->has_delta ? commit_with_delta(ctx, p, overwrite) : commit_plain(full(*p), overwrite);
}

} // namespace uci

int uci_commit(uci_context *ctx, uci_package **p, bool overwrite)
{
    return uci::run_call(ctx, [&](uci::context *full) { return uci::commit(full, p, overwrite); });
}
