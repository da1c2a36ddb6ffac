// Delta files: the pending changes of a package, one per line.
#pragma once

#include <cstddef>
#include <cstdio>

#include "memory.h"
#include "model.h"
#include "words.h"

namespace uci {

// Reads the well-formed lines of a delta file that concern one package.
class delta_reader {
public:
    struct line {
        uci_command command;
        uci_ptr what;      // names only; they point into the text
        size_t begin, end; // of the line in the text, its newline included
    };

    // The text is changed on the way and must live as long as what is read from it.
    delta_reader(const char *package_name, bytes &source)
        : package_name_(package_name), words_(source.data.get(), source.size)
    {}

    // Goes to the next line; false: there is none.
    bool next(line *out);

private:
    bool read_line(line *out);

    const char *package_name_;
    word_reader words_;
};

// How much of a delta text is made of finished lines. A line whose quotes are still open at the end of the
// text is what a stopped writer leaves; it can never be read and would draw in all that is appended.
size_t finished_size(bytes source);

void write_change(FILE *stream, const char *package_name, const uci_delta *delta);

// Applies the lines of a delta file to a package, counts those that could be applied, and keeps the
// well-formed ones in saved_delta if the context wants that. UCI_ERR_MEM is the only failure.
int apply_delta(package *p, bytes source, size_t *applied);

} // namespace uci
