// The command line of a subcommand: options with names, and words.
#pragma once

#include "ctl/exit_status.h"

#include <cstdint>
#include <span>

// An option of a subcommand, without its two dashes. `takes` names its value in the help; null for a switch.
struct option_row {
    const char *name;
    const char *takes;
    const char *help;
    int id; // what option_reader::next() answers, 0 or more
};

// Every subcommand has these too; the reader acts on them itself.
inline constexpr option_row common_options[] = {
    {"json", nullptr, "print JSON, one line", 0},
    {"timeout", "SECONDS", "how long to wait for an answer, 120 when not given", 1},
};

// Walks a command line. An option's value stands behind it, or behind a '='. Behind "--" all is words.
class option_reader {
public:
    option_reader(std::span<const option_row> rows, std::span<char *const> words) : rows_(rows), words_(words)
    {}

    enum : int { end = -1, word = -2, wrong = -3 };
    // The next option's id with its value, or a word, in `value`; `end`, or `wrong`, which has been told.
    int next();
    const char *value = nullptr;

private:
    int take_option(const char *text);
    int take_common(const option_row &row);

    std::span<const option_row> rows_;
    std::span<char *const> words_;
    bool only_words_ = false;
};

// Sets the output to JSON if the words ask for it, so that even what is wrong with them is told that way.
void choose_output(std::span<char *const> words);

// A whole decimal number, nothing around it. False: it is none, or is above `most`.
bool read_number(const char *text, uint32_t most, uint32_t *number_out);

// A WAN's identifier, 1 to 255; tells what is wrong.
exit_status read_wan_id(const char *text, uint8_t *id_out);

// How long a call may take, in milliseconds.
int call_timeout();
