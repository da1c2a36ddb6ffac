// The journal: one line for each command that the daemon or a script has started, in order.
#pragma once

#include <string>
#include <vector>

using command_words = std::vector<std::string>;

// The words on one line. A word that is empty or holds blanks, quotes or backslashes is in single quotes, a
// single quote in it written as a shell needs it; a line feed becomes the two characters \n.
std::string command_line(const command_words &words);

// Appends the line of the words to the journal with one write, so lines of programs that run at once stay
// whole. Throws std::system_error when there is no journal, as outside a gateway.
void append_to_journal(const command_words &words);
