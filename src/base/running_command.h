// A shell command whose output is taken piece by piece, so that several can run side by side and whoever
// waits for them sees all of their descriptors.
#pragma once

#include "base/text.h"

#include <cstdint>
#include <sys/types.h>

class running_command {
public:
    running_command() = default;
    ~running_command() { finish(); }
    running_command(const running_command &) = delete;
    running_command &operator=(const running_command &) = delete;

    // Has a shell start a command, with no signal blocked, no descriptor but the three standard ones, and a
    // process group of its own. At most output.size - 1 bytes of what it prints, from its start, will be in
    // `output`, with a terminator behind them. Both arguments must live until finish(). Returns false when it
    // cannot be started; output is then empty text, and errno says why.
    bool start(const char *command, text_ref output);

    // Whether there is a command that was started and not finished.
    bool runs() const { return child_ != 0; }

    // What becomes readable when there is more to take(): output, or its end. -1: there is nothing more.
    int descriptor() const { return pipe_; }

    // Takes what the command has printed; waits for that when there is nothing.
    void take();

    // Waits for the command's end, without looking at what it prints from now on. Logs with its size what of
    // the output did not fit. Does nothing when no command runs.
    void finish();

    // The same, but only until the clock of steady_milliseconds() shows that much. Then the command is given
    // up: it is killed with all that it has started, its output is cleared, and it is no longer waited for.
    // Returns whether it ended by itself.
    bool finish_until(uint64_t milliseconds);

private:
    void close_pipe();
    void end();
    void give_up();

    const char *command_ = nullptr;
    char *output_ = nullptr;
    size_t room_ = 0; // of the output, without its terminator
    size_t length_ = 0;
    size_t lost_ = 0; // bytes that did not fit, as far as they were counted
    char last_lost_ = '\0';
    int pipe_ = -1;
    pid_t child_ = 0; // 0: no command runs
};
