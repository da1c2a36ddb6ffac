// A change of the machine that is brought about as a whole or not at all.
//
// An operation is a list of works. A work reads and changes configurations and asks for steps (base/os.h) as
// if it acted; what it does is only gathered. When all works are through, everything is written beside what
// it is to replace and synced, and a record of it is written: with that the operation is decided. Before, any
// failure drops the whole of it. Afterwards it is completed in any case, if need be by the next process that
// starts: configurations are renamed into place, then the other steps are taken in the order in which they
// were asked for.
//
// A work that asks for commands (reloads) ends a stage: what the works behind it do is put into place only
// when the commands have run. All stages are in the record.
//
// Where the platform's mxuci does not gather, works act at once, one after the other; the process is then not
// stopped before the last of several begins.
#pragma once

#include <atomic>
#include <cstdint>
#include <span>

// One work and its argument. It returns whether its operation is to go on; if not, nothing has happened. It
// may be run again when another program has written meanwhile.
struct operation_work {
    bool (*run)(void *argument);
    void *argument;
};

enum class operation_result {
    done,    // or will be, by the next process at the latest
    refused, // by a work; nothing has changed
    failed,  // nothing has changed; the log names file and reason
};

// Why an operation failed, or that it is done but for what the next one has to complete: empty texts when
// neither is so. An empty path: no file is to blame.
struct operation_failure {
    char path[256];
    char reason[64];
};

// A work that is a callable, which must outlive the operation.
template <typename callable> operation_work work_of(callable &body)
{
    return {[](void *self) -> bool { return (*static_cast<callable *>(self))(); }, &body};
}

// The most works of an operation.
constexpr size_t most_works = 24;

// Called by a work that cannot go on as it should: its operation fails, with this file and reason in the log.
// Where works act at once, and outside of operations, that is all.
void operation_fail(const char *path, const char *reason);

// Runs an operation. `kept` is a value in memory that works change along with a configuration: it is set back
// when they are run again or for nothing. Any thread; several operations may run at once, and each waits only
// while another one gathers or writes. Works may not begin operations. failure_out may be null.
operation_result operation_run(std::span<const operation_work> works, std::atomic<uint32_t> &kept,
                               operation_failure *failure_out = nullptr);

// Has a function called by each operation, on its thread, when it has files in place and begins to run
// commands, and when they have run: meanwhile another one may gather and write. To be set before there are
// operations.
void operation_tell_commands(void (*listener)(bool run));
