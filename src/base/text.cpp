#include "base/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

void text_ref::set(const char *value) const
{
    set(std::string_view(value));
}

void text_ref::set(std::string_view value) const
{
    const size_t length = value.size() < size ? value.size() : size;
    memcpy(data, value.data(), length);
    memset(data + length, 0, size - length);
}

bool text_ref::format(const char *pattern, ...) const
{
    va_list arguments;
    va_start(arguments, pattern);
    const int length = vsnprintf(data, size, pattern, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<size_t>(length) < size;
}

int text_number(const char *text)
{
    constexpr int most_digits = 9; // that fit in any case, and behind which there is usually nothing
    int number = 0, digits = 0;
    for (; digits <= most_digits && text[digits] >= '0' && text[digits] <= '9'; digits++)
        number = digits < most_digits ? number * 10 + (text[digits] - '0') : 0;
    const bool is_usual = digits > 0 && digits <= most_digits;
    return is_usual ? number : static_cast<int>(strtoll(text, nullptr, 10));
}
