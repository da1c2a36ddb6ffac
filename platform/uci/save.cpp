// Appends changes to delta files, and takes them out again.
#include "save.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "delta.h"
#include "file.h"
#include "load.h"
#include "lookup.h"
#include "memory.h"
#include "words.h"
#include "write.h"

namespace uci {
namespace {

text delta_path_of(const package *p)
{
    return join_path(p->ctx->savedir, p->e.name);
}

int make_save_directory(const uci_context *ctx)
{
    if (mkdir(ctx->savedir, mode_of(ctx->confdir, UCI_DIRMODE)) == 0 || errno == EEXIST)
        return UCI_OK;
    return UCI_ERR_IO;
}

// The lines for all unsaved changes.
int format_changes(const package *p, bytes *out)
{
    char *data = nullptr;
    FILE *const stream = open_memstream(&data, &out->size);
    if (!stream)
        return UCI_ERR_MEM;
    uci_element *e;
    uci_foreach_element(&p->delta, e) write_change(stream, p->e.name, uci_to_delta(e));
    const bool complete = !ferror(stream);
    const bool closed = fclose(stream) == 0;
    out->data.reset(data);
    return complete && closed ? UCI_OK : UCI_ERR_MEM;
}

// Opens a delta file for appending and reads it. What zero bytes hide in it is taken out first: a line that
// came behind them would be hidden, too.
int open_delta(const char *path, mode_t mode, locked_file *file, bytes *content)
{
    for (;;) {
        int code = open_locked(path, locking::exclusive, when_missing::create, mode, file);
        if (code == UCI_OK)
            code = read_file(file->file.get(), content);
        if (code != UCI_OK)
            return code;
        const size_t size = drop_zero_bytes(content->data.get(), content->size);
        if (size == content->size)
            return UCI_OK;
        code = replace_file(path, content->data.get(), size);
        if (code != UCI_OK)
            return code;
    }
}

int append_to_delta(const package *p, const bytes &lines)
{
    const text path = delta_path_of(p);
    if (!path)
        return UCI_ERR_MEM;
    int code = make_save_directory(p->ctx);
    if (code != UCI_OK)
        return code;
    locked_file delta;
    bytes present;
    code = open_delta(path.get(), mode_of(p->path, UCI_FILEMODE), &delta, &present);
    if (code == UCI_OK)
        code =
            append_whole(delta.file.get(), finished_size(std::move(present)), lines.data.get(), lines.size);
    if (code == UCI_OK && !delta.file.close_checked())
        code = UCI_ERR_IO;
    // Here a missing or unfitting place to write to is no missing entry of the configuration.
    return code == UCI_ERR_NOTFOUND ? static_cast<int>(UCI_ERR_IO) : code;
}

// ---- reverting ----

struct reverted {
    text section; // null: all of the package
    text option;  // null: all of the section
};

bool concerns(const reverted &what, const uci_ptr &line)
{
    return strcmp(line.section, what.section.get()) == 0 &&
           (!what.option || (line.option && strcmp(line.option, what.option.get()) == 0));
}

// Removes from a delta text the lines that concern a section or option, and what zero bytes hide; every other
// byte stays.
int remove_lines(const package *p, const reverted &what, bytes *source)
{
    source->size = drop_zero_bytes(source->data.get(), source->size);
    bytes scratch = {text(static_cast<char *>(malloc(source->size + 1))), source->size};
    if (!scratch.data)
        return UCI_ERR_MEM;
    memcpy(scratch.data.get(), source->data.get(), source->size);
    delta_reader reader(p->e.name, scratch);
    char *const data = source->data.get();
    size_t kept = 0, copied_to = 0;
    delta_reader::line line;
    while (reader.next(&line)) {
        if (!concerns(what, line.what))
            continue;
        memmove(data + kept, data + copied_to, line.begin - copied_to);
        kept += line.begin - copied_to;
        copied_to = line.end;
    }
    memmove(data + kept, data + copied_to, source->size - copied_to);
    source->size = kept + source->size - copied_to;
    return UCI_OK;
}

int rewrite_delta(const package *p, const reverted &what)
{
    const text path = delta_path_of(p);
    if (!path)
        return UCI_ERR_MEM;
    locked_file delta;
    int code = open_locked(path.get(), locking::exclusive, when_missing::fail, 0, &delta);
    if (code != UCI_OK)
        return code == UCI_ERR_NOTFOUND ? static_cast<int>(UCI_OK) : code;
    if (!what.section)
        return ftruncate(delta.file.get(), 0) == 0 ? UCI_OK : UCI_ERR_IO;
    bytes lines;
    code = read_file(delta.file.get(), &lines);
    const size_t old_size = lines.size;
    if (code == UCI_OK)
        code = remove_lines(p, what, &lines);
    if (code != UCI_OK || lines.size == old_size)
        return code;
    return replace_file(path.get(), lines.data.get(), lines.size);
}

// Names are copied: those in ptr may belong to the package that is about to be loaded anew.
int copy_names(const uci_ptr *ptr, reverted *out)
{
    const char *const section = ptr->s ? ptr->s->e.name : ptr->section;
    const char *const option = ptr->o ? ptr->o->e.name : ptr->option;
    if (section)
        out->section = copy_text(section);
    if (option)
        out->option = copy_text(option);
    return (section && !out->section) || (option && !out->option) ? UCI_ERR_MEM : UCI_OK;
}

int reload(context *ctx, uci_ptr *ptr)
{
    const text name = copy_text(ptr->p->e.name);
    if (!name)
        return UCI_ERR_MEM;
    if (ptr->s && ptr->section == ptr->s->e.name)
        ptr->section = nullptr;
    if (ptr->package == ptr->p->e.name)
        ptr->package = nullptr;
    free_package(full(ptr->p));
    ptr->p = nullptr;
    ptr->s = nullptr;
    ptr->o = nullptr;
    ptr->last = nullptr;
    const int code = load(ctx, name.get(), &ptr->p);
    if (code == UCI_OK)
        ptr->last = &ptr->p->e;
    return code;
}

int revert(context *ctx, uci_ptr *ptr)
{
    package *const p = full(ptr->p);
    if (!p->has_delta)
        return UCI_ERR_INVAL;
    reverted what;
    int code = copy_names(ptr, &what);
    if (code == UCI_OK)
        code = save(p);
    if (code == UCI_OK)
        code = rewrite_delta(p, what);
    return code == UCI_OK ? reload(ctx, ptr) : code;
}

} // namespace

int save(package *p)
{
    if (!p->has_delta)
        return write_plain(p, /*overwrite=*/false);
    if (uci_list_empty(&p->delta))
        return UCI_OK;
    bytes lines;
    int code = format_changes(p, &lines);
    if (code == UCI_OK)
        code = append_to_delta(p, lines);
    if (code == UCI_OK)
        free_changes(&p->delta);
    return code;
}

} // namespace uci

int uci_save(uci_context *ctx, uci_package *p)
{
    return uci::run_call(
        ctx, [&](uci::context *) { return p ? uci::save(uci::full(p)) : static_cast<int>(UCI_ERR_INVAL); });
}

int uci_revert(uci_context *ctx, uci_ptr *ptr)
{
    return uci::run_on_resolved(ctx, ptr,
                                [&](uci_ptr *resolved) { return uci::revert(uci::full(ctx), resolved); });
}
