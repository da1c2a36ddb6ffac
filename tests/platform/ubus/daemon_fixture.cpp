#include "platform/ubus/daemon_fixture.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr size_t hello_size = 12;
constexpr size_t prefix_size = 12;
constexpr uint32_t extended_mark = 0x80000000;
constexpr uint8_t type_table = 2, type_text = 3, type_number = 5;
constexpr uint16_t ping_seq = 0xfffe;
constexpr uint32_t ping_peer = 0x70696e67;

void append_word(bytes &data, uint32_t value)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        data.push_back(static_cast<uint8_t>(value >> shift));
}

uint32_t word_at(const bytes &data, size_t place)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; i++)
        value = value << 8 | data.at(place + i);
    return value;
}

void pad(bytes &data)
{
    data.resize((data.size() + 3) / 4 * 4);
}

bytes with_nul(std::string_view text)
{
    bytes data(text.begin(), text.end());
    data.push_back(0);
    return data;
}

sockaddr_un address_of(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

int connect_socket(const std::string &path)
{
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = address_of(path);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        return fd;
    close(fd);
    return -1;
}

void await(int socket, short events)
{
    pollfd waiting{socket, events, 0};
    if (poll(&waiting, 1, static_cast<int>(default_deadline.count())) != 1)
        throw std::runtime_error(events == POLLIN ? "the daemon sends nothing" : "the daemon reads nothing");
}

} // namespace

std::string words(const bytes &data)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < data.size(); i++) {
        if (i > 0 && i % 4 == 0)
            text += ' ';
        text += digits[data[i] >> 4];
        text += digits[data[i] & 15];
    }
    return text;
}

bytes from_hex(std::string_view text)
{
    bytes data;
    std::string pair;
    for (const char digit : text) {
        if (digit == ' ')
            continue;
        pair += digit;
        if (pair.size() == 2) {
            data.push_back(static_cast<uint8_t>(std::stoi(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return data;
}

std::string word(uint32_t value)
{
    bytes data;
    append_word(data, value);
    return words(data);
}

bytes operator+(bytes left, const bytes &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

bytes attribute(uint8_t id, const bytes &payload)
{
    bytes data;
    append_word(data, static_cast<uint32_t>(id) << 24 | static_cast<uint32_t>(4 + payload.size()));
    data = data + payload;
    pad(data);
    return data;
}

bytes number_field(uint8_t id, uint32_t value)
{
    bytes payload;
    append_word(payload, value);
    return attribute(id, payload);
}

bytes flag_field(uint8_t id, bool value)
{
    return attribute(id, {static_cast<uint8_t>(value)});
}

bytes text_field(uint8_t id, std::string_view value)
{
    return attribute(id, with_nul(value));
}

bytes named(uint8_t type, std::string_view name, const bytes &data)
{
    bytes payload{static_cast<uint8_t>(name.size() >> 8), static_cast<uint8_t>(name.size())};
    payload = payload + with_nul(name);
    pad(payload);
    payload = payload + data;
    bytes whole;
    append_word(whole, extended_mark | static_cast<uint32_t>(type) << 24 |
                           static_cast<uint32_t>(4 + payload.size()));
    whole = whole + payload;
    pad(whole);
    return whole;
}

bytes named_number(std::string_view name, uint32_t value)
{
    bytes data;
    append_word(data, value);
    return named(type_number, name, data);
}

bytes named_text(std::string_view name, std::string_view value)
{
    return named(type_text, name, with_nul(value));
}

bytes named_table(std::string_view name, const bytes &members)
{
    return named(type_table, name, members);
}

bytes message(uint8_t type, uint16_t seq, uint32_t peer, const bytes &fields)
{
    bytes data{0, type, static_cast<uint8_t>(seq >> 8), static_cast<uint8_t>(seq)};
    append_word(data, peer);
    append_word(data, static_cast<uint32_t>(4 + fields.size()));
    return data + fields;
}

bytes status_message(uint16_t seq, uint32_t peer, int status)
{
    return message(msg_status, seq, peer, number_field(field_status, static_cast<uint32_t>(status)));
}

bytes test_signature()
{
    return named_table("get", named_number("wanId", 5)) + named_table("all");
}

raw_client::raw_client(const std::string &socket_path) : socket_(connect_socket(socket_path))
{
    if (socket_ < 0)
        throw std::runtime_error("cannot connect to " + socket_path + ": " + strerror(errno));
}

raw_client::raw_client(int socket) : socket_(socket) {}

raw_client::raw_client(raw_client &&other) noexcept
    : socket_(std::exchange(other.socket_, -1)), id_(other.id_), greeted_(other.greeted_)
{}

raw_client &raw_client::operator=(raw_client &&other) noexcept
{
    std::swap(socket_, other.socket_);
    std::swap(id_, other.id_);
    std::swap(greeted_, other.greeted_);
    return *this;
}

raw_client::~raw_client()
{
    disconnect();
}

void raw_client::disconnect()
{
    if (socket_ >= 0)
        close(socket_);
    socket_ = -1;
}

void raw_client::finish_writing()
{
    shutdown(socket_, SHUT_WR);
}

bytes raw_client::read_exactly(size_t size)
{
    bytes data(size);
    size_t got = 0;
    while (got < size) {
        await(socket_, POLLIN);
        const ssize_t part = recv(socket_, &data[got], size - got, 0);
        if (part <= 0) {
            data.resize(got);
            return data;
        }
        got += static_cast<size_t>(part);
    }
    return data;
}

std::string raw_client::hello()
{
    greeted_ = true;
    const bytes greeting = read_exactly(hello_size);
    if (greeting.size() < hello_size)
        return "closed";
    id_ = word_at(greeting, 4);
    return words(greeting);
}

uint32_t raw_client::id()
{
    if (!greeted_)
        hello();
    return id_;
}

void raw_client::send(const bytes &data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        await(socket_, POLLOUT);
        const ssize_t part = ::send(socket_, &data[sent], data.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (part < 0 && errno != EAGAIN)
            throw std::runtime_error(std::string("cannot send: ") + strerror(errno));
        sent += part < 0 ? 0 : static_cast<size_t>(part);
    }
}

bytes raw_client::receive_bytes()
{
    if (!greeted_)
        hello();
    bytes data = read_exactly(prefix_size);
    if (data.size() < prefix_size)
        return {};
    const size_t length = word_at(data, 8) & 0x00ffffff;
    return data + read_exactly(length - 4);
}

std::string raw_client::receive()
{
    const bytes data = receive_bytes();
    return data.empty() ? "closed" : words(data);
}

int raw_client::call(const bytes &request, std::vector<bytes> *data_out)
{
    send(request);
    for (;;) {
        const bytes answer = receive_bytes();
        if (answer.empty())
            throw std::runtime_error("the daemon closed the connection");
        const bool same_request = std::equal(answer.begin() + 2, answer.begin() + 8, request.begin() + 2);
        if (answer[1] == msg_status && same_request)
            return static_cast<int>(number_in(answer, field_status));
        if (data_out)
            data_out->push_back(answer);
    }
}

std::vector<std::string> raw_client::pending()
{
    std::vector<std::string> arrived;
    send(message(msg_ping, ping_seq, ping_peer));
    const std::string echo = words(message(msg_data, ping_seq, ping_peer));
    for (std::string next = receive(); next != echo; next = receive()) {
        if (next == "closed")
            throw std::runtime_error("the daemon closed the connection");
        arrived.push_back(next);
    }
    const std::string end = receive();
    if (end != words(status_message(ping_seq, ping_peer, 0)))
        throw std::runtime_error("unexpected answer to a ping: " + end);
    return arrived;
}

uint32_t raw_client::add_object(std::string_view path, const bytes &signature)
{
    std::vector<bytes> data;
    const int status = call(message(msg_add_object, 0x61, 0,
                                    text_field(field_path, path) + attribute(field_signature, signature)),
                            &data);
    return status == 0 && !data.empty() ? number_in(data.back(), field_object) : 0;
}

uint32_t raw_client::add_anonymous()
{
    std::vector<bytes> data;
    const int status = call(message(msg_add_object, 0x62, 0), &data);
    return status == 0 && !data.empty() ? number_in(data.back(), field_object) : 0;
}

int raw_client::listen(uint32_t object, std::string_view pattern)
{
    const bytes arguments = named_number("object", object) + named_text("pattern", pattern);
    return call(message(msg_invoke, 0x63, event_object,
                        number_field(field_object, event_object) + text_field(field_method, "register") +
                            attribute(field_data, arguments)));
}

int raw_client::send_event(std::string_view name, const bytes &members)
{
    const bytes arguments = named_text("id", name) + named_table("data", members);
    return call(message(msg_invoke, 0x64, event_object,
                        number_field(field_object, event_object) + text_field(field_method, "send") +
                            attribute(field_data, arguments)));
}

uint32_t number_in(const bytes &message, uint8_t field)
{
    for (size_t place = prefix_size; place + 8 <= message.size();) {
        const uint32_t head = word_at(message, place);
        if (head >> 24 == field)
            return word_at(message, place + 4);
        place += ((head & 0x00ffffff) + 3) / 4 * 4;
    }
    return 0;
}

ubusd_test::ubusd_test()
{
    char path[] = "/tmp/ubusd-test-XXXXXX";
    if (!mkdtemp(path))
        throw std::runtime_error(std::string("cannot make a directory: ") + strerror(errno));
    directory = path;
    // Other users connect too.
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    socket_path = directory + "/socket";
}

ubusd_test::~ubusd_test()
{
    // A daemon that a sanitizer or a crash has ended shows here at the latest.
    if (daemon.pid() != 0) {
        EXPECT_EQ(0, daemon.stop(SIGTERM));
    }
    std::filesystem::remove_all(directory);
}

void ubusd_test::start(const std::vector<std::string> &options, const program_environment &variables)
{
    start_command({UBUSD_PROGRAM}, options, variables);
}

void ubusd_test::start_below(const std::string &root, const std::vector<std::string> &options)
{
    start_command({"/usr/sbin/chroot", root, UBUSD_PROGRAM}, options, {});
}

void ubusd_test::start_command(program_arguments command, const std::vector<std::string> &options,
                               const program_environment &variables)
{
    command.insert(command.end(), {"-s", socket_path});
    command.insert(command.end(), options.begin(), options.end());
    daemon = child_process(command, variables);
    const bool listening = wait_until([this] {
        const int probe = connect_socket(socket_path);
        if (probe >= 0)
            close(probe);
        return probe >= 0 || !daemon.running();
    });
    if (!listening || !daemon.running())
        throw std::runtime_error("ubusd does not listen");
}

running_ubusd_test::running_ubusd_test()
{
    std::filesystem::create_directory(directory + "/acl");
    start({"-A", directory + "/acl"});
}

bool send_with_fd(int socket, const bytes &data, int fd)
{
    bytes copy = data;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{copy.data(), copy.size()};
    msghdr parcel{};
    parcel.msg_iov = &part;
    parcel.msg_iovlen = 1;
    if (fd >= 0) {
        parcel.msg_control = control;
        parcel.msg_controllen = sizeof(control);
        cmsghdr *const rights = CMSG_FIRSTHDR(&parcel);
        rights->cmsg_level = SOL_SOCKET;
        rights->cmsg_type = SCM_RIGHTS;
        rights->cmsg_len = CMSG_LEN(sizeof(int));
        memcpy(CMSG_DATA(rights), &fd, sizeof(fd));
    }
    return sendmsg(socket, &parcel, MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

bytes receive_with_fd(int socket, size_t size, int &fd_out)
{
    bytes data(size);
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    iovec part{data.data(), data.size()};
    msghdr parcel{};
    parcel.msg_iov = &part;
    parcel.msg_iovlen = 1;
    parcel.msg_control = control;
    parcel.msg_controllen = sizeof(control);
    fd_out = -1;
    await(socket, POLLIN);
    const ssize_t got = recvmsg(socket, &parcel, MSG_CMSG_CLOEXEC);
    if (const cmsghdr *const rights = CMSG_FIRSTHDR(&parcel))
        memcpy(&fd_out, CMSG_DATA(rights), sizeof(fd_out));
    data.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return data;
}

int connect_as(unsigned user, unsigned group, const std::string &socket_path)
{
    // The identity that counts is the one at the time of connecting, so a child connects and hands the socket
    // over.
    int channel[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, channel) != 0)
        return -1;
    const pid_t child = fork();
    if (child == 0) {
        const bool changed = setresgid(group, group, group) == 0 && setresuid(user, user, user) == 0;
        const int fd = changed ? connect_socket(socket_path) : -1;
        _exit(send_with_fd(channel[1], {static_cast<uint8_t>(fd < 0 ? errno : 0)}, fd) ? 0 : 1);
    }
    int fd = -1;
    const bytes error = receive_with_fd(channel[0], 1, fd);
    close(channel[0]);
    close(channel[1]);
    waitpid(child, nullptr, 0);
    errno = error.empty() ? EIO : error[0];
    return fd;
}
