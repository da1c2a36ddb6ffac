// Feeds bytes to the parser of configuration files, and checks that what it exports reads back as the same.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include <uci.h>

namespace {

struct free_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};
using context_owner = std::unique_ptr<uci_context, free_context>;

enum class naming { by_caller, by_stream };

void require(bool condition)
{
    if (!condition)
        abort();
}

int import(uci_context *ctx, const std::string &text, naming mode)
{
    FILE *const stream = fmemopen(const_cast<char *>(text.data()), text.size(), "r");
    require(stream != nullptr);
    uci_package *p = nullptr;
    const int code =
        uci_import(ctx, stream, mode == naming::by_caller ? "n" : nullptr, &p, mode == naming::by_caller);
    fclose(stream);
    require(code == UCI_OK || uci_list_empty(&ctx->root));
    return code;
}

std::string exported(uci_context *ctx, bool header)
{
    char *data = nullptr;
    size_t size = 0;
    FILE *const stream = open_memstream(&data, &size);
    require(uci_export(ctx, stream, nullptr, header) == UCI_OK);
    fclose(stream);
    const std::string text(data, size);
    free(data);
    return text;
}

// Types are written without quotes, so these bytes in them mean something else when read again.
bool types_survive(uci_context *ctx)
{
    uci_element *p, *s;
    uci_foreach_element(&ctx->root, p)
    {
        uci_foreach_element(&uci_to_package(p)->sections, s)
        {
            if (strpbrk(uci_to_section(s)->type, "'\"#;\\"))
                return false;
        }
    }
    return true;
}

void check_strict(const std::string &text, naming mode)
{
    const context_owner first(uci_alloc_context());
    if (import(first.get(), text, mode) != UCI_OK) {
        char *message = nullptr;
        uci_get_errorstr(first.get(), &message, "p");
        require(message != nullptr);
        free(message);
        return;
    }
    if (!types_survive(first.get()))
        return;
    const std::string once = exported(first.get(), mode == naming::by_stream);
    const context_owner second(uci_alloc_context());
    require(import(second.get(), once, mode) == UCI_OK);
    require(exported(second.get(), mode == naming::by_stream) == once);
}

void check_lenient(const std::string &text)
{
    const context_owner ctx(uci_alloc_context());
    ctx->flags = UCI_FLAG_SAVED_DELTA;
    require(import(ctx.get(), text, naming::by_caller) == UCI_OK);
    exported(ctx.get(), true);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    check_strict(text, naming::by_caller);
    check_strict(text, naming::by_stream);
    check_lenient(text);
    return 0;
}
