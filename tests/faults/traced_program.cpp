#include "faults/traced_program.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

user_regs_struct registers_of(pid_t thread)
{
    user_regs_struct registers{};
    (void)ptrace(PTRACE_GETREGS, thread, nullptr, &registers); // it may have been killed meanwhile
    return registers;
}

void leave_call_out(pid_t thread)
{
    user_regs_struct registers = registers_of(thread);
    registers.orig_rax = ~0ULL;
    (void)ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

void set_result(pid_t thread, int64_t result)
{
    user_regs_struct registers = registers_of(thread);
    registers.rax = static_cast<unsigned long long>(result);
    (void)ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

void turn_into_exit(pid_t thread, int status)
{
    user_regs_struct registers = registers_of(thread);
    registers.orig_rax = SYS_exit_group;
    registers.rdi = static_cast<unsigned long long>(status);
    (void)ptrace(PTRACE_SETREGS, thread, nullptr, &registers);
}

// Writes are taken for done whole, everything else for done.
int64_t result_when_left_out(const system_call &call)
{
    return call.kind == call_kind::write ? static_cast<int64_t>(call.words[2]) : 0;
}

std::vector<char *> pointers(const std::vector<std::string> &texts)
{
    std::vector<char *> all;
    for (const std::string &text : texts)
        all.push_back(const_cast<char *>(text.c_str()));
    all.push_back(nullptr);
    return all;
}

[[noreturn]] void become(const std::vector<std::string> &words, const std::vector<std::string> &environment,
                         const std::string &output, int gate)
{
    const int file = open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    (void)dup2(file, STDOUT_FILENO);
    (void)dup2(file, STDERR_FILENO);
    if (file > STDERR_FILENO)
        (void)close(file);
    for (const std::string &variable : environment)
        (void)putenv(const_cast<char *>(variable.c_str()));
    char opened = 0;
    (void)!read(gate, &opened, 1);
    (void)execvp(words.front().c_str(), pointers(words).data());
    _exit(127);
}

// The call that a thread is in; -1: none.
long call_of(pid_t thread)
{
    std::ifstream file("/proc/" + std::to_string(thread) + "/syscall");
    long number = -1;
    return file >> number ? number : -1;
}

// Whether a thread sleeps; one that was woken and has not run yet does not.
bool sleeps(pid_t thread)
{
    std::ifstream file("/proc/" + std::to_string(thread) + "/stat");
    std::string stat;
    std::getline(file, stat);
    const size_t name_end = stat.rfind(')');
    return name_end != std::string::npos && stat.compare(name_end, 3, ") S") == 0;
}

// Makes waitpid() return now and then, so that a program which hangs is noticed.
class ticking {
public:
    ticking()
    {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        (void)sigaction(SIGALRM, &action, &before_);
        const itimerval every{{0, 200'000}, {0, 200'000}};
        (void)setitimer(ITIMER_REAL, &every, nullptr);
    }
    ~ticking()
    {
        const itimerval off{};
        (void)setitimer(ITIMER_REAL, &off, nullptr);
        (void)sigaction(SIGALRM, &before_, nullptr);
    }
    ticking(const ticking &) = delete;
    ticking &operator=(const ticking &) = delete;

private:
    struct sigaction before_ {};
};

} // namespace

traced_program::traced_program(const std::vector<std::string> &words,
                               const std::vector<std::string> &environment, const std::string &output)
{
    int gate[2];
    if (pipe2(gate, O_CLOEXEC) != 0)
        fail("pipe");
    pid_ = fork();
    if (pid_ < 0)
        fail("fork");
    if (pid_ == 0)
        become(words, environment, output, gate[0]);
    constexpr long options =
        PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC;
    if (ptrace(PTRACE_SEIZE, pid_, nullptr, options) != 0)
        fail("trace the program");
    if (ptrace(PTRACE_INTERRUPT, pid_, nullptr, nullptr) != 0)
        fail("stop the program");
    threads_[pid_];
    (void)!write(gate[1], "", 1);
    (void)close(gate[0]);
    (void)close(gate[1]);
}

traced_program::~traced_program()
{
    kill(SIGKILL);
    (void)run([this] { return ended_; }, 10);
}

void traced_program::kill(int signal_number) const
{
    if (!ended_)
        (void)::kill(pid_, signal_number);
}

bool traced_program::run(const std::function<bool()> &until, unsigned seconds)
{
    const ticking ticks;
    const time_t deadline = time(nullptr) + seconds;
    while (!until()) {
        int status = 0;
        // A thread that was given something to do may not have begun.
        const pid_t pid = waitpid(-1, &status, __WALL | (waiting_ ? WNOHANG : 0));
        if (pid > 0)
            handle(pid, status);
        else if (pid == 0)
            (void)usleep(200);
        else if (errno == ECHILD)
            return until();
        if (time(nullptr) > deadline)
            return until();
    }
    return true;
}

bool traced_program::run_unseen(unsigned seconds)
{
    seen_ = false;
    const time_t deadline = time(nullptr) + seconds;
    bool waits = false;
    while (!ended_ && !waits && time(nullptr) <= deadline) {
        int status = 0;
        if (const pid_t pid = waitpid(-1, &status, __WALL | WNOHANG); pid > 0)
            handle(pid, status);
        else if (!(waits = waits_for_events()))
            (void)usleep(200);
    }
    // The next thing that happens to each thread is a stop, from which on it is seen.
    seen_ = true;
    for (const auto &[thread, state] : threads_)
        if (!ended_)
            (void)ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr);
    return ended_ || waits;
}

// The others wait to be given something to do; a wait for a second at most goes on by a call of its own after
// a stop.
bool traced_program::waits_for_events() const
{
    return std::ranges::all_of(threads_, [this](const auto &each) {
        const pid_t thread = each.first;
        if (!sleeps(thread))
            return false;
        const long call = call_of(thread);
        return thread == pid_ ? call == SYS_epoll_wait || call == SYS_epoll_pwait
                              : call == SYS_futex || call == SYS_restart_syscall;
    });
}

void traced_program::handle(pid_t pid, int status)
{
    if (WIFSTOPPED(status)) {
        if (children_.contains(pid))
            return handle_child(pid);
        if (!threads_.contains(pid) && children_traced_ && ::kill(pid_, 0) == 0 &&
            access(("/proc/" + std::to_string(pid_) + "/task/" + std::to_string(pid)).c_str(), F_OK) != 0) {
            children_[pid] = child_fails();
            return handle_child(pid);
        }
        return handle_stop(pid, status);
    }
    if (threads_.contains(pid))
        return end_thread(pid, status);
    if (children_.erase(pid) == 0 && other_ended)
        other_ended(pid, status);
}

void traced_program::end_thread(pid_t thread, int status)
{
    threads_.erase(thread);
    if (thread != pid_)
        return;
    ended_ = true;
    waiting_ = false;
    wait_status_ = status;
}

// A child is held at its first stop. One that shall run is let go; of one that shall fail the program is
// replaced.
void traced_program::handle_child(pid_t child)
{
    if (!children_[child]) {
        children_.erase(child);
        (void)ptrace(PTRACE_DETACH, child, nullptr, nullptr);
        return;
    }
    __ptrace_syscall_info info{};
    (void)ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY && info.entry.nr == SYS_execve)
        turn_into_exit(child, 1);
    (void)ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
}

void traced_program::handle_stop(pid_t thread, int status)
{
    threads_[thread];
    int signal_number = 0;
    const int event = status >> 16;
    if (WSTOPSIG(status) == (SIGTRAP | 0x80)) {
        signal_number = handle_call(thread);
    } else if (event == 0) {
        signal_number = WSTOPSIG(status);
    } else if (event == PTRACE_EVENT_CLONE) {
        // Known from now on, so that nobody takes its maker for alone before it has run.
        unsigned long started = 0;
        (void)ptrace(PTRACE_GETEVENTMSG, thread, nullptr, &started);
        threads_[static_cast<pid_t>(started)];
    } else if (event == PTRACE_EVENT_EXEC && child_fails && !children_traced_) {
        children_traced_ = true;
        constexpr long options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL |
                                 PTRACE_O_TRACEEXEC | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK;
        (void)ptrace(PTRACE_SETOPTIONS, thread, nullptr, options);
    }
    go_on(thread, signal_number);
}

void traced_program::go_on(pid_t thread, int signal_number) const
{
    (void)ptrace(seen_ ? PTRACE_SYSCALL : PTRACE_CONT, thread, nullptr, signal_number);
}

// Returns the signal that the thread is to get: none.
int traced_program::handle_call(pid_t thread)
{
    thread_state &state = threads_[thread];
    __ptrace_syscall_info info{};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(info), &info) <= 0)
        return 0; // killed meanwhile
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
        system_call call;
        call.thread = thread;
        call.number = static_cast<long>(info.entry.nr);
        std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.words.begin());
        enter_call(state, call);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT && state.in_call) {
        leave_call(state, info.exit.rval);
    }
    return 0;
}

void traced_program::enter_call(thread_state &state, const system_call &call)
{
    state.in_call = true;
    state.call = call;
    classify(state.call);
    if (call.thread == pid_)
        waiting_ = state.call.kind == call_kind::wait_for_events;
    if (state.call.kind == call_kind::unknown)
        throw std::runtime_error("a call that is not in the table: number " + std::to_string(call.number));
    state.decided = before_call ? before_call(state.call) : fate{};
    if (state.decided.what == fate::make)
        return;
    leave_call_out(call.thread);
    if (state.decided.what == fate::kill)
        kill(SIGKILL);
}

void traced_program::leave_call(thread_state &state, int64_t result)
{
    state.in_call = false;
    if (state.decided.what == fate::refuse)
        result = -state.decided.error;
    else if (state.decided.what == fate::leave_out)
        result = result_when_left_out(state.call);
    if (state.decided.what != fate::make)
        set_result(state.call.thread, result);
    if (state.call.kind == call_kind::wait_for_events && state.call.thread == pid_)
        waiting_ = false;
    if (after_call && state.decided.what != fate::leave_out)
        after_call(state.call, result);
}
