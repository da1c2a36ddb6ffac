// Writes packages as configuration text.
#include "export.h"

#include <cstdio>
#include <cstring>

namespace uci {
namespace {

// The stream's lock, once for many small pieces: taking it takes longer than to write one.
class stream_lock {
public:
    explicit stream_lock(FILE *stream) : stream_(stream) { flockfile(stream_); }
    ~stream_lock() { funlockfile(stream_); }
    stream_lock(const stream_lock &) = delete;
    stream_lock &operator=(const stream_lock &) = delete;

private:
    FILE *stream_;
};

void put(FILE *stream, const char *text)
{
    fwrite_unlocked(text, 1, strlen(text), stream);
}

void put_quoted(FILE *stream, const char *value)
{
    putc_unlocked('\'', stream);
    for (const char *quote; (quote = strchr(value, '\'')) != nullptr; value = quote + 1) {
        fwrite_unlocked(value, 1, static_cast<size_t>(quote - value), stream);
        put(stream, "'\\''");
    }
    put(stream, value);
    putc_unlocked('\'', stream);
}

// `keyword` comes with what stands around it.
void put_line(FILE *stream, const char *keyword, const char *name, const char *value)
{
    put(stream, keyword);
    put(stream, name);
    putc_unlocked(' ', stream);
    put_quoted(stream, value);
    putc_unlocked('\n', stream);
}

void put_option(FILE *stream, const uci_option *o)
{
    if (o->type == UCI_TYPE_STRING) {
        put_line(stream, "\toption ", o->e.name, o->v.string);
        return;
    }
    uci_element *item;
    uci_foreach_element(&o->v.list, item) put_line(stream, "\tlist ", o->e.name, item->name);
}

void put_section(FILE *stream, const uci_section *s, bool with_generated_name)
{
    put(stream, "\nconfig ");
    put(stream, s->type);
    if (!s->anonymous || with_generated_name) {
        putc_unlocked(' ', stream);
        put_quoted(stream, s->e.name);
    }
    putc_unlocked('\n', stream);
    uci_element *e;
    uci_foreach_element(&s->options, e) put_option(stream, uci_to_option(e));
}

} // namespace

void write_quoted(FILE *stream, const char *value)
{
    const stream_lock lock(stream);
    put_quoted(stream, value);
}

void write_package(FILE *stream, const uci_package *p, heading head)
{
    const stream_lock lock(stream);
    if (head == heading::package_line) {
        put(stream, "package ");
        put(stream, p->e.name);
        putc_unlocked('\n', stream);
    }
    const bool with_generated_name = has_flag(p->ctx, UCI_FLAG_EXPORT_NAME);
    uci_element *e;
    uci_foreach_element(&p->sections, e) put_section(stream, uci_to_section(e), with_generated_name);
    putc_unlocked('\n', stream);
}

int export_text(const uci_package *p, bytes *out)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    if (!stream)
        return UCI_ERR_MEM;
    write_package(stream, p, heading::none);
    const bool complete = !ferror(stream);
    const bool closed = fclose(stream) == 0;
    out->data.reset(data); // known only once the stream is closed
    out->size = size;
    return complete && closed ? UCI_OK : UCI_ERR_MEM;
}

} // namespace uci

int uci_export(uci_context *ctx, FILE *stream, uci_package *package, bool header)
{
    return uci::run_call(ctx, [&](uci::context *) -> int {
        if (!stream)
            return UCI_ERR_INVAL;
        const auto head = header ? uci::heading::package_line : uci::heading::none;
        if (package) {
            uci::write_package(stream, package, head);
        } else {
            uci_element *e;
            uci_foreach_element(&ctx->root, e) uci::write_package(stream, uci_to_package(e), head);
        }
        return ferror(stream) ? UCI_ERR_IO : UCI_OK;
    });
}
