#include "faults/faults.h"

#include <cerrno>

namespace {

using enum call_kind;

constexpr kind_set disk_filling = set_of(open_to_create, write, rename, directory);
constexpr kind_set disk_changing =
    set_of(open_to_create, open_to_write, write, truncate, rename, unlink, mode, directory);

const fault faults[] = {
    {"killed before a call", fault::killed, changing_calls, {}},
    {"power cut", fault::power_cut, 0, {}},
    {"two kills, the second during the next start", fault::killed_twice, changing_calls, {}},
    {"a kill, then no power during the next start", fault::killed_and_cut, changing_calls, {}},
    {"SIGTERM before a call", fault::stopped, changing_calls, {}},
    {"bus lost before a call", fault::bus_lost, changing_calls, {}},
    {"open for reading fails (EIO, EMFILE, ENOMEM)",
     fault::refused,
     set_of(open_to_read),
     {EIO, EMFILE, ENOMEM}},
    {"open for writing fails (EIO, EROFS, EMFILE, ENOMEM)",
     fault::refused,
     set_of(open_to_write, open_to_create),
     {EIO, EROFS, EMFILE, ENOMEM}},
    {"creation fails (ENOSPC)", fault::refused, set_of(open_to_create, directory), {ENOSPC}},
    {"read fails (EIO)", fault::refused, set_of(read), {EIO}},
    {"write fails (ENOSPC, EIO)", fault::refused, set_of(write), {ENOSPC, EIO}},
    {"truncation fails (EIO, EROFS)", fault::refused, set_of(truncate), {EIO, EROFS}},
    {"sync fails (EIO, ENOSPC)", fault::refused, set_of(sync), {EIO, ENOSPC}},
    {"rename fails (ENOSPC, EIO, EROFS)", fault::refused, set_of(rename), {ENOSPC, EIO, EROFS}},
    {"unlink fails (EIO, EROFS)", fault::refused, set_of(unlink), {EIO, EROFS}},
    {"change of mode or owner fails (EIO, EROFS)", fault::refused, set_of(mode), {EIO, EROFS}},
    {"disk full from a call on", fault::refused_onward, disk_filling, {ENOSPC}},
    {"disk read-only from a call on", fault::refused_onward, disk_changing, {EROFS}},
    {"no descriptor from a call on",
     fault::refused_onward,
     set_of(open_to_read, open_to_write, open_to_create),
     {EMFILE}},
    {"child cannot start (EAGAIN, ENOMEM)", fault::refused, set_of(child), {EAGAIN, ENOMEM}},
    {"no child can start any more", fault::refused_onward, set_of(child), {EAGAIN}},
    {"child fails", fault::child_fails, set_of(child), {}},
    {"thread cannot start (EAGAIN)", fault::refused, set_of(thread), {EAGAIN}},
    {"allocation fails", fault::memory, 0, {}},
    {"no memory from an allocation on", fault::memory_onward, 0, {}},
};

} // namespace

std::span<const fault> all_faults()
{
    return faults;
}
