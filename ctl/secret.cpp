#include "ctl/secret.h"

#include "ctl/output.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace {

// A terminal that does not show what is typed, as long as this lives.
class unseen_typing {
public:
    unseen_typing() : is_terminal_(tcgetattr(STDIN_FILENO, &before_) == 0)
    {
        if (!is_terminal_)
            return;
        // A terminal left like this would be of no use to anybody: what ends the program waits.
        sigset_t ending;
        (void)sigemptyset(&ending);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGTSTP})
            (void)sigaddset(&ending, number);
        (void)pthread_sigmask(SIG_BLOCK, &ending, &mask_);
        termios unseen = before_;
        unseen.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &unseen);
        (void)fputs("Password: ", stderr);
    }
    ~unseen_typing()
    {
        if (!is_terminal_)
            return;
        (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        (void)fputs("\n", stderr);
        (void)pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    }
    unseen_typing(const unseen_typing &) = delete;
    unseen_typing &operator=(const unseen_typing &) = delete;

private:
    termios before_ = {};
    sigset_t mask_ = {};
    bool is_terminal_;
};

// Reads the first line of a stream. Returns its length, which may be beyond what the text holds, or -1 when
// there is an error or a byte that no text can have.
long read_line(FILE *stream, text_ref line_out)
{
    size_t length = 0;
    line_out.clear();
    for (int byte = getc(stream); byte != EOF && byte != '\n'; byte = getc(stream)) {
        if (byte == '\0')
            return -1;
        if (length + 1 < line_out.size)
            line_out.data[length] = static_cast<char>(byte);
        length++;
    }
    if (length > 0 && length < line_out.size && line_out.data[length - 1] == '\r')
        line_out.data[--length] = '\0';
    return ferror(stream) ? -1 : static_cast<long>(length);
}

} // namespace

exit_status read_password(const char *path, text_ref password_out)
{
    const bool is_input = strcmp(path, "-") == 0;
    FILE *const stream = is_input ? stdin : fopen(path, "re");
    if (!stream)
        return fail(exit_status::usage, "the password file %s cannot be read: %s", path, strerror(errno));
    long length = 0;
    if (is_input) {
        const unseen_typing unseen;
        length = read_line(stream, password_out);
    } else {
        length = read_line(stream, password_out);
        (void)fclose(stream);
    }
    if (length < 0)
        return fail(exit_status::usage, "%s cannot be read, or has a zero byte", path);
    if (length == 0)
        return fail(exit_status::usage, "%s has no password in its first line", path);
    if (static_cast<size_t>(length) >= password_out.size)
        return fail(exit_status::usage, "the password has %ld characters; at most %zu fit", length,
                    password_out.size - 1);
    return exit_status::done;
}
