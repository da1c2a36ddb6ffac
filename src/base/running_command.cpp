#include "base/running_command.h"

#include "base/log.h"
#include "base/clock.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Has a shell start a command whose output goes into the pipe. What popen() lacks: the command starts with no
// signal blocked, whatever this thread blocks. Returns 0, or why it cannot be started.
int start_shell(const char *command, int pipe_end, pid_t &child_out)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    int error = posix_spawn_file_actions_init(&actions);
    if (error != 0)
        return error;
    error = posix_spawnattr_init(&attributes);
    if (error == 0) {
        const char *const words[] = {"sh", "-c", command, nullptr};
        error = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
        if (error == 0)
            error = posix_spawnattr_setsigmask(&attributes, &none);
        if (error == 0)
            error = posix_spawn_file_actions_adddup2(&actions, pipe_end, STDOUT_FILENO);
        if (error == 0)
            error = posix_spawn(&child_out, "/bin/sh", &actions, &attributes,
                                const_cast<char *const *>(words), environ);
        (void)posix_spawnattr_destroy(&attributes);
    }
    (void)posix_spawn_file_actions_destroy(&actions);
    return error;
}

ssize_t read_some(int pipe, char *buffer, size_t size)
{
    ssize_t count;
    do
        count = read(pipe, buffer, size);
    while (count < 0 && errno == EINTR);
    return count;
}

// Tells of the end of one child alone, which a thread learns of in no other way. Its number is the same on
// all processors; C libraries may lack its name, kernels before 5.3 the call.
constexpr long pidfd_open_number = 434;

// Waits for the end of a child, but no longer than `milliseconds`. Where nothing tells of it, for `pause`
// only, and then twice as long the next time.
void await_end(pid_t child, uint64_t milliseconds, timespec &pause)
{
    constexpr long longest = 10000000;
    pollfd end = {static_cast<int>(syscall(pidfd_open_number, child, 0)), POLLIN, 0};
    if (end.fd >= 0) {
        const int told = poll(&end, 1, static_cast<int>(std::min<uint64_t>(milliseconds, INT_MAX)));
        (void)close(end.fd);
        if (told >= 0)
            return;
    }
    (void)nanosleep(&pause, nullptr);
    pause.tv_nsec = std::min(pause.tv_nsec * 2, longest);
}

// What a command prints beyond the buffer counts as far as somebody wants to know how much that is.
constexpr size_t most_counted = 1048576;

} // namespace

bool running_command::start(const char *command, text_ref output)
{
    output.clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const int error = start_shell(command, ends[1], child_);
    (void)close(ends[1]);
    if (error != 0) {
        (void)close(ends[0]);
        child_ = 0;
        errno = error;
        return false;
    }
    command_ = command;
    output_ = output.data;
    room_ = output.size - 1;
    length_ = 0;
    lost_ = 0;
    pipe_ = ends[0];
    return true;
}

void running_command::take()
{
    char block[4096];
    const bool fits = length_ < room_;
    char *const target = fits ? output_ + length_ : block;
    const size_t room = fits ? room_ - length_ : std::min(sizeof(block), most_counted - lost_);
    const ssize_t count = read_some(pipe_, target, room);
    if (count <= 0)
        return close_pipe();
    if (fits) {
        length_ += static_cast<size_t>(count);
        return;
    }
    lost_ += static_cast<size_t>(count);
    last_lost_ = block[count - 1];
    if (lost_ == most_counted)
        close_pipe();
}

void running_command::close_pipe()
{
    (void)close(pipe_);
    pipe_ = -1;
}

void running_command::finish()
{
    if (child_ == 0)
        return;
    if (pipe_ >= 0)
        close_pipe(); // before the wait: a command that has more to say is not to wait for a reader
    while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR)
        continue;
    end();
}

void running_command::end()
{
    child_ = 0;
    output_[length_] = '\0';
    // A line feed that does not fit is not worth a message.
    if (lost_ > 1 || (lost_ == 1 && last_lost_ != '\n'))
        log_error("Output of %s is cut at %zu of its %zu bytes%s", command_, length_, length_ + lost_,
                  lost_ < most_counted ? "" : " or more");
}

bool running_command::finish_until(uint64_t milliseconds)
{
    if (child_ == 0)
        return true;
    const bool has_said_all = pipe_ < 0;
    if (pipe_ >= 0)
        close_pipe();
    for (timespec pause = {0, 50000};;) {
        const pid_t waited = waitpid(child_, nullptr, WNOHANG);
        if (waited == child_ || (waited < 0 && errno != EINTR))
            break;
        const uint64_t now = steady_milliseconds();
        if (now >= milliseconds) {
            if (!has_said_all)
                length_ = 0;
            give_up();
            return false;
        }
        await_end(child_, milliseconds - now, pause);
    }
    end();
    return true;
}

// What cannot even be killed (it hangs in the kernel) stays behind as a process that nobody waits for.
void running_command::give_up()
{
    constexpr timespec pause = {0, 1000000};
    (void)kill(-child_, SIGKILL);
    for (int i = 0; i < 100 && waitpid(child_, nullptr, WNOHANG) == 0; i++)
        (void)nanosleep(&pause, nullptr);
    end();
}
