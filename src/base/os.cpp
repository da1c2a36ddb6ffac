#include "base/os.h"

#include "base/log.h"
#include "base/long_commands.h"
#include "base/running_command.h"
#include "base/step_queue.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void run_command(const char *command)
{
    if (step_queue *const queue = step_queue::current())
        return queue->run(command);
    const watched_command watched(command);
    if (system(command) == -1)
        log_error("Failed to run: %s", command);
}

bool read_command(const char *command, text_ref output)
{
    const watched_command watched(command);
    running_command running;
    if (!running.start(command, output))
        return false;
    while (running.descriptor() >= 0)
        running.take();
    running.finish();
    return true;
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
    step_queue *const queue = step_queue::current();
    // The queue syncs what is left of its scripts, which may be put anew several times.
    const auto syncing = queue ? file_replacement::syncing::later : file_replacement::syncing::now;
    const bool printed = !ferror(stream_);
    const bool closed = fclose(stream_) == 0;
    stream_ = nullptr;
    if (!printed || !closed || !file_.finish(script, syncing)) {
        fail_operation();
        return false;
    }
    if (!queue)
        return file_.put_into_place();
    queue->put(path_, file_.temporary());
    file_.release();
    return true;
}
