// Running shell commands in a private root.
#include "machine/inside.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <grp.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

constexpr uid_t nobody_id = 65534;

[[noreturn]] void fail(const char *what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

void become_nobody()
{
    // The kernel hides a process that has changed its user from that user; a login would have replaced the
    // program.
    if (setgroups(0, nullptr) != 0 || setgid(nobody_id) != 0 || setuid(nobody_id) != 0 ||
        prctl(PR_SET_DUMPABLE, 1) != 0)
        fail("become nobody");
}

std::string content(int file)
{
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    if (pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        fail("read the output");
    return text;
}

} // namespace

pid_t start_inside(const private_root_options &options, const std::string &command, rights who, int output)
{
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child > 0)
        return child;
    (void)dup2(output, STDOUT_FILENO);
    (void)dup2(output, STDERR_FILENO);
    if (who == rights::nobody)
        become_nobody();
    _exit(enter_gateway(options, [&command] {
        (void)execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        perror("sh");
        return 127;
    }));
}

inside_result run_inside(const private_root_options &options, const std::string &command, rights who)
{
    const int output = memfd_create("output", MFD_CLOEXEC);
    if (output < 0)
        fail("memfd_create");
    int status = 0;
    if (waitpid(start_inside(options, command, who, output), &status, 0) < 0)
        fail("waitpid");
    inside_result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, content(output)};
    (void)close(output);
    return result;
}

inside_result run_in_gateway(const std::string &command)
{
    private_root_options options = gateway_root_options();
    options.network = false;
    return run_inside(options, command);
}

scratch_directory::scratch_directory() : path_("/tmp/private_root.XXXXXX")
{
    if (!mkdtemp(path_.data()))
        fail("mkdtemp");
    if (chmod(path_.c_str(), 0777) != 0)
        fail("chmod");
}

scratch_directory::~scratch_directory()
{
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}
