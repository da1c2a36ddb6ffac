// Everything that korvelctl prints passes here. Names and values come from configurations and from the bus,
// and whoever wrote them may be hostile: what is no printable ASCII character is shown, never sent.
#pragma once

#include "base/heap.h"
#include "ctl/exit_status.h"

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

// A text as vprintf makes it; that memory is out when it is.
class formatted_text {
public:
    formatted_text(const char *pattern, va_list arguments) __attribute__((format(printf, 2, 0)));
    const char *text() const { return text_ ? text_.get() : "out of memory"; }

private:
    heap_ptr<char> text_;
};

// Prints a text such that it cannot move a terminal: a backslash as \\, a line feed as \n, a tab as \t, every
// other byte that is no printable ASCII character as \xNN.
void put_shown(FILE *out, std::string_view text);

// The same as the cell of a table: filled with blanks to a width of at most 79 columns, or cut there, the
// last column then a '~'.
struct shown_cell {
    char text[80];
    shown_cell(std::string_view value, size_t width);
};

enum class colour : uint8_t { plain, bold, red, yellow };

// A line on standard output as long as this lives, which ends it. The colour is seen on a terminal only, and
// not when NO_COLOR is set.
class coloured_line {
public:
    explicit coloured_line(colour how);
    ~coloured_line();
    coloured_line(const coloured_line &) = delete;
    coloured_line &operator=(const coloured_line &) = delete;

    void put(const char *pattern, va_list arguments) const __attribute__((format(printf, 2, 0)));
    void put(std::string_view text) const { put_shown(stdout, text); }
    // As a cell of a table, and a blank.
    void put_cell(std::string_view text, size_t width) const;

private:
    bool coloured_;
};

// One line on standard output. Arguments are untrusted: the whole line is shown as by put_shown().
void say(const char *pattern, ...) __attribute__((format(printf, 1, 2)));
void say_in(colour how, const char *pattern, ...) __attribute__((format(printf, 2, 3)));
// The line "korvelctl: …" on standard error.
void warn(const char *pattern, ...) __attribute__((format(printf, 1, 2)));

// Whether the output is JSON. Set by the option --json, before anything is printed.
bool output_is_json();
void output_as_json();
bool output_is_terminal();

// Tells a failure, as `warn` does or as {"ok":false,"exit":N,"message":"…"} on standard output, and returns
// its status.
exit_status fail(exit_status status, const char *pattern, ...) __attribute__((format(printf, 2, 3)));

// Tells what a command did, in a sentence or as {"ok":true,"result":"…","wanId":N,"wanName":"…"} on standard
// output, and returns `done`. Without an identifier, which is 0 then, the name is called "name"; an empty one
// is left out.
exit_status tell_result(const char *what, uint8_t wan_id, const char *name, const char *pattern, ...)
    __attribute__((format(printf, 4, 5)));

// Writes JSON on standard output, on one line. All of it is ASCII: other characters are written as \uXXXX,
// and bytes that are no UTF-8 as \ufffd. Keys are the program's own; null where an array has its entries.
class json_writer {
public:
    void open_object(const char *key = nullptr) { open(key, '{'); }
    void close_object() { close('}'); }
    void open_array(const char *key = nullptr) { open(key, '['); }
    void close_array() { close(']'); }
    void text(const char *key, std::string_view value);
    void text(const char *key, const char *value);
    void number(const char *key, int64_t value);
    void flag(const char *key, bool value);
    // Ends the line.
    void end();
    // The object that a whole answer is: what is in every one that is good, and its end.
    void open_answer();
    void close_answer();

private:
    void begin(const char *key);
    void open(const char *key, char bracket);
    void close(char bracket);

    bool first_ = true;
};

// A JSON text with its quotes, as json_writer writes it; a quote ' is escaped too, so that the whole can
// stand between such in a shell's command line.
void put_json_text(FILE *out, std::string_view text);
