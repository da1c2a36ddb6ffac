// What tests of korvelctl share: a gateway with the daemon, and the program's runs.
#pragma once

#include "ctl/exit_status.h"
#include "base/text.h"
#include "support/daemon_test.h"

// The program's end as the tests compare it.
inline int code(exit_status status)
{
    return static_cast<int>(status);
}

class ctl_test : public daemon_test {
protected:
    static program_result ctl(program_arguments words)
    {
        words.insert(words.begin(), "korvelctl");
        return run_program(words);
    }
    // What it prints with --json.
    static json_value ctl_json(program_arguments words)
    {
        words.push_back("--json");
        return json_value::parse(ctl(words).output);
    }
    void start(const netd_options &options = {})
    {
        silence_services();
        gateway.start_netd(options);
        gateway.start_korvel();
    }
    static text_lines lines_of(const std::string &text)
    {
        text_lines lines;
        for (size_t begin = 0; begin < text.size();) {
            const size_t end = text.find('\n', begin);
            lines.push_back(text.substr(begin, end - begin));
            begin = end == std::string::npos ? text.size() : end + 1;
        }
        return lines;
    }
    // Whether everything in it is printable ASCII, line feeds aside.
    static bool is_harmless(const std::string &text)
    {
        for (const char character : text)
            if (character != '\n' && (character < 0x20 || character > 0x7e))
                return false;
        return true;
    }
};
