#include "base/os.h"

#include "base/log.h"
#include "base/stop_signals.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

void run_command(const char *command)
{
    const stop_signal_mask admitted(stop_signal_mask::admit);
    if (system(command) == -1)
        log_error("Failed to run: %s", command);
}

bool read_command(const char *command, text_ref output)
{
    output.clear();
    FILE *const pipe = popen(command, "re");
    if (!pipe)
        return false;
    // Unbuffered, so that the read allocates nothing while the stop signals are admitted.
    (void)setvbuf(pipe, nullptr, _IONBF, 0);
    {
        const stop_signal_mask admitted(stop_signal_mask::admit);
        const size_t count = fread(output.data, 1, output.size - 1, pipe);
        output.data[count] = '\0';
    }
    (void)pclose(pipe);
    return true;
}

bool file_exists(const char *path)
{
    return access(path, F_OK) == 0;
}

bool remove_file(const char *path)
{
    return remove(path) == 0;
}

void make_directory(const char *path)
{
    if (mkdir(path, 0755) != 0 && errno != EEXIST)
        log_error("Failed to make directory: %s", path);
}

namespace {

// O_NONBLOCK: a pipe left under the name must not hold up the daemon's start.
constexpr int input_flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

} // namespace

FILE *open_input(const char *path)
{
    const int file = open(path, input_flags);
    FILE *const stream = file < 0 ? nullptr : fdopen(file, "r");
    if (!stream && file >= 0)
        (void)close(file);
    return stream;
}

long read_file(const char *path, text_ref content)
{
    content.clear();
    const int file = open(path, input_flags);
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

void sleep_seconds(unsigned seconds)
{
    while (seconds > 0)
        seconds = sleep(seconds);
}

namespace {

void sync_parent_directory(const char *path)
{
    char directory[96];
    text_ref(directory).format("%.*s", static_cast<int>(strrchr(path, '/') - path), path);
    const int handle = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (handle < 0)
        return;
    (void)fsync(handle);
    (void)close(handle);
}

} // namespace

script_file::script_file(const char *path) : path_(path), stream_(nullptr)
{
    // Hidden, so that hotplug, which runs what it finds in the directory, never sees a script half written.
    const char *const name = strrchr(path, '/') + 1;
    if (!text_ref(temporary_).format("%.*s.%s.new", static_cast<int>(name - path), path, name))
        return;
    stream_ = fopen(temporary_, "we");
}

script_file::~script_file()
{
    if (!stream_)
        return;
    (void)fclose(stream_);
    (void)unlink(temporary_);
}

void script_file::print(const char *pattern, ...)
{
    va_list arguments;
    va_start(arguments, pattern);
    (void)vfprintf(stream_, pattern, arguments); // commit() asks the stream whether all of it was written
    va_end(arguments);
}

bool script_file::commit()
{
    const bool written = fflush(stream_) == 0 && !ferror(stream_) && fchmod(fileno(stream_), 0755) == 0 &&
                         fsync(fileno(stream_)) == 0;
    const bool closed = fclose(stream_) == 0;
    stream_ = nullptr;
    if (!written || !closed || rename(temporary_, path_) != 0) {
        (void)unlink(temporary_);
        return false;
    }
    sync_parent_directory(path_);
    return true;
}
