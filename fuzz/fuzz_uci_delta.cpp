// Feeds bytes to the reader of delta files, and checks that the changes read from them, written as the
// library writes changes, have the same effect.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <uci.h>

#include "delta.h"
#include "export.h"
#include "parse.h"

namespace {

constexpr char base_config[] = "config globals 'g'\n\toption u '1'\n"
                               "config device\n\toption name 'br-lan'\n\tlist ports 'a'\n\tlist ports 'b'\n"
                               "config interface 'lan'\n\toption proto 'static'\n"
                               "config device\n\toption name 'pon.1'\n";

struct free_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context_owner = std::unique_ptr<uci_context, free_context>;

void require(bool condition)
{
    if (!condition)
        abort();
}

uci::bytes copy_of(const std::string &text)
{
    uci::bytes result = {uci::text(static_cast<char *>(malloc(text.size() + 1))), text.size()};
    memcpy(result.data.get(), text.c_str(), text.size() + 1);
    return result;
}

uci::package *new_base(uci_context *ctx)
{
    uci::package *const p = uci::new_package(uci::full(ctx), "n");
    uci::list_append(&ctx->root, &p->e.list);
    require(uci::parse_package(p, copy_of(base_config)) == UCI_OK);
    return p;
}

std::string export_of(const uci::package *p)
{
    uci::bytes text;
    require(uci::export_text(p, &text) == UCI_OK);
    return {text.data.get(), text.size};
}

std::string canonical_lines(const uci::package *p)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    uci_element *e;
    uci_foreach_element(&p->saved_delta, e) uci::write_change(stream, p->e.name, uci_to_delta(e));
    fclose(stream);
    const std::string lines(data, size);
    free(data);
    return lines;
}

// The index and the lists must agree on which element a name means.
void check_names(uci::package *p)
{
    uci_element *s, *o;
    uci_foreach_element(&p->sections, s)
    {
        require(uci::find_section(p, s->name) == uci_to_section(uci::find_element(&p->sections, s->name)));
        uci_list *const options = &uci_to_section(s)->options;
        uci_foreach_element(options, o)
        {
            require(uci::find_option(uci_to_section(s), o->name) ==
                    uci_to_option(uci::find_element(options, o->name)));
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const context_owner first(uci_alloc_context()), second(uci_alloc_context());
    uci::package *const p = new_base(first.get());
    size_t applied = 0;
    require(uci::apply_delta(p, copy_of({reinterpret_cast<const char *>(data), size}), &applied) == UCI_OK);
    check_names(p);

    uci::package *const again = new_base(second.get());
    const std::string lines = canonical_lines(p);
    size_t applied_again = 0;
    require(uci::apply_delta(again, copy_of(lines), &applied_again) == UCI_OK);
    require(applied_again == applied);
    require(export_of(again) == export_of(p));
    require(canonical_lines(again) == lines);
    return 0;
}
