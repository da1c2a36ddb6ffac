// Reads batch lines as they arrive and runs them.
#include "batch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "model.h"
#include "words.h"

namespace uci_tool {
namespace {

constexpr size_t max_words = 3;

enum class line_state {
    complete,
    open, // a quote or a backslash at the end draws in the next line
    too_long,
};

struct split_line {
    line_state state;
    std::vector<char *> words;
    uci::parse_failure failure; // of a line that stays open at the end of the input; without reason: none
};

// Splits text, which is changed, into the words of its first command.
split_line split(std::string &text)
{
    split_line line = {line_state::complete, {}, {}};
    uci::word_reader reader(text.data(), text.size());
    if (!reader.next_line())
        return line;
    do {
        char *word;
        line.failure.reason = reader.next_word(&word);
        if (word && line.words.size() == max_words) {
            line.state = line_state::too_long;
            return line;
        }
        if (word)
            line.words.push_back(word);
    } while (!line.failure.reason && reader.end() == uci::word_end::gap);
    line.failure.line = reader.lines_read();
    line.failure.byte = reader.offset();
    if (reader.end() == uci::word_end::data)
        line.state = line_state::open;
    return line;
}

class line_source {
public:
    explicit line_source(FILE *stream) : stream_(stream) {}
    ~line_source() { free(line_); }

    bool append_to(std::string &text)
    {
        const ssize_t length = getline(&line_, &capacity_, stream_);
        if (length < 0)
            return false;
        text.append(line_, static_cast<size_t>(length));
        return true;
    }

private:
    FILE *stream_;
    char *line_ = nullptr;
    size_t capacity_ = 0;
};

void complain(const session &tool, const char *message)
{
    if (!tool.quiet)
        fprintf(stderr, "%s\n", message);
}

void run_words(session &tool, std::vector<char *> &words, command_runner run)
{
    const bool nested = strcasecmp(words[0], "batch") == 0;
    if (nested || run(tool, words) == exit_misused)
        complain(tool, "Unknown command");
    fflush(stdout); // the reader of our output may wait for it before it writes the next command
}

// Runs what a line says. False: it ends the batch.
bool run_line(session &tool, split_line &line, command_runner run)
{
    if (line.failure.reason) {
        uci::full(tool.ctx.get())->failure = line.failure;
        report(tool, UCI_ERR_PARSE);
    } else if (line.state == line_state::too_long) {
        complain(tool, "Too many arguments");
    } else if (!line.words.empty()) {
        if (strcasecmp(line.words[0], "exit") == 0)
            return false;
        run_words(tool, line.words, run);
    }
    return true;
}

} // namespace

int run_batch(session &tool, command_runner run)
{
    line_source source(tool.input());
    std::string pending;
    size_t lines_before = 0;
    for (bool more = true; more;) {
        more = source.append_to(pending);
        std::string text = pending;
        split_line line = split(text);
        if (line.state == line_state::open && more)
            continue;
        line.failure.line += lines_before;
        if (!run_line(tool, line, run))
            break;
        lines_before += static_cast<size_t>(std::ranges::count(pending, '\n'));
        pending.clear();
    }
    return exit_done;
}

} // namespace uci_tool
