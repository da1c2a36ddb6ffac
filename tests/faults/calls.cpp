#include "faults/calls.h"

#include <fcntl.h>
#include <filesystem>
#include <linux/futex.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>

namespace {

namespace fs = std::filesystem;
using enum call_kind;

// Which words of a call name files, and how.
enum class form {
    none,
    open,         // path, flags
    open_at,      // directory, path, flags
    creat,        // path
    path,         // path
    path_at,      // directory, path
    two_paths,    // path, path
    two_paths_at, // directory, path, directory, path
    path_2nd,     // text, path
    path_3rd_at,  // text, directory, path
    file,         // descriptor
    output,       // descriptor of a file, a pipe or a socket
    input,
    mapping,
    control,
    lock,
    events,
    clone,
    clone3,
};

// A program that waits for events no longer than that waits for a time.
constexpr int most_slept_milliseconds = 1000;

struct known_call {
    long number;
    const char *name;
    call_kind kind;
    form words;
};

#define CALL(name, kind, words)                                                                              \
    known_call                                                                                               \
    {                                                                                                        \
        SYS_##name, #name, kind, form::words                                                                 \
    }
#define HARMLESS(name) CALL(name, harmless, none)

// clang-format off
constexpr known_call known_calls[] = {
    CALL(open, open_to_read, open),       CALL(openat, open_to_read, open_at), CALL(creat, open_to_create, creat),
    CALL(read, read, input),              CALL(readv, read, input),            CALL(pread64, read, input),
    CALL(preadv, read, input),            CALL(recvfrom, harmless, none),      CALL(recvmsg, harmless, none),
    CALL(write, write, output),           CALL(writev, write, output),         CALL(pwrite64, write, output),
    CALL(sendto, write, output),          CALL(sendmsg, write, output),
    CALL(truncate, truncate, path),       CALL(ftruncate, truncate, file),     CALL(fallocate, truncate, file),
    CALL(fsync, sync, file),              CALL(fdatasync, sync, file),         CALL(syncfs, sync, file),
    CALL(rename, rename, two_paths),      CALL(renameat, rename, two_paths_at),
    CALL(renameat2, rename, two_paths_at),
    CALL(unlink, unlink, path),           CALL(unlinkat, unlink, path_at),     CALL(rmdir, directory, path),
    CALL(link, link, two_paths),          CALL(linkat, link, two_paths_at),
    CALL(symlink, link, path_2nd),        CALL(symlinkat, link, path_3rd_at),
    CALL(chmod, mode, path),              CALL(fchmod, mode, file),            CALL(fchmodat, mode, path_at),
    CALL(chown, mode, path),              CALL(fchown, mode, file),            CALL(lchown, mode, path),
    CALL(fchownat, mode, path_at),        CALL(utimensat, mode, path_at),
    CALL(mkdir, directory, path),         CALL(mkdirat, directory, path_at),
    CALL(fork, child, none),              CALL(vfork, child, none),
    CALL(clone, child, clone),            CALL(clone3, child, clone3),
    CALL(nanosleep, sleep, none),         CALL(clock_nanosleep, sleep, none),
    CALL(epoll_wait, wait_for_events, events), CALL(epoll_pwait, wait_for_events, events),
    CALL(futex, harmless, lock),
    CALL(mmap, harmless, mapping),        CALL(ioctl, harmless, control),
    // Take names, locks or times, look at things, end things, or concern the process's own memory.
    HARMLESS(access), HARMLESS(arch_prctl), HARMLESS(bind), HARMLESS(brk), HARMLESS(clock_gettime), HARMLESS(close),
    HARMLESS(connect), HARMLESS(dup), HARMLESS(dup2), HARMLESS(dup3), HARMLESS(epoll_create1), HARMLESS(epoll_ctl),
    HARMLESS(execve), HARMLESS(exit), HARMLESS(exit_group), HARMLESS(faccessat), HARMLESS(fcntl), HARMLESS(eventfd2), HARMLESS(flock),
    HARMLESS(fstat), HARMLESS(fstatfs), HARMLESS(getcwd), HARMLESS(getdents64), HARMLESS(getegid),
    HARMLESS(geteuid), HARMLESS(getgid), HARMLESS(getpid), HARMLESS(getppid), HARMLESS(getrandom), HARMLESS(gettid),
    HARMLESS(getuid), HARMLESS(kill), HARMLESS(lseek), HARMLESS(lstat), HARMLESS(madvise), HARMLESS(mprotect),
    HARMLESS(mremap), HARMLESS(munmap), HARMLESS(newfstatat), HARMLESS(pause), HARMLESS(pipe), HARMLESS(pipe2),
    HARMLESS(poll), HARMLESS(ppoll), HARMLESS(prctl), HARMLESS(prlimit64), HARMLESS(readlink), HARMLESS(readlinkat),
    HARMLESS(restart_syscall), HARMLESS(rseq), HARMLESS(rt_sigaction), HARMLESS(rt_sigprocmask),
    HARMLESS(rt_sigreturn), HARMLESS(rt_sigsuspend), HARMLESS(sched_getaffinity), HARMLESS(sched_getattr),
    HARMLESS(sched_setattr), HARMLESS(sched_yield),
    HARMLESS(set_robust_list), HARMLESS(set_tid_address), HARMLESS(setsockopt), HARMLESS(sigaltstack),
    HARMLESS(socket), HARMLESS(stat), HARMLESS(statfs), HARMLESS(statx), HARMLESS(sysinfo), HARMLESS(tgkill),
    HARMLESS(time), HARMLESS(umask), HARMLESS(uname), HARMLESS(wait4), HARMLESS(waitid),
};
// clang-format on

struct kind_name {
    call_kind kind;
    const char *name;
};

constexpr kind_name kind_names[] = {
    {open_to_read, "read-open"},
    {open_to_write, "open"},
    {open_to_create, "create"},
    {read, "read"},
    {write, "write"},
    {truncate, "truncate"},
    {sync, "sync"},
    {rename, "rename"},
    {unlink, "unlink"},
    {link, "link"},
    {mode, "mode"},
    {child, "child"},
    {thread, "thread"},
};

std::string text_at(pid_t thread, uint64_t address)
{
    const std::string memory = memory_of(thread, address, 4096);
    return memory.substr(0, memory.find('\0'));
}

// What a link of a thread leads to; nothing where it is closed, or the thread is ended with all others.
std::string linked_path(pid_t thread, const std::string &link)
{
    std::error_code gone;
    return fs::read_symlink("/proc/" + std::to_string(thread) + "/" + link, gone);
}

std::string opened_path(pid_t thread, int file)
{
    return linked_path(thread, "fd/" + std::to_string(file));
}

std::string absolute(pid_t thread, int directory, const std::string &path)
{
    if (!path.empty() && path[0] == '/')
        return path;
    const std::string base =
        directory == AT_FDCWD ? linked_path(thread, "cwd") : opened_path(thread, directory);
    return base + "/" + path;
}

bool is_program_file(const std::string &path)
{
    for (const char *const beginning : {"/usr/", "/lib", "/etc/ld.so", "/gateway/", KORVEL_BUILD_DIRECTORY})
        if (path.starts_with(beginning))
            return true;
    return false;
}

bool is_regular_path(const std::string &path)
{
    return path.starts_with("/") && !path.starts_with("/dev/");
}

void judge_open(system_call &call, uint64_t flags)
{
    if (flags & O_CREAT)
        call.kind = open_to_create;
    else if ((flags & O_ACCMODE) != O_RDONLY || flags & O_TRUNC)
        call.kind = open_to_write;
    if (is_program_file(call.path))
        call.kind = program_file;
}

// Words that the bus, a pipe or the system log gets change no file.
void judge_output(system_call &call)
{
    call.path = opened_path(call.thread, call.file);
    if (is_program_file(call.path))
        call.kind = program_file;
    if (is_regular_path(call.path))
        return;
    call.kind = send;
    if (call.number == SYS_sendto && memory_of(call.thread, call.words[1], 1) == "<")
        call.kind = message;
}

void judge_input(system_call &call)
{
    call.path = opened_path(call.thread, call.file);
    if (is_program_file(call.path))
        call.kind = program_file;
    else if (!is_regular_path(call.path))
        call.kind = harmless;
}

void judge_clone(system_call &call, uint64_t flags)
{
    if (flags & CLONE_THREAD)
        call.kind = thread;
}

int word(const system_call &call, size_t index)
{
    return static_cast<int>(call.words[index]);
}

void read_words(system_call &call, form words)
{
    const pid_t thread = call.thread;
    const auto path = [&](size_t index, int directory = AT_FDCWD) {
        return absolute(thread, directory, text_at(thread, call.words[index]));
    };
    switch (words) {
    case form::none:
        break;
    case form::open:
        call.path = path(0);
        return judge_open(call, call.words[1]);
    case form::open_at:
        call.path = path(1, word(call, 0));
        return judge_open(call, call.words[2]);
    case form::creat:
    case form::path:
        call.path = path(0);
        break;
    case form::path_at:
        call.path = path(1, word(call, 0));
        break;
    case form::two_paths:
        call.path = path(0);
        call.other = path(1);
        break;
    case form::two_paths_at:
        call.path = path(1, word(call, 0));
        call.other = path(3, word(call, 2));
        break;
    case form::path_2nd:
        call.path = path(1);
        break;
    case form::path_3rd_at:
        call.path = path(2, word(call, 1));
        break;
    case form::file:
        call.file = word(call, 0);
        call.path = opened_path(thread, call.file);
        break;
    case form::output:
        call.file = word(call, 0);
        return judge_output(call);
    case form::input:
        call.file = word(call, 0);
        return judge_input(call);
    case form::mapping: // one through which a file could be written is not foreseen
        if (call.words[3] & MAP_SHARED && call.words[2] & PROT_WRITE &&
            is_regular_path(opened_path(thread, word(call, 4))) &&
            !is_program_file(opened_path(thread, word(call, 4))))
            call.kind = unknown;
        break;
    case form::control:
        if (call.words[1] != TCGETS && call.words[1] != FIONREAD)
            call.kind = unknown;
        break;
    case form::lock: // with a time at which it ends it is how threads sleep
        if ((call.words[1] & FUTEX_CMD_MASK) == FUTEX_WAIT_BITSET && call.words[3] != 0)
            call.kind = sleep;
        break;
    case form::events: // with a timer that is due soon
        if (word(call, 3) > 0 && word(call, 3) <= most_slept_milliseconds)
            call.kind = sleep;
        break;
    case form::clone:
        return judge_clone(call, call.words[0]);
    case form::clone3: {
        const std::string flags = memory_of(thread, call.words[0], sizeof(uint64_t));
        return judge_clone(call, *reinterpret_cast<const uint64_t *>(flags.data()));
    }
    }
}

} // namespace

std::string system_call::text() const
{
    std::string line = name;
    for (const std::string &part : {path, other})
        if (!part.empty())
            line += " " + part;
    return line;
}

void classify(system_call &call)
{
    for (const known_call &known : known_calls) {
        if (known.number != call.number)
            continue;
        call.name = known.name;
        call.kind = known.kind;
        return read_words(call, known.words);
    }
}

std::optional<call_kind> kind_named(const std::string &name)
{
    for (const kind_name &row : kind_names)
        if (name == row.name)
            return row.kind;
    return {};
}

std::string memory_of(pid_t thread, uint64_t address, size_t size)
{
    std::string memory(size, '\0');
    size_t done = 0;
    while (done < size) {
        // Up to the end of a page: what lies behind it may not be there.
        const size_t step = std::min<size_t>(size - done, 4096 - (address + done) % 4096);
        const iovec local{memory.data() + done, step};
        const iovec remote{reinterpret_cast<void *>(address + done), step};
        const ssize_t count = process_vm_readv(thread, &local, 1, &remote, 1, 0);
        if (count <= 0)
            break;
        done += static_cast<size_t>(count);
    }
    memory.resize(done);
    return memory;
}
