// Contexts and their directories.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <uci.h>

#include "memory.h"
#include "model.h"
#include "names.h"

namespace uci {
namespace {

int set_directory(char **place, const char *directory)
{
    if (!directory)
        return UCI_ERR_INVAL;
    text copy = copy_text(directory);
    if (!copy)
        return UCI_ERR_MEM;
    free(*place);
    *place = copy.release();
    return UCI_OK;
}

int set_save_directory(context *ctx, const char *directory)
{
    if (!directory)
        return UCI_ERR_INVAL;
    uci_element *entry = find_element(&ctx->delta_path, directory);
    if (!entry)
        entry = append_element(&ctx->delta_path, UCI_TYPE_PATH, directory);
    if (!entry)
        return UCI_ERR_MEM;
    list_remove(&entry->list);
    list_append(&ctx->delta_path, &entry->list);
    return set_directory(&ctx->savedir, directory);
}

int add_delta_directory(context *ctx, const char *directory)
{
    if (!directory)
        return UCI_ERR_INVAL;
    if (find_element(&ctx->delta_path, directory))
        return UCI_ERR_DUPLICATE;
    uci_element *const entry = append_element(&ctx->delta_path, UCI_TYPE_PATH, directory);
    if (!entry)
        return UCI_ERR_MEM;
    uci_list *const save_directory = entry->list.prev; // always the last, and there from the start
    list_remove(&entry->list);
    list_append(save_directory, &entry->list);
    return UCI_OK;
}

// ---- listing ----

struct listing {
    dirent **entries = nullptr;
    int count = 0;
    ~listing()
    {
        for (int i = 0; i < count; i++)
            free(entries[i]);
        free(entries);
    }
};

struct directory_stream {
    DIR *stream;
    explicit directory_stream(const char *path) : stream(opendir(path)) {}
    ~directory_stream()
    {
        if (stream)
            closedir(stream);
    }
};

int may_be_config(const dirent *entry)
{
    return !strchr(entry->d_name, '.') && valid_package(entry->d_name);
}

bool is_directory(DIR *parent, const char *name)
{
    struct stat status;
    return fstatat(dirfd(parent), name, &status, 0) != 0 || S_ISDIR(status.st_mode);
}

int by_bytes(const dirent **a, const dirent **b)
{
    return strcmp((*a)->d_name, (*b)->d_name);
}

// Drops the entries that are no files, dangling links included.
void keep_files(listing &found, DIR *parent)
{
    int kept = 0;
    for (int i = 0; i < found.count; i++) {
        if (is_directory(parent, found.entries[i]->d_name))
            free(found.entries[i]);
        else
            found.entries[kept++] = found.entries[i];
    }
    found.count = kept;
}

// One block: the array of pointers, its null, and behind it the names.
char **pack(const listing &found)
{
    const auto count = static_cast<size_t>(found.count);
    size_t size = (count + 1) * sizeof(char *);
    for (size_t i = 0; i < count; i++)
        size += strlen(found.entries[i]->d_name) + 1;
    auto **const names = static_cast<char **>(malloc(size));
    if (!names)
        return nullptr;
    char *end = reinterpret_cast<char *>(names + count + 1);
    for (size_t i = 0; i < count; i++) {
        names[i] = end;
        end = stpcpy(end, found.entries[i]->d_name) + 1;
    }
    names[count] = nullptr;
    return names;
}

int list_configs(const context *ctx, char ***list)
{
    const directory_stream parent(ctx->confdir);
    if (!parent.stream)
        return UCI_ERR_NOTFOUND;
    listing found;
    found.count = scandir(ctx->confdir, &found.entries, may_be_config, by_bytes);
    if (found.count < 0)
        return UCI_ERR_NOTFOUND;
    keep_files(found, parent.stream);
    if (found.count == 0)
        return UCI_ERR_NOTFOUND;
    char **const names = pack(found);
    if (!names)
        return UCI_ERR_MEM;
    *list = names;
    return UCI_OK;
}

} // namespace

text join_path(const char *directory, const char *name)
{
    char *path = nullptr;
    return text(asprintf(&path, "%s/%s", directory, name) < 0 ? nullptr : path);
}

} // namespace uci

uci_context *uci_alloc_context(void)
{
    auto *const ctx = static_cast<uci::context *>(calloc(1, sizeof(uci::context)));
    if (!ctx)
        return nullptr;
    uci::list_init(&ctx->root);
    uci::list_init(&ctx->delta_path);
    ctx->flags = static_cast<uci_flags>(UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
    if (uci_set_confdir(ctx, UCI_CONFDIR) != UCI_OK || uci_set_conf2dir(ctx, UCI_CONF2DIR) != UCI_OK ||
        uci_set_savedir(ctx, UCI_SAVEDIR) != UCI_OK) {
        uci_free_context(ctx);
        return nullptr;
    }
    return ctx;
}

void uci_free_context(uci_context *ctx)
{
    if (!ctx)
        return;
    while (!uci_list_empty(&ctx->root))
        uci::free_package(uci::full(uci_to_package(list_to_element(ctx->root.next))));
    uci::free_elements(&ctx->delta_path);
    free(ctx->confdir);
    free(ctx->savedir);
    free(ctx->conf2dir);
    free(ctx);
}

int uci_set_confdir(uci_context *ctx, const char *dir)
{
    return uci::run_call(ctx, [&](uci::context *) { return uci::set_directory(&ctx->confdir, dir); });
}

int uci_set_savedir(uci_context *ctx, const char *dir)
{
    return uci::run_call(ctx, [&](uci::context *full) { return uci::set_save_directory(full, dir); });
}

int uci_add_delta_path(uci_context *ctx, const char *dir)
{
    return uci::run_call(ctx, [&](uci::context *full) { return uci::add_delta_directory(full, dir); });
}

int uci_set_conf2dir(uci_context *ctx, const char *dir)
{
    return uci::run_call(ctx, [&](uci::context *) -> int {
        if (dir && *dir)
            return uci::set_directory(&ctx->conf2dir, dir);
        free(ctx->conf2dir);
        ctx->conf2dir = nullptr;
        return UCI_OK;
    });
}

int uci_list_configs(uci_context *ctx, char ***list)
{
    return uci::run_call(ctx, [&](uci::context *full) -> int {
        return list ? uci::list_configs(full, list) : static_cast<int>(UCI_ERR_INVAL);
    });
}
