// Finds, locks and reads configuration files; imports streams.
#include "load.h"

#include <cstdlib>
#include <cstring>

#include <sys/stat.h>

#include "delta.h"
#include "names.h"
#include "parse.h"

namespace uci {
namespace {

struct location {
    text path;
    const char *name; // of the package
    bool has_delta;
};

bool exists(const char *path)
{
    struct stat status;
    return stat(path, &status) == 0;
}

// A path stands for itself, a plain name for a file in the override or the configuration directory.
int locate(const context *ctx, const char *name, location *out)
{
    if (!name)
        return UCI_ERR_INVAL;
    if (*name == '/' || strncmp(name, "./", 2) == 0) {
        *out = {copy_text(name), strrchr(name, '/') + 1, false};
    } else if (*name == '.') {
        return UCI_ERR_NOTFOUND;
    } else {
        if (!valid_package(name))
            return UCI_ERR_INVAL;
        text override_path = ctx->conf2dir ? join_path(ctx->conf2dir, name) : nullptr;
        if (ctx->conf2dir && !override_path)
            return UCI_ERR_MEM;
        const bool overridden = override_path && exists(override_path.get());
        *out = {overridden ? std::move(override_path) : join_path(ctx->confdir, name), name, true};
    }
    if (!out->path)
        return UCI_ERR_MEM;
    return valid_package(out->name) ? UCI_OK : UCI_ERR_INVAL;
}

// Adds the pending changes of one delta file that is open.
int apply_file(package *p, const locked_file &delta, size_t *applied)
{
    bytes source;
    const int code = read_file(delta.file.get(), &source);
    return code == UCI_OK ? apply_delta(p, std::move(source), applied) : code;
}

// Frees the packages that were added to a context behind a certain one.
void drop_packages_after(context *ctx, const uci_list *last_kept)
{
    while (ctx->root.prev != last_kept)
        free_package(full(uci_to_package(list_to_element(ctx->root.prev))));
}

int import_into(package *p, bytes source, package **out)
{
    *out = p;
    return parse_package(p, std::move(source));
}

int import(context *ctx, FILE *stream, const char *name, uci_package **p, bool single)
{
    uci_package *const existing = p ? *p : nullptr;
    if (!stream || (name && !valid_package(name)) || (existing && !single))
        return UCI_ERR_INVAL;
    if (!existing && name && find_element(&ctx->root, name))
        return UCI_ERR_DUPLICATE;
    bytes source;
    int code = read_stream(stream, &source);
    if (code != UCI_OK)
        return code;

    const uci_list *const last_kept = ctx->root.prev;
    package *result = nullptr;
    if (existing) {
        code = import_into(full(existing), std::move(source), &result);
    } else if (name) {
        package *const fresh = new_package(ctx, name);
        if (!fresh)
            return UCI_ERR_MEM;
        list_append(&ctx->root, &fresh->e.list);
        code = import_into(fresh, std::move(source), &result);
    } else {
        code = parse_packages(ctx, std::move(source), &result);
    }
    if (code != UCI_OK)
        drop_packages_after(ctx, last_kept);
    else if (p && result)
        *p = result;
    return code;
}

} // namespace

int read_package(context *ctx, const char *name, const char *path, int fd, package **out)
{
    bytes source;
    int code = read_file(fd, &source);
    if (code != UCI_OK)
        return code;
    package *const p = new_package(ctx, name);
    text path_copy = copy_text(path);
    if (p && path_copy) {
        p->path = path_copy.release();
        code = parse_package(p, std::move(source));
    } else {
        code = UCI_ERR_MEM;
    }
    if (code == UCI_OK)
        *out = p;
    else if (p)
        free_package(p);
    return code;
}

int apply_deltas(package *p, locked_file *keep, size_t *applied)
{
    const uci_context *const ctx = p->ctx;
    *applied = 0;
    uci_element *directory;
    uci_foreach_element(&ctx->delta_path, directory)
    {
        const text path = join_path(directory->name, p->e.name);
        if (!path)
            return UCI_ERR_MEM;
        const bool kept = keep && strcmp(directory->name, ctx->savedir) == 0;
        locked_file local;
        locked_file *const delta = kept ? keep : &local;
        int code = open_locked(path.get(), kept ? locking::exclusive : locking::shared, when_missing::fail, 0,
                               delta);
        // A directory of someone else's changes that we may not read is no reason to fail, our own is.
        if (code == UCI_ERR_NOTFOUND || (code == UCI_ERR_IO && !kept))
            continue;
        if (code == UCI_OK)
            code = apply_file(p, *delta, applied);
        if (code != UCI_OK)
            return code;
    }
    return UCI_OK;
}

void publish(package *p)
{
    p->recording = p->has_delta;
    list_append(&p->ctx->root, &p->e.list);
}

int load(context *ctx, const char *name, uci_package **out)
{
    location place = {};
    int code = locate(ctx, name, &place);
    if (code != UCI_OK)
        return code;
    // Held until the delta files are read too: a commit in between would move changes from one to the other
    // unseen.
    locked_file config;
    code = open_locked(place.path.get(), locking::shared, when_missing::fail, 0, &config);
    if (code != UCI_OK)
        return code;
    if (find_element(&ctx->root, place.name))
        return UCI_ERR_DUPLICATE;
    package *p;
    code = read_package(ctx, place.name, place.path.get(), config.file.get(), &p);
    if (code != UCI_OK)
        return code;
    p->has_delta = place.has_delta;
    size_t applied;
    if (p->has_delta)
        code = apply_deltas(p, nullptr, &applied);
    if (code != UCI_OK) {
        free_package(p);
        return code;
    }
    publish(p);
    if (out)
        *out = p;
    return UCI_OK;
}

} // namespace uci

int uci_load(uci_context *ctx, const char *name, uci_package **package)
{
    return uci::run_call(ctx, [&](uci::context *full) { return uci::load(full, name, package); });
}

int uci_unload(uci_context *ctx, uci_package *package)
{
    return uci::run_call(ctx, [&](uci::context *) -> int {
        if (!package)
            return UCI_ERR_INVAL;
        uci::free_package(uci::full(package));
        return UCI_OK;
    });
}

int uci_import(uci_context *ctx, FILE *stream, const char *name, uci_package **package, bool single)
{
    return uci::run_call(
        ctx, [&](uci::context *full) { return uci::import(full, stream, name, package, single); });
}
