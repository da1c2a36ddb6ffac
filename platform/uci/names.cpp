// The character rules of UCI names and values.
#include "names.h"

#include <uci.h>

namespace uci {
namespace {

// Locale-independent on purpose: a gateway's file must mean the same everywhere.
bool is_name_byte(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

bool is_package_line_byte(char c)
{
    return is_name_byte(c) || c == '-';
}

bool is_visible_byte(char c)
{
    return c >= '!' && c <= '~';
}

bool consists_of(const char *text, bool (*allowed)(char))
{
    if (!text || !*text)
        return false;
    for (; *text; text++)
        if (!allowed(*text))
            return false;
    return true;
}

} // namespace

bool valid_name(const char *text)
{
    return consists_of(text, is_name_byte);
}

bool valid_type(const char *text)
{
    return consists_of(text, is_visible_byte);
}

bool valid_package(const char *text)
{
    return consists_of(text, is_visible_byte);
}

bool valid_package_line(const char *text)
{
    return consists_of(text, is_package_line_byte);
}

} // namespace uci

bool uci_validate_text(const char *str)
{
    if (!str)
        return false;
    for (; *str; str++) {
        const auto byte = static_cast<unsigned char>(*str);
        if (byte < ' ' && byte != '\t' && byte != '\n' && byte != '\r')
            return false;
    }
    return true;
}
