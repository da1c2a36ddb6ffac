// Writes packages as configuration text.
#include "export.h"

namespace uci {
namespace {

// `keyword` comes with what stands around it.
void write_line(FILE *stream, const char *keyword, const char *name, const char *value)
{
    fputs(keyword, stream);
    fputs(name, stream);
    putc(' ', stream);
    write_quoted(stream, value);
    putc('\n', stream);
}

void write_option(FILE *stream, const uci_option *o)
{
    if (o->type == UCI_TYPE_STRING) {
        write_line(stream, "\toption ", o->e.name, o->v.string);
        return;
    }
    uci_element *item;
    uci_foreach_element(&o->v.list, item) write_line(stream, "\tlist ", o->e.name, item->name);
}

void write_section(FILE *stream, const uci_section *s, bool with_generated_name)
{
    fprintf(stream, "\nconfig %s", s->type);
    if (!s->anonymous || with_generated_name) {
        putc(' ', stream);
        write_quoted(stream, s->e.name);
    }
    putc('\n', stream);
    uci_element *e;
    uci_foreach_element(&s->options, e) write_option(stream, uci_to_option(e));
}

} // namespace

void write_quoted(FILE *stream, const char *value)
{
    putc('\'', stream);
    for (const char *quote; (quote = strchr(value, '\'')) != nullptr; value = quote + 1) {
        fwrite(value, 1, static_cast<size_t>(quote - value), stream);
        fputs("'\\''", stream);
    }
    fputs(value, stream);
    putc('\'', stream);
}

void write_package(FILE *stream, const uci_package *p, heading head)
{
    if (head == heading::package_line)
        fprintf(stream, "package %s\n", p->e.name);
    const bool with_generated_name = has_flag(p->ctx, UCI_FLAG_EXPORT_NAME);
    uci_element *e;
    uci_foreach_element(&p->sections, e) write_section(stream, uci_to_section(e), with_generated_name);
    putc('\n', stream);
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
