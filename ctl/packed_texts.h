// Tables without pointers: of a position-independent program each pointer in a table costs its own bytes, a
// relocation three times as long, and work and memory at every start. The table stays as it is written; the
// compiler makes of its texts one text, in which they stand one behind the other.
#pragma once

#include <cstddef>
#include <cstring>
#include <iterator>
#include <string_view>

template <size_t size> struct packed_texts {
    char text[size];
};

// Walks such a text: the text behind this one.
inline const char *next_text(const char *text)
{
    return text + strlen(text) + 1;
}

// The columns of a table of constants, row by row, each text with its terminator and null as an empty one. An
// empty text stands at the end: pack<commands, &command::usage, &command::help>().
template <const auto &rows, auto... columns> consteval auto pack()
{
    constexpr auto text_of = [](const char *text) { return std::string_view(text ? text : ""); };
    constexpr size_t size = [=] {
        size_t sum = 1;
        for (const auto &row : rows)
            ((sum += text_of(row.*columns).size() + 1), ...);
        return sum;
    }();
    packed_texts<size> packed = {};
    size_t used = 0;
    const auto append = [&](std::string_view text) {
        for (const char character : text)
            packed.text[used++] = character;
        used++;
    };
    for (const auto &row : rows)
        (append(text_of(row.*columns)), ...);
    return packed;
}
