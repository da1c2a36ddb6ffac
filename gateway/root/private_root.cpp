// The processes of a private root: the caller, a guard that owns the namespaces, process 1 inside, and the
// body.
#include "root/private_root.h"

#include "root/namespaces.h"
#include "root/root_network.h"
#include "root/root_tree.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr int new_namespaces = CLONE_NEWNS | CLONE_NEWPID | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS;

// What the caller's process was like, so that the body can be given the same.
struct caller_state {
    sigset_t signal_mask;
    mode_t file_mask;
    std::string directory;
};

[[noreturn]] void fail(const std::string &step)
{
    throw std::system_error(errno, std::generic_category(), step);
}

sigset_t supervised_signals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&signals, number);
    return signals;
}

int exit_status(int wait_status)
{
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

// Waits until `child` has ended and returns its exit status; with `waited` -1 every other child is collected
// as well. The supervised signals must be blocked. Those from a terminal are dropped: the terminal sends them
// to the body, too.
int supervise(pid_t child, pid_t waited)
{
    const sigset_t signals = supervised_signals();
    for (;;) {
        siginfo_t info{};
        const int number = sigwaitinfo(&signals, &info);
        if (number > 0 && number != SIGCHLD) {
            if (info.si_code <= 0)
                (void)kill(child, number);
            continue;
        }
        int status = 0;
        pid_t ended = 0;
        while ((ended = waitpid(waited, &status, WNOHANG)) > 0) {
            if (ended == child)
                return exit_status(status);
        }
    }
}

// A process must not outlive its parent, or a killed test run would leave gateways behind.
void die_with_parent()
{
    if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0)
        fail("bind the process to its parent");
}

void report(const std::exception &failure)
{
    (void)fprintf(stderr, "private root: cannot %s\n", failure.what());
}

// What the body throws is its own affair and ends it by std::terminate.
[[noreturn]] void run_body(const caller_state &caller, const std::function<int()> &body) noexcept
{
    (void)umask(caller.file_mask);
    // The caller's directory need not exist inside.
    if (chdir(caller.directory.c_str()) != 0 && chdir("/") != 0)
        perror("private root: cannot change to /");
    (void)pthread_sigmask(SIG_SETMASK, &caller.signal_mask, nullptr);
    exit(body());
}

// Process 1 of the new root.
int run_init(const private_root_options &options, tree_owner owner, const caller_state &caller,
             const std::function<int()> &body)
{
    die_with_parent();
    (void)umask(022);
    if (sethostname("gateway", 7) != 0)
        fail("set the host name");
    build_root_tree(options, owner);
    bring_up_network(options);

    const pid_t child = fork();
    if (child < 0)
        fail("start the body");
    if (child == 0)
        run_body(caller, body);
    return supervise(child, -1);
}

// The guard: owns the namespaces; a process cannot enter a new process namespace itself, only its children
// are in it.
int run_guard(const private_root_options &options, const caller_state &caller,
              const std::function<int()> &body)
{
    die_with_parent();
    const tree_owner owner = enter_namespaces(new_namespaces);
    const pid_t init = _Fork();
    if (init < 0)
        fail("start process 1");
    if (init > 0)
        return supervise(init, init);
    try {
        _exit(run_init(options, owner, caller, body));
    } catch (const std::exception &failure) {
        report(failure);
        _exit(private_root_failed);
    }
}

caller_state note_caller()
{
    caller_state caller{};
    const sigset_t signals = supervised_signals();
    (void)pthread_sigmask(SIG_BLOCK, &signals, &caller.signal_mask);
    caller.file_mask = umask(022);
    (void)umask(caller.file_mask);
    char *const directory = getcwd(nullptr, 0);
    caller.directory = directory ? directory : "/";
    free(directory);
    return caller;
}

} // namespace

int enter_private_root(const private_root_options &options, const std::function<int()> &body)
{
    (void)fflush(nullptr); // or the children would write the caller's pending output again
    const caller_state caller = note_caller();
    struct sigaction child_default {};
    struct sigaction child_action {};
    (void)sigaction(SIGCHLD, &child_default, &child_action);

    // _Fork, because the handlers that fork runs may start threads (the thread sanitizer does), and a process
    // with threads cannot enter a user namespace.
    int result = private_root_failed;
    const pid_t guard = _Fork();
    if (guard == 0) {
        try {
            _exit(run_guard(options, caller, body));
        } catch (const std::exception &failure) {
            report(failure);
            _exit(private_root_failed);
        }
    }
    if (guard < 0)
        perror("private root: cannot start its first process");
    else
        result = supervise(guard, guard);

    (void)sigaction(SIGCHLD, &child_action, nullptr);
    (void)pthread_sigmask(SIG_SETMASK, &caller.signal_mask, nullptr);
    return result;
}
