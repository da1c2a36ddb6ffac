// The texts of error codes, with the position of a parse error.
#include "errors.h"

#include <cstdio>
#include <iterator>

namespace uci {
namespace {

constexpr const char *code_texts[] = {
    "Success",   "Out of memory", "Invalid argument", "Entry not found",
    "I/O error", "Parse error",   "Duplicate entry",  "Unknown error",
};
static_assert(std::size(code_texts) == UCI_ERR_LAST);

const char *text_of(int code)
{
    return code_texts[code >= 0 && code < UCI_ERR_LAST ? code : UCI_ERR_UNKNOWN];
}

} // namespace

text error_text(const context *ctx, int code, const char *prefix)
{
    const char *const lead = prefix ? prefix : "";
    const char *const separator = prefix ? ": " : "";
    char *result = nullptr;
    int length;
    if (code == UCI_ERR_PARSE && ctx && ctx->failure.reason)
        length = asprintf(&result, "%s%s%s (%s) at line %zu, byte %zu", lead, separator, text_of(code),
                          ctx->failure.reason, ctx->failure.line, ctx->failure.byte);
    else
        length = asprintf(&result, "%s%s%s", lead, separator, text_of(code));
    return text(length < 0 ? nullptr : result);
}

} // namespace uci

void uci_get_errorstr(uci_context *ctx, char **dest, const char *prefix)
{
    if (dest)
        *dest = uci::error_text(uci::full(ctx), ctx ? ctx->err : UCI_ERR_INVAL, prefix).release();
}

void uci_perror(uci_context *ctx, const char *prefix)
{
    const uci::text message = uci::error_text(uci::full(ctx), ctx ? ctx->err : UCI_ERR_INVAL, prefix);
    if (message)
        fprintf(stderr, "%s\n", message.get());
}
