#include "ctl/option_reader.h"

#include "ctl/output.h"

#include <cstring>

namespace {

// Every subcommand has these too; the reader acts on them itself.
enum : int { option_json, option_timeout };
constexpr option_row common_rows[] = {
    {"json", "", "print JSON, one line", option_json},
    {"timeout", "SECONDS", "how long to wait for an answer, 120 when not given", option_timeout},
};
constexpr auto common_options = pack_options<common_rows>();

constexpr uint32_t longest_timeout = 86400;
constinit int timeout_ms = 120 * 1000;

} // namespace

int call_timeout()
{
    return timeout_ms;
}

void choose_output(std::span<char *const> words)
{
    for (const char *const word : words) {
        if (strcmp(word, "--") == 0)
            return;
        if (strcmp(word, "--json") == 0)
            output_as_json();
    }
}

bool read_number(const char *text, uint32_t most, uint32_t *number_out)
{
    uint64_t number = 0;
    if (text[0] == '\0' || strlen(text) > 10)
        return false;
    for (; *text != '\0'; text++) {
        if (*text < '0' || *text > '9')
            return false;
        number = number * 10 + static_cast<uint64_t>(*text - '0');
    }
    if (number > most)
        return false;
    *number_out = static_cast<uint32_t>(number);
    return true;
}

exit_status read_wan_id(const char *text, uint8_t *id_out)
{
    uint32_t id = 0;
    if (!read_number(text, UINT8_MAX, &id) || id == 0)
        return fail(exit_status::usage, "%s is no WAN identifier; it is a number from 1 to 255, see `status`",
                    text);
    *id_out = static_cast<uint8_t>(id);
    return exit_status::done;
}

int option_reader::next()
{
    while (!words_.empty()) {
        const char *const text = words_.front();
        words_ = words_.subspan(1);
        if (!only_words_ && strcmp(text, "--") == 0) {
            only_words_ = true;
            continue;
        }
        if (only_words_ || strncmp(text, "--", 2) != 0) {
            value = text;
            return word;
        }
        const int id = take_option(text + 2);
        if (id != end) // a common option is dealt with
            return id;
    }
    return end;
}

bool next_option(const char *&options, option_row &row)
{
    if (options[0] == '\0')
        return false;
    row.name = options;
    row.takes = next_text(row.name);
    row.help = next_text(row.takes);
    row.id++;
    options = next_text(row.help);
    return true;
}

int option_reader::take_common(int id)
{
    if (id != option_timeout)
        return id == wrong ? wrong : end;
    uint32_t seconds = 0;
    if (!read_number(value, longest_timeout, &seconds) || seconds == 0) {
        (void)fail(exit_status::usage, "--timeout takes 1 to %u seconds, not %s", longest_timeout, value);
        return wrong;
    }
    timeout_ms = static_cast<int>(seconds) * 1000;
    return end;
}

// Whether the option is one of these. The output is `wrong`, which is told, when it lacks its value or has
// one to no purpose.
bool option_reader::take_named(const char *options, const char *text, int &id_out)
{
    const size_t length = strcspn(text, "=");
    option_row row = {nullptr, nullptr, nullptr, -1};
    do {
        if (!next_option(options, row))
            return false;
    } while (strlen(row.name) != length || strncmp(row.name, text, length) != 0);
    const bool takes = row.takes[0] != '\0';
    id_out = row.id;
    name = row.name;
    value = text[length] == '=' ? text + length + 1 : nullptr;
    if (takes && !value && !words_.empty()) {
        value = words_.front();
        words_ = words_.subspan(1);
    }
    if (takes != (value != nullptr)) {
        (void)fail(exit_status::usage, takes ? "--%s takes a value, %s" : "--%s takes no value", row.name,
                   row.takes);
        id_out = wrong;
    }
    return true;
}

int option_reader::take_option(const char *text)
{
    int id = 0;
    if (take_named(options_, text, id))
        return id;
    if (take_named(common_options.text, text, id))
        return take_common(id);
    (void)fail(exit_status::usage, "there is no option --%.*s here; see `korvelctl --help`",
               static_cast<int>(strcspn(text, "=")), text);
    return wrong;
}

exit_status read_short_line(std::span<char *const> words, const char *before, const char *behind,
                            const char *options, bool *switched_out, const char **word_out)
{
    option_reader reader(options, words);
    for (int what = reader.next(); what != option_reader::end; what = reader.next()) {
        if (what == option_reader::wrong)
            return exit_status::usage;
        if (what != option_reader::word)
            *switched_out = true;
        else if (word_out && !*word_out)
            *word_out = reader.value;
        else
            return fail(exit_status::usage, "%s%s%s", before, reader.value, behind);
    }
    return exit_status::done;
}

exit_status read_id_line(std::span<char *const> words, const char *before, uint8_t *id_out,
                         const char *options, bool *switched_out)
{
    const char *word = nullptr;
    const exit_status result = read_short_line(words, before, " is one more", options, switched_out, &word);
    return result == exit_status::done && word ? read_wan_id(word, id_out) : result;
}
