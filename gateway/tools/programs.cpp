// Running the machine's programs from a stand-in.
#include "tools/programs.h"

#include "root/find_program.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

// The words as exec takes them; they stay owned by `words`.
std::vector<char *> exec_words(const command_words &words)
{
    std::vector<char *> pointers;
    for (const std::string &word : words)
        pointers.push_back(const_cast<char *>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

void become_program(const std::string &name, const command_words &arguments)
{
    const std::string program = find_program(name);
    if (program.empty())
        throw std::runtime_error("this machine has no " + name);
    command_words words = arguments;
    words.insert(words.begin(), name);
    (void)execv(program.c_str(), exec_words(words).data());
    throw std::system_error(errno, std::generic_category(), program);
}

pid_t start_program(const command_words &words, const std::string &output_path)
{
    posix_spawn_file_actions_t actions;
    (void)posix_spawn_file_actions_init(&actions);
    if (!output_path.empty()) {
        (void)posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_path.c_str(),
                                               O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
        (void)posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    }
    pid_t child = -1;
    const int failure =
        posix_spawnp(&child, words.front().c_str(), &actions, nullptr, exec_words(words).data(), environ);
    (void)posix_spawn_file_actions_destroy(&actions);
    if (failure != 0)
        throw std::system_error(failure, std::generic_category(), words.front());
    return child;
}

int wait_for_program(pid_t child)
{
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "wait for a program");
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

int run_silently(const command_words &words)
{
    return wait_for_program(start_program(words, "/dev/null"));
}
