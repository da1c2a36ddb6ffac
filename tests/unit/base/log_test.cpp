// The system log: priorities, and what becomes of texts that others had a hand in.
#include "base/log.h"

#include "support/gateway.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

class log_test : public gateway_test {
protected:
    // What is logged of a text that stands in the middle of a message.
    std::string shown(const std::string &text)
    {
        gateway.clear_log();
        log_error("[%s]", text.c_str());
        const text_lines logged = gateway.log_texts(LOG_ERR);
        return logged.size() == 1 ? logged[0] : testing::PrintToString(logged);
    }
};

// The socket of the system log, to see a message with its last byte.
class log_socket {
public:
    log_socket() : descriptor_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        log_close();
        EXPECT_EQ(0, rename(path, aside));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        strcpy(address.sun_path, path);
        EXPECT_EQ(0, bind(descriptor_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)));
    }
    ~log_socket()
    {
        log_close();
        close(descriptor_);
        EXPECT_EQ(0, rename(aside, path));
    }
    log_socket(const log_socket &) = delete;
    log_socket &operator=(const log_socket &) = delete;

    // The next message from its text on.
    std::string next()
    {
        char message[8192];
        const ssize_t length = recv(descriptor_, message, sizeof(message), 0);
        std::string text(message, length < 0 ? 0 : static_cast<size_t>(length));
        while (text.ends_with('\0')) // some versions of the C library end each message with one
            text.pop_back();
        return text.substr(text.find(": ") + 2);
    }

private:
    static constexpr char path[] = "/dev/log";
    static constexpr char aside[] = "/dev/log.aside";
    int descriptor_;
};

TEST_F(log_test, each_call_has_its_priority)
{
    log_error("error %d", 1);
    log_warning("warning %s", "two");
    log_info("info %u", 3U);

    EXPECT_EQ(text_lines{"error 1"}, gateway.log_texts(LOG_ERR));
    EXPECT_EQ(text_lines{"warning two"}, gateway.log_texts(LOG_WARNING));
    EXPECT_EQ(text_lines{"info 3"}, gateway.log_texts(LOG_INFO));
}

TEST_F(log_test, printable_texts_are_logged_as_they_are)
{
    std::string every;
    for (char character = ' '; character <= '~'; character++)
        every += character;

    EXPECT_EQ("[" + every + "]", shown(every));
    EXPECT_EQ("[]", shown(""));
}

TEST_F(log_test, unprintable_characters_are_shown_as_question_marks)
{
    const struct {
        const char *text, *shown;
    } cases[] = {
        {"1\n<0>kernel: panic", "[1?<0>kernel: panic]"},
        {"\n", "[?]"},
        {"\r\t\x01\x1f\x7f", "[?????]"},
        {"\x1b[2J", "[?[2J]"},
        {"caf\xc3\xa9", "[caf??]"},
        {"\x80\x9b\xff", "[???]"},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.shown);

        EXPECT_EQ(row.shown, shown(row.text));
    }
}

TEST_F(log_test, a_line_feed_at_a_patterns_end_stays)
{
    log_socket socket;
    log_info("path: %s\n", "/tmp/a\nb");
    EXPECT_EQ("path: /tmp/a?b\n", socket.next());

    log_info("%s", "text\n");
    EXPECT_EQ("text?", socket.next());
}

TEST_F(log_test, a_text_too_long_for_one_message_is_cut_visibly)
{
    EXPECT_EQ("[" + std::string(2045, 'x') + "]", shown(std::string(2045, 'x')));
    EXPECT_EQ("[" + std::string(2043, 'x') + "...", shown(std::string(2046, 'x')));
    EXPECT_EQ("[" + std::string(2043, 'x') + "...", shown(std::string(9000, 'x')));
}

} // namespace
