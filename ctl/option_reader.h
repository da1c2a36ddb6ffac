// The command line of a subcommand: options with names, and words.
#pragma once

#include "ctl/exit_status.h"
#include "ctl/packed_texts.h"

#include <cstdint>
#include <span>

// An option of a subcommand, without its two dashes. `takes` names its value in the help; empty for a switch.
struct option_row {
    const char *name;
    const char *takes;
    const char *help;
    int id; // what option_reader::next() answers: its row's number
};

// The options of a subcommand, from its table of them.
template <const auto &rows> consteval auto pack_options()
{
    for (size_t i = 0; i < std::size(rows); i++)
        if (rows[i].id != static_cast<int>(i))
            __builtin_unreachable(); // the table is out of order
    return pack<rows, &option_row::name, &option_row::takes, &option_row::help>();
}

// Walks such options: takes the next one off. False: there are no more.
bool next_option(const char *&options, option_row &row);

// Walks a command line. An option's value stands behind it, or behind a '='. Behind "--" all is words.
class option_reader {
public:
    // The options as pack_options() makes them; "" is none.
    option_reader(const char *options, std::span<char *const> words) : options_(options), words_(words) {}

    enum : int { end = -1, word = -2, wrong = -3 };
    // The next option's id with its name and its value, or a word, in `value`; `end`, or `wrong`, which has
    // been told.
    int next();
    const char *name = nullptr;
    const char *value = nullptr;

private:
    int take_option(const char *text);
    bool take_named(const char *options, const char *text, int &id_out);
    int take_common(int id);

    const char *options_;
    std::span<char *const> words_;
    bool only_words_ = false;
};

// Reads the command line of a subcommand that takes one switch (of `options`) and one word at most; null
// where there is no place for them. A word too many is told of between `before` and `behind`.
exit_status read_short_line(std::span<char *const> words, const char *before, const char *behind = "",
                            const char *options = "", bool *switched_out = nullptr,
                            const char **word_out = nullptr);

// The same of a subcommand that takes a WAN's identifier; 0 when there is none.
exit_status read_id_line(std::span<char *const> words, const char *before, uint8_t *id_out,
                         const char *options = "", bool *switched_out = nullptr);

// Sets the output to JSON if the words ask for it, so that even what is wrong with them is told that way.
void choose_output(std::span<char *const> words);

// A whole decimal number, nothing around it. False: it is none, or is above `most`.
bool read_number(const char *text, uint32_t most, uint32_t *number_out);

// A WAN's identifier, 1 to 255; tells what is wrong.
exit_status read_wan_id(const char *text, uint8_t *id_out);

// How long a call may take, in milliseconds.
int call_timeout();
