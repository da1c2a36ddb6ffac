#include "base/os.h"

#include "base/log.h"
#include "base/step_queue.h"
#include "base/stop_signals.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

void run_command(const char *command)
{
    if (step_queue *const queue = step_queue::current())
        return queue->run(command);
    int result = 0;
    {
        const stop_signal_mask admitted(stop_signal_mask::admit);
        result = system(command);
    }
    if (result == -1)
        log_error("Failed to run: %s", command);
}

namespace {

// Has a shell start a command whose output goes into the pipe. What popen() lacks: the command starts with no
// signal blocked, whatever this thread blocks. Returns false when it cannot be started.
bool start_shell(const char *command, int pipe_end, pid_t &child_out)
{
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    if (posix_spawn_file_actions_init(&actions) != 0)
        return false;
    bool started = false;
    if (posix_spawnattr_init(&attributes) == 0) {
        const char *const words[] = {"sh", "-c", command, nullptr};
        started = posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK) == 0 &&
                  posix_spawnattr_setsigmask(&attributes, &none) == 0 &&
                  posix_spawn_file_actions_adddup2(&actions, pipe_end, STDOUT_FILENO) == 0 &&
                  posix_spawn(&child_out, "/bin/sh", &actions, &attributes, const_cast<char *const *>(words),
                              environ) == 0;
        (void)posix_spawnattr_destroy(&attributes);
    }
    (void)posix_spawn_file_actions_destroy(&actions);
    return started;
}

// Fills the buffer from a pipe, but for its last byte; less when the pipe ends before. Returns the count.
size_t read_pipe(int pipe, char *buffer, size_t size)
{
    size_t length = 0;
    while (length < size - 1) {
        const ssize_t count = read(pipe, buffer + length, size - 1 - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        length += static_cast<size_t>(count);
    }
    return length;
}

// What a command prints beyond the buffer, as far as somebody wants to know how much that is.
constexpr size_t most_counted = 1048576;
struct lost_output {
    size_t bytes;
    char last;
};

lost_output skip_rest(int pipe)
{
    lost_output lost = {};
    char block[4096 + 1];
    while (lost.bytes < most_counted) {
        const size_t count = read_pipe(pipe, block, sizeof(block));
        if (count == 0)
            break;
        lost.bytes += count;
        lost.last = block[count - 1];
    }
    return lost;
}

// A line feed that does not fit is not worth a message.
void log_lost(const char *command, size_t taken, const lost_output &lost)
{
    if (lost.bytes > 1 || (lost.bytes == 1 && lost.last != '\n'))
        log_error("Output of %s is cut at %zu of its %zu bytes%s", command, taken, taken + lost.bytes,
                  lost.bytes < most_counted ? "" : " or more");
}

void wait_for(pid_t child)
{
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR)
        continue;
}

} // namespace

bool read_command(const char *command, text_ref output)
{
    output.clear();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    pid_t child = 0;
    const bool started = start_shell(command, ends[1], child);
    (void)close(ends[1]);
    size_t taken = 0;
    lost_output lost = {};
    if (started) {
        const stop_signal_mask admitted(stop_signal_mask::admit);
        taken = read_pipe(ends[0], output.data, output.size);
        lost = skip_rest(ends[0]);
    }
    (void)close(ends[0]); // before the wait: a command that has more to say is not to wait for a reader
    if (started) {
        const stop_signal_mask admitted(stop_signal_mask::admit);
        wait_for(child);
    }
    output.data[taken] = '\0';
    log_lost(command, taken, lost);
    return started;
}

bool file_exists(const char *path)
{
    if (const step_queue *const queue = step_queue::current())
        return queue->exists(path);
    return access(path, F_OK) == 0;
}

bool stands_in_the_way(int error)
{
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EISDIR:
    case ENOTEMPTY:
    case EEXIST:
    case ELOOP:
    case EXDEV:
        return true;
    default:
        return false;
    }
}

namespace {

constexpr int most_tries = 3; // of what must not fail for one error of the disk

bool removed(const char *path)
{
    for (int i = 0; i < most_tries; i++)
        if (remove(path) == 0 || errno == ENOENT)
            return true;
    return false;
}

} // namespace

void remove_file(const char *path, const char *failure)
{
    if (step_queue *const queue = step_queue::current())
        return queue->remove(path, failure);
    if (!removed(path))
        log_error("%s", failure);
}

void take_back_script(const char *path, const char *failure)
{
    if (step_queue *const queue = step_queue::current())
        return queue->take_back(path, failure);
    if (!file_exists(path))
        return;
    char command[sizeof(step::path) + sizeof(" -r")];
    if (text_ref(command).format("%s -r", path))
        run_command(command);
    remove_file(path, failure);
}

void make_directory(const char *path)
{
    if (mkdir(path, 0755) != 0 && errno != EEXIST)
        log_error("Failed to make directory: %s", path);
}

long read_file(const char *path, text_ref content)
{
    content.clear();
    const int file = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0)
        return -1;
    size_t length = 0;
    while (length < content.size - 1) {
        const ssize_t count = read(file, content.data + length, content.size - 1 - length);
        if (count <= 0)
            break;
        length += static_cast<size_t>(count);
    }
    (void)close(file);
    return static_cast<long>(length);
}

uint64_t steady_milliseconds()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

void sleep_until(uint64_t milliseconds)
{
    const timespec end = {static_cast<time_t>(milliseconds / 1000),
                          static_cast<long>(milliseconds % 1000 * 1000000)};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR)
        ;
}

script_file::script_file(const char *path) : path_(path), file_(path, temporary_ending)
{
    if (file_)
        stream_ = file_.open_writer();
    if (!stream_)
        fail_operation();
}

script_file::~script_file()
{
    if (stream_)
        (void)fclose(stream_);
}

void script_file::print(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    (void)vfprintf(stream_, pattern, arguments); // commit() asks the file whether all of it was written
    va_end(arguments);
}

// An operation without one of its scripts would be half of it. Where no script can be, it would never be
// done.
void script_file::fail_operation() const
{
    const int reason = errno;
    if (step_queue *const queue = step_queue::current(); queue && !stands_in_the_way(reason))
        queue->fail(path_, strerror(reason));
}

bool script_file::commit()
{
    constexpr file_look script = {0755, keep_owner, keep_group};
    const bool printed = !ferror(stream_);
    const bool closed = fclose(stream_) == 0;
    stream_ = nullptr;
    if (!printed || !closed || !file_.finish(script)) {
        fail_operation();
        return false;
    }
    step_queue *const queue = step_queue::current();
    if (!queue)
        return file_.put_into_place();
    queue->put(path_, file_.temporary());
    file_.release();
    return true;
}
