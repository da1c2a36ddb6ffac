// The journal of started commands.
#include "tools/journal.h"

#include "tools/places.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace {

bool is_plain(const std::string &word)
{
    return !word.empty() && word.find_first_of(" \t\r\n'\"\\") == std::string::npos;
}

std::string quoted(const std::string &word)
{
    std::string text = "'";
    for (const char character : word) {
        if (character == '\'')
            text += "'\\''";
        else if (character == '\n')
            text += "\\n";
        else
            text += character;
    }
    return text + "'";
}

} // namespace

std::string command_line(const command_words &words)
{
    std::string line;
    for (const std::string &word : words) {
        if (!line.empty())
            line += ' ';
        line += is_plain(word) ? word : quoted(word);
    }
    return line;
}

void append_to_journal(const command_words &words)
{
    const std::string line = command_line(words) + "\n";
    const int file = open(journal_path, O_WRONLY | O_APPEND | O_CLOEXEC);
    const ssize_t written = file < 0 ? -1 : write(file, line.data(), line.size());
    const int reason = errno;
    if (file >= 0)
        (void)close(file);
    if (written != static_cast<ssize_t>(line.size()))
        throw std::system_error(reason, std::generic_category(), journal_path);
}
