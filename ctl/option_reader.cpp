#include "ctl/option_reader.h"

#include "ctl/output.h"

#include <cstring>

namespace {

enum : int { option_json, option_timeout };

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

int option_reader::take_common(const option_row &row)
{
    if (row.id != option_timeout)
        return end;
    uint32_t seconds = 0;
    if (!read_number(value, longest_timeout, &seconds) || seconds == 0) {
        (void)fail(exit_status::usage, "--timeout takes 1 to %u seconds, not %s", longest_timeout, value);
        return wrong;
    }
    timeout_ms = static_cast<int>(seconds) * 1000;
    return end;
}

int option_reader::take_option(const char *text)
{
    const size_t length = strcspn(text, "=");
    const std::span<const option_row> common(common_options);
    for (const std::span<const option_row> table : {rows_, common}) {
        for (const option_row &row : table) {
            if (strlen(row.name) != length || strncmp(row.name, text, length) != 0)
                continue;
            value = text[length] == '=' ? text + length + 1 : nullptr;
            if (row.takes && !value && !words_.empty()) {
                value = words_.front();
                words_ = words_.subspan(1);
            }
            if ((row.takes != nullptr) != (value != nullptr)) {
                (void)fail(exit_status::usage, row.takes ? "--%s takes a value, %s" : "--%s takes no value",
                           row.name, row.takes);
                return wrong;
            }
            return table.data() == common.data() ? take_common(row) : row.id;
        }
    }
    (void)fail(exit_status::usage, "there is no option --%.*s here; see `korvelctl --help`",
               static_cast<int>(length), text);
    return wrong;
}
