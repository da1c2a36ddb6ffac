#include "base/log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <syslog.h>

namespace {

constexpr size_t text_size = 2048;
constexpr char cut_mark[] = "...";

// What clients and configurations put into a message must not look like the end of it or like one of somebody
// else, nor move a terminal's cursor. Bytes beyond ASCII count as unprintable: what they mean depends on the
// reader.
bool is_printable(char character)
{
    return character >= ' ' && character <= '~';
}

void log_text(int priority, const char *pattern, va_list arguments)
{
    char text[text_size] = {};
    const int whole = vsnprintf(text, sizeof(text), pattern, arguments);
    const size_t length = strlen(text);
    for (size_t i = 0; i < length; i++)
        if (!is_printable(text[i]))
            text[i] = '?';

    if (whole >= static_cast<int>(sizeof(text)))
        memcpy(text + length - strlen(cut_mark), cut_mark, sizeof(cut_mark));
    else if (length > 0 &&
             std::string_view(pattern).back() == '\n') // some messages end in a line feed of their own
        text[length - 1] = '\n';
    syslog(priority, "%s", text);
}

} // namespace

void log_open()
{
    openlog("korvel", LOG_CONS | LOG_PID, LOG_DAEMON);
}

void log_close()
{
    closelog();
}

void log_error(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    log_text(LOG_ERR, pattern, arguments);
    va_end(arguments);
}

void log_warning(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    log_text(LOG_WARNING, pattern, arguments);
    va_end(arguments);
}

void log_info(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    log_text(LOG_INFO, pattern, arguments);
    va_end(arguments);
}
