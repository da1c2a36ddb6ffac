// Fixed-size text fields: every write goes through a reference that carries the size.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

struct text_ref {
    char *data;
    size_t size; // bytes in the array, terminator included

    template <size_t N> constexpr text_ref(char (&array)[N]) : data(array), size(N) {}
    constexpr text_ref(char *array, size_t array_size) : data(array), size(array_size) {}

    // As strncpy: a short value is padded with NULs; a value of `size` bytes or more fills the array
    // unterminated.
    void set(const char *value) const;
    void set(std::string_view value) const;
    // As snprintf: always terminated, cut at size - 1. Returns whether the whole text fitted.
    bool format(const char *pattern, ...) const __attribute__((format(printf, 2, 3)));
    void clear() const { memset(data, 0, size); }
};

// What a text field holds, up to its terminator or its end.
template <size_t N> std::string_view text_view(const char (&array)[N])
{
    return {array, strnlen(array, N)};
}

template <size_t N> bool text_empty(const char (&array)[N])
{
    return array[0] == '\0';
}

// A terminated copy of a field that may be full.
template <size_t N> struct c_text {
    char data[N + 1];
    explicit c_text(const char (&array)[N])
    {
        memcpy(data, array, N);
        data[N] = '\0';
    }
    operator const char *() const { return data; }
};

// The leading decimal number of a text, as atoi reads it: blanks and a sign before it, anything behind it
// ignored, 0 when there is none; a value beyond an int keeps its low bits.
int text_number(const char *text);
