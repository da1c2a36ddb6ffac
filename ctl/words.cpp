#include "ctl/words.h"

#include "ctl/option_reader.h"
#include "service/board.h"
#include "wan/wan_names.h"

#include <cstdio>
#include <iterator>

namespace {

constexpr uint8_t most_words = 8;
constexpr uint8_t service_count = 8;

// Which of the first eight words of `all` (a service's words) are in `words`, one bit each; -1 when one of
// `words` is not among them.
int bits_of(const char *words, const char *all)
{
    int bits = 0;
    const bool known = each_word(words, [&](std::string_view word) {
        int bit = 0, found = 0;
        (void)each_word(all, [&](std::string_view other) {
            found |= word == other ? 1 << bit : 0;
            return ++bit < most_words;
        });
        bits |= found;
        return found != 0;
    });
    return known ? bits : -1;
}

size_t wired_ports()
{
    return static_cast<size_t>(lan_num + lan_phy_num);
}

// Positions that a binding has room for, its terminator left.
size_t bindable_ports()
{
    const size_t ports = static_cast<size_t>(board_port_count());
    return ports < sizeof(wan_config::bind) ? ports : sizeof(wan_config::bind) - 1;
}

struct unit {
    char letter;
    uint32_t seconds;
};
constexpr unit units[] = {{'d', 86400}, {'h', 3600}, {'m', 60}, {'s', 1}};

} // namespace

const char *mode_word(const wan_config &record)
{
    if (record.wanMode == wan_mode_bridged)
        return "bridge";
    return record.ipMode == ip_mode_dhcp ? "dhcp" : record.ipMode == ip_mode_static ? "static" : "pppoe";
}

wan_title::wan_title(const wan_config &record)
{
    (void)text_ref(text).format("WAN %u (%s)", record.wanId, c_text(record.wanName).data);
}

service_words::service_words(uint8_t code)
{
    (void)text_ref(text).format("%s", wan_service_of(code).name);
    for (char &character : text) {
        if (character == '_')
            character = ',';
        else if (character >= 'A' && character <= 'Z')
            character = static_cast<char>(character - 'A' + 'a');
    }
}

bool read_service(const char *words, uint8_t *code_out)
{
    for (uint8_t code = 0; code < service_count; code++) {
        const service_words service(code);
        // The same words, whatever their order: each side has the other's.
        const int bits = bits_of(words, service.text);
        if (bits > 0 && bits == bits_of(service.text, service.text)) {
            *code_out = code;
            return true;
        }
    }
    return false;
}

port_word::port_word(size_t position)
{
    const size_t wired = wired_ports();
    const bool is_wired = position < wired;
    (void)text_ref(text).format("%s%u", is_wired ? "lan" : "ssid",
                                static_cast<unsigned>(position - (is_wired ? 0 : wired) + 1));
}

port_words::port_words(const wan_config &record)
{
    size_t used = 0;
    text[0] = '\0';
    for (size_t position = 0; position < sizeof(record.bind) && record.bind[position] != '\0'; position++) {
        if (record.bind[position] != '1')
            continue;
        const text_ref rest(text + used, sizeof(text) - used);
        (void)rest.format("%s%s", used > 0 ? "," : "", port_word(position).text);
        used += strlen(rest.data);
    }
    if (used == 0)
        (void)text_ref(text).format("none");
}

bool read_ports(const char *words, wan_config *record, text_ref wrong_out)
{
    const size_t ports = bindable_ports();
    const bool all = strcmp(words, "all") == 0;
    memset(record->bind, 0, sizeof(record->bind));
    memset(record->bind, all ? '1' : '0', ports);
    if (all || strcmp(words, "none") == 0)
        return true;
    return each_word(words, [&](std::string_view word) {
        for (size_t position = 0; position < ports; position++) {
            if (word == port_word(position).text) {
                record->bind[position] = '1';
                return true;
            }
        }
        (void)wrong_out.format("%.*s", static_cast<int>(word.size()), word.data());
        return false;
    });
}

time_words::time_words(uint64_t seconds)
{
    for (size_t i = 0; i + 1 < std::size(units); i++) {
        if (seconds < units[i].seconds)
            continue;
        (void)text_ref(text).format(
            "%llu%c %llu%c", static_cast<unsigned long long>(seconds / units[i].seconds), units[i].letter,
            static_cast<unsigned long long>(seconds % units[i].seconds / units[i + 1].seconds),
            units[i + 1].letter);
        return;
    }
    (void)text_ref(text).format("%llus", static_cast<unsigned long long>(seconds));
}

bool read_time(const char *words, uint32_t *seconds_out)
{
    char digits[12] = {};
    const size_t length = strspn(words, "0123456789");
    if (length == 0 || length >= sizeof(digits))
        return false;
    memcpy(digits, words, length);
    uint32_t factor = words[length] == '\0' ? 1 : 0;
    for (const unit &row : units)
        if (words[length] == row.letter && words[length + 1] == '\0')
            factor = row.seconds;
    uint32_t number = 0;
    if (factor == 0 || !read_number(digits, INT32_MAX / factor, &number))
        return false;
    *seconds_out = number * factor;
    return true;
}
