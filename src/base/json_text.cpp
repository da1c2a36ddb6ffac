#include "base/json_text.h"

#include "base/heap.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <strings.h>
#include <utility>

namespace {

// As deep as the library reads, the outermost value included.
constexpr unsigned most_levels = 32;

constexpr size_t longest_number = 63;

struct put_json {
    void operator()(json_object *object) const { json_object_put(object); }
};

// Owns one reference to an object, or to null.
using json_ptr = std::unique_ptr<json_object, put_json>;

// A text that was read, without its quotes.
struct plain_text {
    const char *data;
    size_t length;
};

class json_reader {
public:
    explicit json_reader(const char *text)
        : at_(text), space_(static_cast<char *>(malloc(strlen(text) + 1))), free_(space_.get())
    {}

    // Whether the value is there as a whole; one that is null has no object.
    bool read(json_ptr &value_out) { return space_ && read_value(value_out, 1); }

private:
    bool read_value(json_ptr &value_out, unsigned level);
    bool read_object(json_ptr &object_out, unsigned level);
    bool read_member(json_object *object, unsigned level);
    bool read_array(json_ptr &array_out, unsigned level);
    bool read_text(plain_text &text_out);
    bool read_escape();
    bool read_code_unit(uint32_t &unit_out);
    void put_character(uint32_t character);
    bool read_number(json_ptr &number_out);
    bool read_word(const char *word);
    bool take(char wanted);
    void skip_blanks();

    const char *at_;
    const heap_ptr<char[]>
        space_; // for all texts without their quotes: each is shorter than what it is read from
    char *free_;
};

void json_reader::skip_blanks()
{
    at_ += strspn(at_, " \t\n\v\f\r");
}

// Takes a character that comes next but for blanks.
bool json_reader::take(char wanted)
{
    skip_blanks();
    if (*at_ != wanted)
        return false;
    at_++;
    return true;
}

bool json_reader::read_word(const char *word)
{
    const size_t length = strlen(word);
    if (strncasecmp(at_, word, length) != 0)
        return false;
    at_ += length;
    return true;
}

bool json_reader::read_value(json_ptr &value_out, unsigned level)
{
    if (level > most_levels)
        return false;
    skip_blanks();
    switch (*at_) {
    case '{':
        return read_object(value_out, level);
    case '[':
        return read_array(value_out, level);
    case '"':
    case '\'': {
        plain_text text;
        if (!read_text(text))
            return false;
        value_out.reset(json_object_new_string_len(text.data, static_cast<int>(text.length)));
        return value_out != nullptr;
    }
    case 'n':
    case 'N':
        value_out.reset();
        return read_word("null");
    case 't':
    case 'T':
        value_out.reset(json_object_new_boolean(1));
        return value_out && read_word("true");
    case 'f':
    case 'F':
        value_out.reset(json_object_new_boolean(0));
        return value_out && read_word("false");
    default:
        return read_number(value_out);
    }
}

bool json_reader::read_object(json_ptr &object_out, unsigned level)
{
    object_out.reset(json_object_new_object());
    if (!object_out || !take('{'))
        return false;
    do {
        if (take('}')) // also behind a comma, as the library has it
            return true;
        if (!read_member(object_out.get(), level))
            return false;
    } while (take(','));
    return take('}');
}

bool json_reader::read_member(json_object *object, unsigned level)
{
    plain_text key;
    json_ptr value;
    if (!read_text(key) || !take(':') || !read_value(value, level + 1) ||
        json_object_object_add(object, key.data, value.get()) != 0)
        return false;
    (void)value.release();
    return true;
}

bool json_reader::read_array(json_ptr &array_out, unsigned level)
{
    array_out.reset(json_object_new_array());
    if (!array_out || !take('['))
        return false;
    do {
        if (take(']'))
            return true;
        json_ptr value;
        if (!read_value(value, level + 1) || json_object_array_add(array_out.get(), value.get()) != 0)
            return false;
        (void)value.release();
    } while (take(','));
    return take(']');
}

// Reads a text in quotes of either kind.
bool json_reader::read_text(plain_text &text_out)
{
    const char quote = *at_;
    if (quote != '"' && quote != '\'')
        return false;
    at_++;
    text_out.data = free_;
    while (*at_ != quote) {
        if (*at_ == '\0')
            return false;
        if (*at_ != '\\')
            *free_++ = *at_++;
        else if (!read_escape())
            return false;
    }
    at_++;
    text_out.length = static_cast<size_t>(free_ - text_out.data);
    *free_++ = '\0';
    return true;
}

bool json_reader::read_escape()
{
    constexpr char letters[] = "bnrtf\"\\/", meanings[] = "\b\n\r\t\f\"\\/";
    const char letter = *++at_;
    if (const char *const found = letter == '\0' ? nullptr : strchr(letters, letter)) {
        *free_++ = meanings[found - letters];
        at_++;
        return true;
    }
    uint32_t first = 0, second = 0;
    if (!read_code_unit(first))
        return false;
    // A character beyond the first 65,536 is written as two halves; half of one is none.
    if (first >= 0xd800 && first < 0xdc00 && at_[0] == '\\' && at_[1] == 'u') {
        const char *const behind_first = at_++;
        if (!read_code_unit(second))
            return false;
        if (second >= 0xdc00 && second < 0xe000)
            first = 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
        else
            at_ = behind_first;
    }
    put_character(first >= 0xd800 && first < 0xe000 ? 0xfffd : first);
    return true;
}

// Reads "u" and four hexadecimal digits.
bool json_reader::read_code_unit(uint32_t &unit_out)
{
    if (*at_ != 'u' || strspn(at_ + 1, "0123456789abcdefABCDEF") < 4)
        return false;
    char digits[5] = {};
    memcpy(digits, at_ + 1, 4);
    unit_out = static_cast<uint32_t>(strtoul(digits, nullptr, 16));
    at_ += 5;
    return true;
}

// Appends a character in UTF-8.
void json_reader::put_character(uint32_t character)
{
    constexpr uint32_t first_of_more[] = {0x80, 0x800, 0x10000};
    constexpr uint32_t marks[] = {0, 0xc0, 0xe0, 0xf0};
    unsigned more = 0;
    while (more < 3 && character >= first_of_more[more])
        more++;
    *free_++ = static_cast<char>(marks[more] | character >> (6 * more));
    while (more-- > 0)
        *free_++ = static_cast<char>(0x80 | (character >> (6 * more) & 0x3f));
}

bool json_reader::read_number(json_ptr &number_out)
{
    const size_t length = strspn(at_, "0123456789.+-eE");
    char text[longest_number + 1];
    if (length == 0 || length > longest_number || !strchr("-0123456789", *at_))
        return false;
    memcpy(text, at_, length);
    text[length] = '\0';
    char *end = nullptr;
    if (strpbrk(text, ".eE"))
        number_out.reset(json_object_new_double_s(strtod(text, &end), text));
    else
        number_out.reset(json_object_new_int64(strtoll(text, &end, 10)));
    at_ += length;
    return number_out && end == text + length;
}

} // namespace

json_object *json_read(const char *text)
{
    json_reader reader(text);
    json_ptr value;
    return reader.read(value) ? value.release() : nullptr;
}
