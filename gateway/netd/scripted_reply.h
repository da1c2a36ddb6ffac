// Replies that a test or a user has laid down for an interface, in the file /gateway/netd/<interface>: a mode
// and what belongs to it.
//
//   json {...}       exactly this object
//   absent           no such object on the bus
//   malformed        a message that a client prints as something that is no JSON
//   silent           status 0 without data
//   big              the usual reply, made longer than 2,048 bytes
//   failing [CODE]   the usual reply; the interface does not come up, and its errors say CODE
//   slow N [REPLY]   after N seconds; REPLY is an object or any of these, without it the usual reply
#pragma once

#include <string>
#include <vector>

enum class reply_mode { usual, json, absent, malformed, silent, big, failing, invalid };

struct scripted_reply {
    reply_mode mode = reply_mode::usual;
    int delay_ms = 0;
    std::string text; // of json the object, of failing the code
};

// Reads the interface's file; no file means the usual reply, a text that is none of the modes is invalid.
scripted_reply read_scripted_reply(const std::string &interface);
scripted_reply parse_scripted_reply(const std::string &text);

// Interfaces that have a file.
std::vector<std::string> scripted_interfaces();
