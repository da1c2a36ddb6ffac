#include "support/process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds poll_interval{3};

[[noreturn]] void fail(const std::string &what, int error)
{
    throw std::runtime_error(what + ": " + strerror(error));
}

// The test's environment with the given variables in place of equally named ones.
std::vector<std::string> merged_environment(const program_environment &variables)
{
    std::vector<std::string> merged;
    for (char **entry = environ; *entry; entry++) {
        const std::string_view existing = *entry;
        bool replaced = false;
        for (const auto &[name, value] : variables)
            replaced = replaced || existing.starts_with(name + "=");
        if (!replaced)
            merged.emplace_back(existing);
    }
    for (const auto &[name, value] : variables)
        merged.push_back(name + "=" + value);
    return merged;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

class spawn_actions {
public:
    spawn_actions() { posix_spawn_file_actions_init(&actions_); }
    ~spawn_actions() { posix_spawn_file_actions_destroy(&actions_); }
    spawn_actions(const spawn_actions &) = delete;
    spawn_actions &operator=(const spawn_actions &) = delete;

    void to_file(int descriptor, const std::string &path)
    {
        posix_spawn_file_actions_addopen(&actions_, descriptor, path.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0644);
    }
    void to_descriptor(int descriptor, int target)
    {
        posix_spawn_file_actions_adddup2(&actions_, target, descriptor);
    }
    const posix_spawn_file_actions_t *get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_;
};

// A program starts with default signal actions and nothing blocked, whatever the test has done to its own.
pid_t spawn(const program_arguments &args, const program_environment &variables, const spawn_actions &actions)
{
    if (args.empty())
        fail("cannot start a program without a name", EINVAL);
    std::vector<std::string> words = args;
    std::vector<std::string> merged = merged_environment(variables);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, words[0].c_str(), actions.get(), &attributes,
                                   pointers_to(words).data(), pointers_to(merged).data());
    posix_spawnattr_destroy(&attributes);
    if (error)
        fail("cannot start " + args[0], error);
    return pid;
}

int exit_code(int wait_status)
{
    return WIFSIGNALED(wait_status) ? 128 + WTERMSIG(wait_status) : WEXITSTATUS(wait_status);
}

class pipe_pair {
public:
    pipe_pair()
    {
        if (pipe2(ends_.data(), O_CLOEXEC))
            fail("cannot make a pipe", errno);
    }
    ~pipe_pair()
    {
        close(ends_[0]);
        close_writer();
    }
    pipe_pair(const pipe_pair &) = delete;
    pipe_pair &operator=(const pipe_pair &) = delete;

    int reader() const { return ends_[0]; }
    int writer() const { return ends_[1]; }
    void close_writer()
    {
        if (ends_[1] >= 0)
            close(ends_[1]);
        ends_[1] = -1;
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

// Reads both pipes until each has ended. False at the deadline.
bool drain(const std::array<int, 2> &readers, const std::array<std::string *, 2> &texts,
           steady_clock::time_point end)
{
    std::array<pollfd, 2> waiting{pollfd{readers[0], POLLIN, 0}, pollfd{readers[1], POLLIN, 0}};
    while (waiting[0].fd >= 0 || waiting[1].fd >= 0) {
        const auto left = std::chrono::duration_cast<milliseconds>(end - steady_clock::now()).count();
        if (left <= 0)
            return false;
        if (poll(waiting.data(), waiting.size(), static_cast<int>(left)) <= 0)
            continue;
        for (size_t i = 0; i < waiting.size(); i++) {
            if (waiting[i].fd < 0 || !waiting[i].revents)
                continue;
            std::array<char, 4096> piece;
            const ssize_t got = read(waiting[i].fd, piece.data(), piece.size());
            if (got > 0)
                texts[i]->append(piece.data(), static_cast<size_t>(got));
            else if (got == 0 || errno != EINTR)
                waiting[i].fd = -1;
        }
    }
    return true;
}

} // namespace

bool wait_until(const std::function<bool()> &condition, milliseconds deadline)
{
    const auto end = steady_clock::now() + deadline;
    while (!condition()) {
        if (steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(poll_interval);
    }
    return true;
}

child_process::child_process(const program_arguments &args, const program_environment &variables,
                             const std::string &output_path, const std::string &errors_path)
    : name_(args.empty() ? "" : args[0])
{
    spawn_actions actions;
    actions.to_file(STDIN_FILENO, "/dev/null");
    if (!output_path.empty())
        actions.to_file(STDOUT_FILENO, output_path);
    if (!errors_path.empty())
        actions.to_file(STDERR_FILENO, errors_path);
    pid_ = spawn(args, variables, actions);
}

bool child_process::running()
{
    if (pid_ == 0)
        return false;
    int wait_status = 0;
    const pid_t ended = waitpid(pid_, &wait_status, WNOHANG);
    if (ended == 0)
        return true;
    if (ended < 0)
        fail("cannot wait for " + name_, errno);
    status_ = exit_code(wait_status);
    pid_ = 0;
    return false;
}

int child_process::wait(milliseconds deadline)
{
    if (!wait_until([this] { return !running(); }, deadline))
        throw std::runtime_error(name_ + " does not end");
    return status_;
}

int child_process::stop(int signal_number, milliseconds deadline)
{
    if (running())
        kill(pid_, signal_number);
    return wait(deadline);
}

void child_process::stop_hard()
{
    if (pid_ == 0)
        return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR)
        ;
    pid_ = 0;
}

program_result run_program(const program_arguments &args, const program_environment &variables,
                           milliseconds deadline)
{
    const auto end = steady_clock::now() + deadline;
    pipe_pair output;
    pipe_pair errors;
    spawn_actions actions;
    actions.to_file(STDIN_FILENO, "/dev/null");
    actions.to_descriptor(STDOUT_FILENO, output.writer());
    actions.to_descriptor(STDERR_FILENO, errors.writer());
    const pid_t pid = spawn(args, variables, actions);
    output.close_writer();
    errors.close_writer();

    program_result result{};
    const bool in_time = drain({output.reader(), errors.reader()}, {&result.output, &result.errors}, end);
    if (!in_time)
        kill(pid, SIGKILL);
    int wait_status = 0;
    while (waitpid(pid, &wait_status, 0) < 0) {
        if (errno != EINTR)
            fail("cannot wait for " + args[0], errno);
    }
    if (!in_time)
        throw std::runtime_error(args[0] + " does not end; so far it printed: " + result.output +
                                 result.errors);
    result.status = exit_code(wait_status);
    return result;
}
