// What leaves the process: commands, files.
//
// While an operation's work runs, what changes the machine is not done but noted as a step of the operation,
// and what asks about it is answered as if it had been done. Reading commands are run all the same.
#pragma once

#include "base/text.h"

#include <cstdio>
#include <replace_file.h>

// Runs a shell command and waits for it, however long that takes (base/long_commands.h). Callers look at what
// the command was to achieve, not at its exit status.
void run_command(const char *command);

// Runs a shell command, waits for it and takes at most output.size - 1 bytes of what it prints, from its
// start, with a terminator behind them; what is cut off is logged with its size. Returns false when the
// command could not be started; output is then empty text.
bool read_command(const char *command, text_ref output);

bool file_exists(const char *path);

// Whether an errno tells of something that stands in a file's way (no directory, another kind of file in its
// place) and will do so tomorrow, not of a disk that refuses or is full.
bool stands_in_the_way(int error);

// Removes a file, a link or an empty directory. `failure` is logged when that fails.
void remove_file(const char *path, const char *failure);

// Runs a script with -r, so that it removes what it installed, and removes it. Without such a script nothing
// happens. `failure` is logged when the removal fails.
void take_back_script(const char *path, const char *failure);

// Makes a directory unless something of that name is there; a failure is logged.
void make_directory(const char *path);

// Reads at most content.size - 1 bytes of a file and terminates them; a file whose reading fails ends there,
// and a pipe is not waited for.
// Returns the number of bytes, or -1 when the file cannot be opened.
long read_file(const char *path, text_ref content);

// An executable script that appears under its path whole or not at all, as file_replacement does it: it is
// opened beside it under a hidden name, and written, synced and, unless it becomes a step of an operation,
// renamed by commit(). An operation fails with its script, but not for want of the script's directory, which
// is made at the next start: then there is only no script.
// Without a successful commit() nothing is left behind and an older script stays as it was.
class script_file {
public:
    explicit script_file(const char *path);
    ~script_file();
    script_file(const script_file &) = delete;
    script_file &operator=(const script_file &) = delete;

    // Whether the script could be opened.
    explicit operator bool() const { return stream_ != nullptr; }
    void print(const char *pattern, ...) __attribute__((format(printf, 2, 3)));
    // Makes the script appear with mode 0755. Returns whether every byte of it, and its name, reached the
    // disk.
    bool commit();

private:
    void fail_operation() const;

    const char *path_;
    file_replacement file_;
    FILE *stream_ = nullptr;
};
