// Reads batch lines as they arrive and runs them.
#include "batch.h"

#include <cstdlib>
#include <cstring>
#include <vector>

#include "commands.h"
#include "words.h"

namespace uci_tool {
namespace {

constexpr size_t max_words = 3;

enum class line_state { complete, unfinished, too_long, malformed };

// Splits text, which is changed, into the words of its first command. `unfinished`: a quote or a backslash at
// the end draws in the next line.
line_state split(std::string &text, std::vector<char *> &words)
{
    uci::word_reader reader(text.data(), text.size());
    if (!reader.next_line())
        return line_state::complete;
    for (;;) {
        char *word;
        const char *const reason = reader.next_word(&word);
        if (reason)
            return reader.end() == uci::word_end::data ? line_state::unfinished : line_state::malformed;
        if (word && words.size() == max_words)
            return line_state::too_long;
        if (word)
            words.push_back(word);
        if (word && reader.end() == uci::word_end::gap)
            continue;
        const bool open = reader.end() == uci::word_end::data && text.ends_with('\n');
        return open ? line_state::unfinished : line_state::complete;
    }
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

void run_words(session &tool, std::vector<char *> &words)
{
    const bool nested = strcasecmp(words[0], "batch") == 0;
    if (nested || run_command(tool, words) == exit_misused)
        complain(tool, "Unknown command");
    fflush(stdout); // the reader of our output may wait for it before it writes the next command
}

} // namespace

int run_batch(session &tool)
{
    line_source source(tool.input());
    std::string pending;
    while (source.append_to(pending)) {
        std::vector<char *> words;
        std::string text = pending;
        line_state state = split(text, words);
        if (state == line_state::unfinished) {
            if (!feof(tool.input()) && !ferror(tool.input()))
                continue;
            state = line_state::malformed;
        }
        pending.clear();
        if (state == line_state::malformed)
            complain(tool, "Parse error");
        else if (state == line_state::too_long)
            complain(tool, "Too many arguments");
        else if (!words.empty() && strcasecmp(words[0], "exit") == 0)
            break;
        else if (!words.empty())
            run_words(tool, words);
    }
    if (!pending.empty())
        complain(tool, "Parse error");
    return exit_done;
}

} // namespace uci_tool
