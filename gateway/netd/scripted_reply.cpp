#include "netd/scripted_reply.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

namespace {

namespace fs = std::filesystem;

constexpr char scripts_path[] = "/gateway/netd";
constexpr std::string_view blanks = " \t\r\n";

std::string_view skip_blanks(std::string_view text)
{
    const size_t start = text.find_first_not_of(blanks);
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// The first word; the rest stays in `text`.
std::string_view take_word(std::string_view &text)
{
    text = skip_blanks(text);
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text = skip_blanks(text.substr(word.size()));
    return word;
}

scripted_reply parse_slow(std::string_view rest)
{
    const std::string_view number = take_word(rest);
    double seconds = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), seconds);
    if (error != std::errc() || end != number.data() + number.size() || seconds < 0)
        return {reply_mode::invalid, 0, {}};
    scripted_reply reply;
    if (rest.starts_with('{'))
        reply = {reply_mode::json, 0, std::string(rest)};
    else if (!rest.empty())
        reply = parse_scripted_reply(std::string(rest));
    constexpr double ms_per_second = 1000;
    reply.delay_ms += static_cast<int>(seconds * ms_per_second);
    return reply;
}

} // namespace

scripted_reply parse_scripted_reply(const std::string &text)
{
    std::string_view rest = text;
    const std::string_view mode = take_word(rest);
    if (mode == "json")
        return {reply_mode::json, 0, std::string(rest)};
    if (mode == "slow")
        return parse_slow(rest);
    if (mode == "absent")
        return {reply_mode::absent, 0, {}};
    if (mode == "malformed")
        return {reply_mode::malformed, 0, {}};
    if (mode == "silent")
        return {reply_mode::silent, 0, {}};
    if (mode == "big")
        return {reply_mode::big, 0, {}};
    if (mode == "failing")
        return {reply_mode::failing, 0, std::string(take_word(rest))};
    return {reply_mode::invalid, 0, {}};
}

scripted_reply read_scripted_reply(const std::string &interface)
{
    std::ifstream in(fs::path(scripts_path) / interface);
    if (!in)
        return {};
    std::ostringstream text;
    text << in.rdbuf();
    return parse_scripted_reply(text.str());
}

std::vector<std::string> scripted_interfaces()
{
    std::vector<std::string> names;
    std::error_code missing; // no directory means no scripts
    for (const fs::directory_entry &entry : fs::directory_iterator(scripts_path, missing))
        names.push_back(entry.path().filename());
    return names;
}
