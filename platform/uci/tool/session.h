// What every command of the tool works with: the context and the options of the command line.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

#include <uci.h>

namespace uci_tool {

struct free_context {
    void operator()(uci_context *ctx) const { uci_free_context(ctx); }
};

struct close_stream {
    void operator()(FILE *stream) const { fclose(stream); }
};

struct session {
    std::unique_ptr<uci_context, free_context> ctx;
    std::string program; // as called, the prefix of messages
    std::string delimiter = " ";
    std::unique_ptr<FILE, close_stream> input_file; // null: standard input
    bool quiet = false;
    bool merge = false;
    bool generated_names = false;
    bool never_commit = false;

    FILE *input() const { return input_file ? input_file.get() : stdin; }
};

// Exit codes of the tool; `add` also exits with codes of the library.
constexpr int exit_done = 0;
constexpr int exit_failed = 1;
constexpr int exit_misused = 255;

// Reports the latest error of the context, unless there is none or messages are off. Returns exit_failed.
int report(const session &tool);
// The same for an error that the tool itself found.
int report(const session &tool, int code);

} // namespace uci_tool
