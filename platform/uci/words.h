// Splits configuration text into logical lines and words. Configuration files, delta files and the tool's
// batch input share these rules.
#pragma once

#include <cstddef>
#include <string_view>

namespace uci {

// What ended the latest word, or stood where one was looked for.
enum class word_end {
    gap,     // whitespace: another word may follow
    newline, // the end of the logical line
    dropped, // '#', or ';' right after unquoted bytes: the rest of the line counts for nothing
    command, // ';': another command may follow on the line
    data,    // the end of the text
};

// Drops what the zero bytes of a text hide, in place: from the first one of a line, everything up to and
// including the line's end. Loss of power leaves blocks of them in files, mostly behind what was written
// last, and a value could not hold one. Returns the text's new size.
size_t drop_zero_bytes(char *data, size_t size);

// Reads words from a text in memory, decoding them in place: a word is never longer than what it is written
// as.
class word_reader {
public:
    // data[size] must be writable; the text is changed as it is read, and has no zero bytes from here on.
    word_reader(char *data, size_t size) : data_(data), size_(drop_zero_bytes(data, size))
    {
        data_[size_] = '\0';
    }

    // Goes to the next logical line that is neither empty nor a comment, past the rest of the current one,
    // and past its leading whitespace. False: there is none.
    bool next_line();

    // The bytes up to the next space or tab, or up to and including the end of the physical line.
    std::string_view keyword();
    // Skips whitespace, newlines excepted.
    void skip_blanks();

    // Takes the next word of the command. word is null when there is none. Returns null, or why the text
    // cannot be read.
    const char *next_word(char **word);

    word_end end() const { return end_; }
    bool at_data_end() const { return pos_ == size_; }
    char next_byte() const { return data_[pos_]; }
    void skip_byte() { pos_++; }

    // For messages: the newlines of the physical lines touched so far, and offsets from the start of the
    // logical line.
    size_t lines_read() const;
    size_t offset() const { return pos_ - line_start_; }
    size_t physical_line_end() const;

    // Where the logical line starts, and where reading goes on, as positions in the whole text.
    size_t line_start() const { return line_start_; }
    size_t position() const { return pos_; }

    // Goes past the end of the physical line, unless that has been read already.
    void skip_line();

private:
    enum class piece { none, plain, quoted };

    const char *decode(char *&out);
    const char *decode_quoted(char quote, char *&out);
    bool decode_plain(char *&out);         // false: there is nothing plain
    bool decode_literal(char *&out);       // false: it has no end
    bool decode_double_quoted(char *&out); // false: it has no end
    void decode_escape(char *&out);
    void keep(const char *start, size_t length, char *&out);
    char take();

    char *data_;
    size_t size_;
    size_t pos_ = 0;
    size_t line_start_ = 0;
    size_t newlines_ = 0;
    word_end end_ = word_end::newline;
};

} // namespace uci
