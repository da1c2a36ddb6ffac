// Catches system log messages and writes them to a file, one line each.
#include "tools/syslogd.h"

#include "tools/places.h"

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr const char *priority_names[] = {"emerg",   "alert",  "crit", "err",
                                          "warning", "notice", "info", "debug"};
constexpr size_t timestamp_length = sizeof("Nov 21 06:04:00 ") - 1;

[[noreturn]] void fail(const char *path)
{
    throw std::system_error(errno, std::generic_category(), path);
}

// Takes "<27>" off the text; a message without it counts as a notice, as syslog daemons have it.
const char *take_priority(std::string_view &text)
{
    int value = LOG_NOTICE;
    const size_t end = text.find('>');
    if (!text.empty() && text.front() == '<' && end != std::string_view::npos) {
        (void)std::from_chars(text.data() + 1, text.data() + end, value);
        text.remove_prefix(end + 1);
    }
    return priority_names[LOG_PRI(value)];
}

void skip_timestamp(std::string_view &text)
{
    if (text.size() >= timestamp_length && text[6] == ' ' && text[9] == ':' && text[12] == ':')
        text.remove_prefix(timestamp_length);
}

// Takes "korvel[123]: " off the text.
std::string_view take_ident(std::string_view &text)
{
    const size_t end = text.find(": ");
    if (end == std::string_view::npos)
        return "-";
    const std::string_view tag = text.substr(0, end);
    text.remove_prefix(end + 2);
    return tag.substr(0, tag.find('['));
}

int bind_socket()
{
    const int socket_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof(log_socket_path) <= sizeof(address.sun_path));
    std::memcpy(address.sun_path, log_socket_path, sizeof(log_socket_path));
    (void)unlink(log_socket_path); // left by one that was killed
    if (socket_fd < 0 || bind(socket_fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0)
        fail(log_socket_path);
    return socket_fd;
}

// Readable once this process is asked to end.
int stop_descriptor()
{
    sigset_t stops;
    sigemptyset(&stops);
    sigaddset(&stops, SIGINT);
    sigaddset(&stops, SIGTERM);
    (void)sigprocmask(SIG_BLOCK, &stops, nullptr);
    const int stop = signalfd(-1, &stops, SFD_CLOEXEC);
    if (stop < 0)
        fail("signalfd");
    return stop;
}

// Writes one waiting message.
void take_message(int messages, int log)
{
    char datagram[8192];
    const ssize_t length = recv(messages, datagram, sizeof(datagram), 0);
    if (length < 0)
        fail(log_socket_path);
    const std::string line = log_line({datagram, static_cast<size_t>(length)}) + "\n";
    if (write(log, line.data(), line.size()) != static_cast<ssize_t>(line.size()))
        fail(log_path);
}

} // namespace

std::string log_line(std::string_view datagram)
{
    std::string line = take_priority(datagram);
    skip_timestamp(datagram);
    line += ' ';
    line += take_ident(datagram);
    line += ' ';
    for (const char character : datagram) {
        if (character == '\n')
            line += "\\n";
        else if (character != '\0')
            line += character;
    }
    return line;
}

void run_syslogd()
{
    const int log = open(log_path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    if (log < 0)
        fail(log_path);
    const int stop = stop_descriptor();
    const int messages = bind_socket();
    for (;;) {
        pollfd waiting[] = {{messages, POLLIN, 0}, {stop, POLLIN, 0}};
        if (poll(waiting, std::size(waiting), -1) < 0) {
            if (errno != EINTR)
                fail("poll");
            continue;
        }
        if (waiting[0].revents)
            take_message(messages, log);
        else
            return; // asked to end, and nothing is waiting any more
    }
}
