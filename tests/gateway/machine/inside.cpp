// Running shell commands in a private root.
#include "machine/inside.h"

#include "root/namespaces.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <grp.h>
#include <sched.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

constexpr uid_t nobody_id = 65534;

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string &what)
{
    throw std::system_error(errno, std::generic_category(), what);
}

// The outermost directory on the way to this one, itself included, that others may not search; empty when
// there is none.
fs::path closed_directory(const fs::path &path)
{
    fs::path prefix;
    for (const fs::path &part : path) {
        prefix /= part;
        if ((fs::status(prefix).permissions() & fs::perms::others_exec) == fs::perms::none)
            return prefix;
    }
    return {};
}

// In a view of the files that only this process has, an open empty directory lies over each closed one, and
// what the run needs is bound into it.
void open_the_way(const private_root_options &options)
{
    const fs::path directory = fs::current_path();
    (void)enter_namespaces(CLONE_NEWNS);
    separate_mounts();
    std::vector<std::pair<fs::path, std::string>> wanted;
    for (const passed_directory &passed : options.passed) {
        const fs::path path = fs::canonical(passed.path);
        const int file = open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        wanted.emplace_back(path, "/proc/self/fd/" + std::to_string(file));
    }
    for (const auto &[path, source] : wanted) {
        const fs::path closed = closed_directory(path);
        if (!closed.empty() && mount("way", closed.c_str(), "tmpfs", 0, "mode=0755") != 0)
            fail("lay an open directory over " + closed.string());
        if (fs::exists(path))
            continue;
        fs::create_directories(path);
        if (mount(source.c_str(), path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0)
            fail("bind " + path.string());
    }
    fs::current_path(directory);
}

void become_nobody()
{
    // The kernel hides a process that has changed its user from that user; a login would have replaced the
    // program.
    if (setgroups(0, nullptr) != 0 || setgid(nobody_id) != 0 || setuid(nobody_id) != 0 ||
        prctl(PR_SET_DUMPABLE, 1) != 0)
        fail("become nobody");
}

// Runs in a process of its own, which ends by exit() with the body's result.
template <typename function>
pid_t start_with_rights(rights who, const private_root_options &options, function body)
{
    const pid_t child = fork();
    if (child < 0)
        fail("fork");
    if (child > 0)
        return child;
    try {
        if (who == rights::nobody) {
            open_the_way(options);
            become_nobody();
        }
        _exit(body());
    } catch (const std::exception &failure) {
        (void)fprintf(stderr, "cannot %s\n", failure.what());
        _exit(private_root_failed);
    }
}

// Why nobody cannot make a user namespace, as a status.
int try_user_namespace()
{
    return unshare(CLONE_NEWUSER) == 0 ? 0 : errno;
}

std::string content(int file)
{
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    if (pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        fail("read the output");
    return text;
}

} // namespace

std::string missing_for(rights who)
{
    if (who == rights::own)
        return {};
    if (geteuid() != 0)
        return "only root can become nobody";
    int status = 0;
    if (waitpid(start_with_rights(who, gateway_root_options(), try_user_namespace), &status, 0) < 0)
        fail("waitpid");
    const int reason = WIFEXITED(status) ? WEXITSTATUS(status) : private_root_failed;
    return reason == 0 ? "" : std::string("nobody cannot make a user namespace: ") + strerror(reason);
}

pid_t start_inside(const private_root_options &options, const std::string &command, rights who, int output)
{
    return start_with_rights(who, options, [&] {
        (void)dup2(output, STDOUT_FILENO);
        (void)dup2(output, STDERR_FILENO);
        return enter_gateway(options, [&command] {
            (void)execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
            perror("sh");
            return 127;
        });
    });
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
