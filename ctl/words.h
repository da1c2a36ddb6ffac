// What people call things: modes, services, ports, times.
#pragma once

#include "base/text.h"
#include "wan/wan_config.h"

#include <cstdint>

// "bridge", "dhcp", "static" or "pppoe".
const char *mode_word(const wan_config &record);

// What a WAN is called in a sentence: "WAN 3 (3_INTERNET_R_VID_100)".
struct wan_title {
    char text[64];
    explicit wan_title(const wan_config &record);
};

// What a WAN is for, as "tr069,voip,internet". 24 bytes hold the longest.
struct service_words {
    char text[24];
    explicit service_words(uint8_t code);
};
// The code of such words in any order. False: there is no such service.
bool read_service(const char *words, uint8_t *code_out);

// The ports that a binding has, as "lan1,lan2,ssid1"; "none". Ports are called lan1 and on by the board's
// wired ones, ssid1 and on by its wireless ones, those of 2.4 GHz first. The board's ports are known
// (load_ports()). 128 bytes hold all.
struct port_words {
    char text[128];
    explicit port_words(const wan_config &record);
};
// A port's name by its position in a binding.
struct port_word {
    char text[16];
    explicit port_word(size_t position);
};
// The binding of such words, "none" or "all": one character for each port of the board, as far as a binding
// has room. False: wrong_out holds the word that is no port of this board.
bool read_ports(const char *words, wan_config *record, text_ref wrong_out);

// A time as "3d 4h", "5h 12m", "4m 10s" or "10s".
struct time_words {
    char text[24];
    explicit time_words(uint64_t seconds);
};
// Seconds of "30", "30s", "5m", "2h" or "1d". False: it is none of these, or more than a call can take.
bool read_time(const char *words, uint32_t *seconds_out);

// Calls `body` with each entry of a list with commas, as string_view. Stops when it returns false, and
// returns that.
template <typename callable> bool each_word(const char *words, callable body)
{
    for (;;) {
        const size_t length = strcspn(words, ",");
        if (!body(std::string_view(words, length)))
            return false;
        if (words[length] == '\0')
            return true;
        words += length + 1;
    }
}
