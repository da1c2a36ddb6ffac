// The calls that a program makes of the kernel, and which of them matter to what is on disk. Every call is
// either listed with its kind or unknown, so that none which changes a file can go unseen.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>

enum class call_kind : unsigned {
    harmless,
    program_file, // about the program itself, its libraries or its output
    open_to_read,
    open_to_write,
    open_to_create, // where the file is not there yet
    read,
    write,
    truncate,
    sync,
    rename,
    unlink,
    link,
    mode, // owner, mode, times
    directory,
    child,
    thread,
    send,    // to the bus or a pipe
    message, // to the system log
    sleep,
    wait_for_events,
    unknown,
};

using kind_set = uint32_t;
template <typename... kinds> constexpr kind_set set_of(kinds... each)
{
    return (0U | ... | (1U << static_cast<unsigned>(each)));
}
constexpr bool contains(kind_set set, call_kind kind)
{
    return set >> static_cast<unsigned>(kind) & 1U;
}

// Changes what is on disk or starts somebody: between any two of these a program may be killed.
constexpr kind_set changing_calls =
    set_of(call_kind::open_to_write, call_kind::open_to_create, call_kind::write, call_kind::truncate,
           call_kind::sync, call_kind::rename, call_kind::unlink, call_kind::link, call_kind::mode,
           call_kind::directory, call_kind::child, call_kind::thread, call_kind::send);

// One call as its thread is about to make it.
struct system_call {
    pid_t thread = 0;
    long number = 0;
    std::array<uint64_t, 6> words{};
    const char *name = "?";
    call_kind kind = call_kind::unknown;
    int file = -1;           // the descriptor it is about, or -1
    std::string path, other; // absolute; `other` is the new name of a rename or link

    std::string text() const; // "rename /etc/config/.network.new /etc/config/network"
};

// Fills name, kind, file and paths from number and words. The thread must be stopped.
void classify(system_call &call);

// The kind of that name ("rename"), as on a command line.
std::optional<call_kind> kind_named(const std::string &name);

// Memory of a stopped thread; shorter than `size` where it ends.
std::string memory_of(pid_t thread, uint64_t address, size_t size);
