// The commands of the ubus tool and what they share.
#pragma once

#include <span>

#include <libubus.h>

// What the options said.
struct tool_options {
    const char *socket = nullptr; // the default socket
    int timeout = 30;             // seconds, whose milliseconds fit an int; 0: none; below: over at once
    bool timeout_given = false;
    bool simple = false; // for programs: compact, and no word about failures
    bool verbose = false;
};

using arguments = std::span<char *const>;

// Every command returns 0, a bus status (positive) that is still to be reported, or a negative value that
// ends the tool with just that exit code; wrong_usage prints the usage text before.
constexpr int already_reported = -1;
constexpr int wrong_usage = -2;

int list_objects(ubus_context *bus, const tool_options &options, arguments args);
int call_method(ubus_context *bus, const tool_options &options, arguments args);
int listen_for_events(ubus_context *bus, const tool_options &options, arguments args);
int send_event(ubus_context *bus, const tool_options &options, arguments args);
int wait_for_objects(ubus_context *bus, const tool_options &options, arguments args);

// A message that is being built, empty at first.
class message {
public:
    message() { blob_buf_init(&buffer_, 0); }
    ~message() { blob_buf_free(&buffer_); }
    message(const message &) = delete;
    message &operator=(const message &) = delete;

    blob_buf *buffer() { return &buffer_; }
    blob_attr *head() { return buffer_.head; }
    // Adds the members of a JSON object; UBUS_STATUS_PARSE_ERROR for any other text.
    int add_json(const char *text);

private:
    blob_buf buffer_{};
};

// Prints a message's members as a JSON object, without a newline at the end.
void print_message(blob_attr *content, bool compact);
