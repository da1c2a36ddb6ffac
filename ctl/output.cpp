#include "ctl/output.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constinit bool as_json = false;

bool is_printable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7f;
}

// How one byte is shown: at most 4 characters.
struct shown_byte {
    char text[5];
    explicit shown_byte(unsigned char byte)
    {
        if (byte == '\\' || byte == '\n' || byte == '\t')
            (void)snprintf(text, sizeof(text), "\\%c", byte == '\n' ? 'n' : byte == '\t' ? 't' : '\\');
        else if (is_printable(byte))
            (void)snprintf(text, sizeof(text), "%c", byte);
        else
            (void)snprintf(text, sizeof(text), "\\x%02x", byte);
    }
};

bool has_colours()
{
    const char *const term = getenv("TERM");
    return output_is_terminal() && !getenv("NO_COLOR") && !(term && strcmp(term, "dumb") == 0);
}

const char *colour_code(colour how)
{
    switch (how) {
    case colour::bold:
        return "\033[1m";
    case colour::red:
        return "\033[31m";
    case colour::yellow:
        return "\033[33m";
    case colour::plain:
        break;
    }
    return "";
}

// Takes one character of UTF-8 off the text. Returns its code, or U+FFFD for one byte that begins none.
uint32_t take_character(std::string_view &text)
{
    constexpr uint32_t replacement = 0xfffd;
    const auto at = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = at(0);
    const size_t length = lead < 0x80                   ? 1
                          : lead >= 0xc2 && lead < 0xe0 ? 2
                          : lead >= 0xe0 && lead < 0xf0 ? 3
                          : lead >= 0xf0 && lead < 0xf5 ? 4
                                                        : 0;
    uint32_t code = length == 1 ? lead : lead & (0x7fU >> length);
    bool good = length > 0 && length <= text.size();
    for (size_t i = 1; good && i < length; i++) {
        good = (at(i) & 0xc0) == 0x80;
        code = code << 6 | (at(i) & 0x3fU);
    }
    constexpr uint32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000};
    good = good && code >= lowest[length] && code <= 0x10ffff && (code < 0xd800 || code > 0xdfff);
    text.remove_prefix(good ? length : 1);
    return good ? code : replacement;
}

} // namespace

formatted_text::formatted_text(const char *pattern, va_list arguments)
{
    char *made = nullptr;
    if (vasprintf(&made, pattern, arguments) >= 0)
        text_.reset(made);
}

void put_shown(FILE *out, std::string_view text)
{
    for (const char character : text)
        (void)fputs(shown_byte(static_cast<unsigned char>(character)).text, out);
}

shown_cell::shown_cell(std::string_view value, size_t width)
{
    width = width < sizeof(text) ? width : sizeof(text) - 1;
    size_t used = 0;
    bool cut = false;
    for (const char character : value) {
        const shown_byte shown(static_cast<unsigned char>(character));
        const size_t length = strlen(shown.text);
        cut = used + length > width;
        if (cut)
            break;
        memcpy(text + used, shown.text, length);
        used += length;
    }
    memset(text + used, ' ', width - used);
    if (cut && width > 0)
        text[width - 1] = '~';
    text[width] = '\0';
}

coloured_line::coloured_line(colour how) : coloured_(how != colour::plain && has_colours())
{
    if (coloured_)
        (void)fputs(colour_code(how), stdout);
}

coloured_line::~coloured_line()
{
    (void)fputs(coloured_ ? "\033[0m\n" : "\n", stdout);
}

void coloured_line::put(const char *pattern, va_list arguments) const
{
    put(formatted_text(pattern, arguments).text());
}

void coloured_line::put_cell(std::string_view text, size_t width) const
{
    (void)fputs(shown_cell(text, width).text, stdout);
    (void)fputc(' ', stdout);
}

void say(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    coloured_line(colour::plain).put(pattern, arguments);
    va_end(arguments);
}

void say_in(colour how, const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    coloured_line(how).put(pattern, arguments);
    va_end(arguments);
}

void warn(const char *pattern, ...)
{
    (void)fputs("korvelctl: ", stderr);
    va_list arguments;
    va_start(arguments, pattern);
    put_shown(stderr, formatted_text(pattern, arguments).text());
    va_end(arguments);
    (void)fputc('\n', stderr);
}

bool output_is_json()
{
    return as_json;
}

void output_as_json()
{
    as_json = true;
}

bool output_is_terminal()
{
    return isatty(STDOUT_FILENO) == 1;
}

exit_status fail(exit_status status, const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    const formatted_text message(pattern, arguments);
    va_end(arguments);
    if (!as_json) {
        warn("%s", message.text());
        return status;
    }
    json_writer json;
    json.open_object();
    json.flag("ok", false);
    json.number("exit", static_cast<int64_t>(status));
    json.text("message", message.text());
    json.close_answer();
    return status;
}

exit_status tell_result(const char *what, uint8_t wan_id, const char *name, const char *pattern, ...)
{
    if (!as_json) {
        va_list arguments;
        va_start(arguments, pattern);
        coloured_line(colour::plain).put(pattern, arguments);
        va_end(arguments);
        return exit_status::done;
    }
    json_writer json;
    json.open_answer();
    json.text("result", what);
    if (wan_id != 0)
        json.number("wanId", wan_id);
    if (name[0] != '\0')
        json.text(wan_id != 0 ? "wanName" : "name", name);
    json.close_answer();
    return exit_status::done;
}

void put_json_text(FILE *out, std::string_view text)
{
    (void)fputc('"', out);
    while (!text.empty()) {
        const uint32_t code = take_character(text);
        if (code == '"' || code == '\\')
            (void)fprintf(out, "\\%c", static_cast<int>(code));
        else if (code != '\'' && code < 0x80 && is_printable(static_cast<unsigned char>(code)))
            (void)fputc(static_cast<int>(code), out);
        else if (code < 0x10000)
            (void)fprintf(out, "\\u%04x", code);
        else
            (void)fprintf(out, "\\u%04x\\u%04x", 0xd800 + ((code - 0x10000) >> 10),
                          0xdc00 + ((code - 0x10000) & 0x3ff));
    }
    (void)fputc('"', out);
}

void json_writer::begin(const char *key)
{
    if (!first_)
        (void)fputc(',', stdout);
    first_ = false;
    if (!key)
        return;
    put_json_text(stdout, key);
    (void)fputc(':', stdout);
}

void json_writer::open(const char *key, char bracket)
{
    begin(key);
    (void)fputc(bracket, stdout);
    first_ = true;
}

void json_writer::close(char bracket)
{
    (void)fputc(bracket, stdout);
    first_ = false;
}

void json_writer::text(const char *key, std::string_view value)
{
    begin(key);
    put_json_text(stdout, value);
}

void json_writer::text(const char *key, const char *value)
{
    text(key, std::string_view(value));
}

void json_writer::number(const char *key, int64_t value)
{
    begin(key);
    (void)printf("%lld", static_cast<long long>(value));
}

void json_writer::flag(const char *key, bool value)
{
    begin(key);
    (void)fputs(value ? "true" : "false", stdout);
}

void json_writer::open_answer()
{
    open_object();
    flag("ok", true);
}

void json_writer::close_answer()
{
    close_object();
    end();
}

void json_writer::end()
{
    (void)fputc('\n', stdout);
    (void)fflush(stdout);
    first_ = true;
}
