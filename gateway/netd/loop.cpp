#include "netd/loop.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// The writing end of the pipe by which the signal handler wakes the loop.
volatile sig_atomic_t wake_descriptor = -1;

void wake(int)
{
    const int error = errno;
    const char byte = 0;
    // A full pipe has woken the loop already.
    (void)!write(wake_descriptor, &byte, 1);
    errno = error;
}

} // namespace

timer::timer(std::function<void()> action) : action_(std::move(action))
{
    state_.cb = fire;
    state_.owner = this;
}

timer::~timer()
{
    stop();
}

void timer::start(int milliseconds)
{
    uloop_timeout_set(&state_, milliseconds);
}

void timer::stop()
{
    uloop_timeout_cancel(&state_);
}

void timer::fire(uloop_timeout *state)
{
    const std::function<void()> action = static_cast<loop_timer *>(state)->owner->action_;
    action();
}

child::child(std::function<void(int)> ended) : ended_(std::move(ended))
{
    state_.cb = reap;
    state_.owner = this;
}

child::~child()
{
    if (state_.pending)
        uloop_process_delete(&state_);
}

bool child::start(const std::vector<std::string> &words, const std::vector<std::string> &variables)
{
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string &word : words)
        arguments.push_back(const_cast<char *>(word.c_str()));
    arguments.push_back(nullptr);

    const pid_t pid = fork();
    if (pid == 0) {
        signal(SIGPIPE, SIG_DFL);
        for (const std::string &variable : variables)
            putenv(const_cast<char *>(variable.c_str()));
        execvp(arguments[0], arguments.data());
        perror(arguments[0]);
        _exit(127);
    }
    if (pid < 0) {
        perror("fork");
        return false;
    }
    state_.pid = pid;
    uloop_process_add(&state_);
    return true;
}

void child::reap(uloop_process *state, int wait_status)
{
    static_cast<loop_process *>(state)->owner->ended_(wait_status);
}

signal_source::signal_source(int signal_number, std::function<void()> action) : action_(std::move(action))
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK)) {
        perror("pipe");
        exit(EXIT_FAILURE);
    }
    writer_ = ends[1];
    wake_descriptor = writer_;
    state_.fd = ends[0];
    state_.cb = arrived;
    state_.owner = this;
    uloop_fd_add(&state_, ULOOP_READ);

    struct sigaction handler {};
    handler.sa_handler = wake;
    handler.sa_flags = SA_RESTART;
    sigaction(signal_number, &handler, nullptr);
}

signal_source::~signal_source()
{
    uloop_fd_delete(&state_);
    wake_descriptor = -1;
    close(state_.fd);
    close(writer_);
}

void signal_source::arrived(uloop_fd *state, unsigned)
{
    char bytes[64];
    while (read(state->fd, bytes, sizeof(bytes)) > 0)
        ;
    static_cast<loop_descriptor *>(state)->owner->action_();
}
