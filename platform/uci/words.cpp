// The word rules: quotes, escapes, comments, and the lines they join.
#include "words.h"

#include <array>
#include <cstring>

namespace uci {
namespace {

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

// What counts as itself outside quotes.
constexpr std::array<bool, 256> plain_bytes = [] {
    std::array<bool, 256> bytes;
    bytes.fill(true);
    for (const char c : {'\0', ' ', '\t', '\v', '\f', '\r', '\n', '\'', '"', '#', ';', '\\'})
        bytes[static_cast<unsigned char>(c)] = false;
    return bytes;
}();

bool is_plain(char c)
{
    return plain_bytes[static_cast<unsigned char>(c)];
}

bool is_quote(char c)
{
    return c == '\'' || c == '"';
}

} // namespace

size_t drop_zero_bytes(char *data, size_t size)
{
    const char *const end = data + size;
    const char *kept = data; // from here to the next zero byte the text stays
    char *out = data;
    for (;;) {
        const size_t rest = static_cast<size_t>(end - kept);
        const void *const zero = memchr(kept, '\0', rest);
        const size_t length = zero ? static_cast<size_t>(static_cast<const char *>(zero) - kept) : rest;
        if (out != kept)
            memmove(out, kept, length);
        out += length;
        const char *const from = kept + length;
        const void *const newline = memchr(from, '\n', static_cast<size_t>(end - from));
        if (!newline)
            return static_cast<size_t>(out - data);
        kept = static_cast<const char *>(newline) + 1;
    }
}

char word_reader::take()
{
    const char c = data_[pos_++];
    if (c == '\n')
        newlines_++;
    return c;
}

void word_reader::skip_blanks()
{
    while (is_blank(data_[pos_])) // which the end is not
        pos_++;
}

void word_reader::skip_line()
{
    if (end_ == word_end::newline)
        return;
    const void *const found = memchr(data_ + pos_, '\n', size_ - pos_);
    if (found) {
        pos_ = static_cast<size_t>(static_cast<const char *>(found) - data_) + 1;
        newlines_++;
        end_ = word_end::newline;
    } else {
        pos_ = size_;
        end_ = word_end::data;
    }
}

bool word_reader::next_line()
{
    skip_line();
    while (pos_ < size_) {
        line_start_ = pos_;
        skip_blanks();
        if (pos_ == size_)
            break;
        const char c = data_[pos_];
        if (c == '\n') {
            take();
            continue;
        }
        end_ = word_end::gap;
        if (c != '#')
            return true;
        skip_line();
    }
    return false;
}

std::string_view word_reader::keyword()
{
    const size_t start = pos_;
    end_ = word_end::gap;
    while (pos_ < size_ && data_[pos_] != ' ' && data_[pos_] != '\t') {
        if (data_[pos_] == '\n') {
            take();
            end_ = word_end::newline;
            break;
        }
        pos_++;
    }
    return {data_ + start, pos_ - start};
}

const char *word_reader::next_word(char **word)
{
    *word = nullptr;
    if (end_ != word_end::gap)
        return nullptr;
    skip_blanks();
    if (pos_ == size_) {
        end_ = word_end::data;
        return nullptr;
    }
    switch (data_[pos_]) {
    case '\n':
        end_ = word_end::newline;
        break;
    case '#':
        end_ = word_end::dropped;
        break;
    case ';':
        end_ = word_end::command;
        break;
    default: {
        // Behind the quote that it begins with, so that most words need not be moved.
        char *const start = data_ + pos_ + (is_quote(data_[pos_]) ? 1 : 0);
        char *out = start;
        const char *const reason = decode(out);
        if (reason)
            return reason;
        *out = '\0'; // at or before the byte that ended the word, which has been read
        *word = start;
        return nullptr;
    }
    }
    take();
    return nullptr;
}

// Decodes pieces up to the end of the word, and takes the byte that ended it.
const char *word_reader::decode(char *&out)
{
    piece latest = piece::none;
    while (pos_ < size_) {
        if (decode_plain(out)) {
            latest = piece::plain;
            continue;
        }
        const char c = take();
        const char *reason = nullptr;
        if (is_quote(c)) {
            reason = decode_quoted(c, out);
            latest = piece::quoted;
        } else if (c == '\n') {
            end_ = word_end::newline;
            return nullptr;
        } else if (is_blank(c)) {
            end_ = word_end::gap;
            return nullptr;
        } else if (c == '#' || c == ';') {
            end_ = c == ';' && latest == piece::quoted ? word_end::command : word_end::dropped;
            return nullptr;
        } else { // a backslash
            decode_escape(out);
            latest = piece::plain;
        }
        if (reason)
            return reason;
    }
    end_ = word_end::data;
    return nullptr;
}

// A backslash outside quotes: the byte behind it counts as itself, and a line end behind it counts for
// nothing.
void word_reader::decode_escape(char *&out)
{
    if (pos_ == size_)
        return;
    if (data_[pos_] == '\r' && pos_ + 1 < size_ && data_[pos_ + 1] == '\n')
        pos_++;
    const char c = take();
    if (c != '\n')
        *out++ = c;
}

// The bytes that count as themselves, if any.
bool word_reader::decode_plain(char *&out)
{
    const char *const start = data_ + pos_;
    const char *at = start;
    while (is_plain(*at)) // which the end is not
        at++;
    keep(start, static_cast<size_t>(at - start), out);
    return at != start;
}

// Between single quotes every byte counts as itself.
bool word_reader::decode_literal(char *&out)
{
    const char *const start = data_ + pos_;
    const char *at = start;
    for (; *at != '\'' && *at != '\0'; at++)
        if (*at == '\n')
            newlines_++;
    keep(start, static_cast<size_t>(at - start), out);
    if (*at == '\0')
        return false;
    pos_++;
    return true;
}

// Takes bytes as they are.
void word_reader::keep(const char *start, size_t length, char *&out)
{
    if (out != start)
        memmove(out, start, length);
    out += length;
    pos_ += length;
}

bool word_reader::decode_double_quoted(char *&out)
{
    while (pos_ < size_) {
        char c = take();
        if (c == '"')
            return true;
        if (c == '\\' && pos_ < size_) {
            c = take();
            if (c == '\n')
                continue;
        }
        *out++ = c;
    }
    return false;
}

const char *word_reader::decode_quoted(char quote, char *&out)
{
    if (quote == '"' ? decode_double_quoted(out) : decode_literal(out))
        return nullptr;
    end_ = word_end::data;
    return quote == '"' ? "EOF with unterminated \"" : "EOF with unterminated '";
}

size_t word_reader::lines_read() const
{
    if (end_ == word_end::newline)
        return newlines_;
    return newlines_ + (memchr(data_ + pos_, '\n', size_ - pos_) ? 1 : 0);
}

size_t word_reader::physical_line_end() const
{
    if (end_ == word_end::newline)
        return offset();
    const void *const found = memchr(data_ + pos_, '\n', size_ - pos_);
    const char *const end = found ? static_cast<const char *>(found) + 1 : data_ + size_;
    return static_cast<size_t>(end - data_) - line_start_;
}

} // namespace uci
