// A bus daemon for one test, and clients that speak its protocol byte by byte. Nothing here uses the
// libraries under test: messages are put together and compared as bytes.
#pragma once

#include "support/process.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

using bytes = std::vector<uint8_t>;

// Bytes as hexadecimal words of four, as in "00030001 12345678".
std::string words(const bytes &data);
// The other way round; blanks are skipped.
bytes from_hex(std::string_view text);
std::string word(uint32_t value);
bytes operator+(bytes left, const bytes &right);

// Message types, field ids and statuses as they are on the wire.
enum : uint8_t {
    msg_hello,
    msg_status,
    msg_data,
    msg_ping,
    msg_lookup,
    msg_invoke,
    msg_add_object,
    msg_remove_object,
    msg_subscribe,
    msg_unsubscribe,
    msg_notify,
    msg_monitor,
};
enum : uint8_t {
    field_status = 1,
    field_path,
    field_object,
    field_method,
    field_type,
    field_signature,
    field_data,
    field_target,
    field_active,
    field_no_reply,
    field_subscribers,
    field_user,
    field_group,
};
constexpr uint32_t event_object = 1, access_object = 2, monitor_object = 3;

// One attribute: its head word, the payload, and padding.
bytes attribute(uint8_t id, const bytes &payload);
bytes number_field(uint8_t id, uint32_t value);
bytes flag_field(uint8_t id, bool value);
bytes text_field(uint8_t id, std::string_view value);
// Named and typed values, as DATA and SIGNATURE carry them.
bytes named(uint8_t type, std::string_view name, const bytes &data);
bytes named_number(std::string_view name, uint32_t value);
bytes named_text(std::string_view name, std::string_view value);
bytes named_table(std::string_view name, const bytes &members = {});

// A whole message around these fields.
bytes message(uint8_t type, uint16_t seq, uint32_t peer, const bytes &fields = {});
bytes status_message(uint16_t seq, uint32_t peer, int status);

// The methods get(wanId INT32) and all() as a signature's payload.
bytes test_signature();

// A connection to the daemon. Every operation fails the test, by an exception, when it takes longer than the
// default deadline.
class raw_client {
public:
    // Connects; hello() tells what came first.
    explicit raw_client(const std::string &socket_path);
    // Takes over a connected socket.
    explicit raw_client(int socket);
    raw_client(raw_client &&other) noexcept;
    raw_client &operator=(raw_client &&other) noexcept;
    ~raw_client();

    int socket() const { return socket_; }
    // Reads the greeting; "closed" if there is none.
    std::string hello();
    // The id that the greeting gave; reads it when that has not been done.
    uint32_t id();

    void send(const bytes &data);
    // The next message in words, or "closed" at the end of the stream.
    std::string receive();
    // The next message as bytes, empty at the end of the stream.
    bytes receive_bytes();
    // Sends a request and returns the status that answers it; everything before it goes to data_out.
    int call(const bytes &request, std::vector<bytes> *data_out = nullptr);
    // What has arrived up to now: the messages before the answer to a ping. Empty: nothing.
    std::vector<std::string> pending();
    // The daemon sees the end of the stream; its answers can still be read.
    void finish_writing();
    void disconnect();

    // Adds an object and returns its id; 0 if that failed.
    uint32_t add_object(std::string_view path, const bytes &signature = test_signature());
    uint32_t add_anonymous();
    int listen(uint32_t object, std::string_view pattern);
    int send_event(std::string_view name, const bytes &members = {});

private:
    bytes read_exactly(size_t size);

    int socket_ = -1;
    uint32_t id_ = 0;
    bool greeted_ = false;
};

// The first number field of this id in a message; 0 if there is none.
uint32_t number_in(const bytes &message, uint8_t field);

// Starts ubusd on a socket in a fresh directory and stops it at the end.
class ubusd_test : public testing::Test {
protected:
    ubusd_test();
    ~ubusd_test() override;

    // Starts it with these options beside the socket, and waits until it listens.
    void start(const std::vector<std::string> &options = {}, const program_environment &variables = {});
    // The same in another directory as root, in which the socket's directory is visible.
    void start_below(const std::string &root, const std::vector<std::string> &options);
    raw_client connect() const { return raw_client(socket_path); }

    std::string directory;
    std::string socket_path;
    child_process daemon;

private:
    void start_command(program_arguments command, const std::vector<std::string> &options,
                       const program_environment &variables);
};

// The same, with the daemon running and no access files.
class running_ubusd_test : public ubusd_test {
protected:
    running_ubusd_test();
};

// Sends data in one piece together with a descriptor; -1: none.
bool send_with_fd(int socket, const bytes &data, int fd);
// Reads at most `size` bytes in one piece; fd_out is what came along, -1: nothing.
bytes receive_with_fd(int socket, size_t size, int &fd_out);

// A socket that another user and group connected; -1 with errno if this process may not become that user.
int connect_as(unsigned user, unsigned group, const std::string &socket_path);
