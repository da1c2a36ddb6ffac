#include "ctl/try.h"

#include "ctl/change.h"
#include "ctl/option_reader.h"
#include "ctl/output.h"
#include "ctl/safe_point.h"
#include "ctl/words.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <poll.h>
#include <replace_file.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char waiting[] = "/etc/korvel/try";            // a try waits to be confirmed
constexpr char undoing[] = "/etc/korvel/try.taken-back"; // it is being taken back
constexpr char confirmed[] = "/etc/korvel/try.confirmed";
constexpr uint32_t shortest = 1, longest = 86400;
constexpr timespec guard_pause = {0, 200 * 1000 * 1000};
constexpr timespec retry_pause = {5, 0};
constexpr int most_tries = 60;

// A descriptor of one of the files, closed when it goes.
class try_file {
public:
    explicit try_file(int descriptor) : descriptor_(descriptor) {}
    ~try_file()
    {
        if (descriptor_ >= 0)
            (void)close(descriptor_);
    }
    try_file(const try_file &) = delete;
    try_file &operator=(const try_file &) = delete;

    explicit operator bool() const { return descriptor_ >= 0; }
    // Whether nobody else holds it; then this one does.
    bool lock() { return flock(descriptor_, LOCK_EX | LOCK_NB) == 0; }
    // The same when nobody else does any more.
    bool lock_in_turn()
    {
        while (flock(descriptor_, LOCK_EX) != 0)
            if (errno != EINTR)
                return false;
        return true;
    }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
};

// Who renames the file has decided what becomes of the try.
bool claim(const char *as)
{
    return rename(waiting, as) == 0 && sync_directory_of(as);
}

void finish(const char *file)
{
    remove_safe_point(try_point);
    (void)unlink(file);
    (void)sync_directory_of(file);
}

// Goes back, with the try claimed. What fails is left for the next start.
exit_status undo(daemon_state daemon, const char *why)
{
    const exit_status result = go_back_to(try_point, daemon);
    if (result != exit_status::done)
        return result;
    finish(undoing);
    syslog(LOG_NOTICE, "The change on trial is taken back: %s", why);
    send_restored(why);
    return exit_status::done;
}

uint64_t now_ms()
{
    timespec now = {};
    (void)clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

bool is_still_waiting(int descriptor)
{
    struct stat own = {}, named = {};
    return fstat(descriptor, &own) == 0 && stat(waiting, &named) == 0 && own.st_ino == named.st_ino;
}

// Waits until the change is made, or its maker is gone; then as long as was asked for.
[[noreturn]] void guard(int descriptor, int maker, uint32_t seconds)
{
    char done = 0;
    while (read(maker, &done, 1) < 0 && errno == EINTR)
        ;
    const uint64_t deadline = now_ms() + uint64_t{seconds} * 1000;
    while (now_ms() < deadline) {
        if (!is_still_waiting(descriptor))
            _exit(0);
        (void)nanosleep(&guard_pause, nullptr);
    }
    char why[64];
    (void)text_ref(why).format("not confirmed within %u s", seconds);
    if (!is_still_waiting(descriptor) || !claim(undoing))
        _exit(0);
    for (int i = 0; i < most_tries && undo(daemon_state::runs, why) != exit_status::done; i++) {
        syslog(LOG_ERR, "The change on trial could not be taken back yet");
        (void)nanosleep(&retry_pause, nullptr);
    }
    _exit(0);
}

// Starts the guard: no child of anybody's, no terminal, and nothing of the caller's but the two descriptors.
bool start_guard(int descriptor, const int (&pipe_ends)[2], uint32_t seconds)
{
    const pid_t child = fork();
    if (child < 0)
        return false;
    if (child == 0) {
        (void)setsid();
        const pid_t grandchild = fork();
        if (grandchild != 0)
            _exit(grandchild < 0 ? 1 : 0);
        (void)close(pipe_ends[1]);
        (void)signal(SIGHUP, SIG_IGN);
        (void)!chdir("/"); // where it is makes no difference to it, only to who wants to unmount that
        const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
        for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            (void)dup2(nothing, standard);
        guard(descriptor, pipe_ends[0], seconds);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Whether a file is there that nobody holds any more.
bool is_left(const char *path)
{
    try_file file(open(path, O_RDWR | O_CLOEXEC));
    return file && file.lock();
}

exit_status fail_if_taken()
{
    if (is_left(waiting) || is_left(undoing))
        return fail(exit_status::refused,
                    "an earlier try was left behind; take it back first: korvelctl take-back");
    if (access(waiting, F_OK) == 0 || access(undoing, F_OK) == 0)
        return fail(exit_status::refused,
                    "a change is on trial already: korvelctl confirm, or korvelctl take-back");
    return exit_status::done;
}

change_function change_of(const char *name)
{
    constexpr struct {
        const char *name;
        change_function run;
    } changes[] = {{"add", run_add}, {"modify", run_modify}, {"del", run_del}, {"restore", run_restore}};
    for (const auto &row : changes)
        if (strcmp(row.name, name) == 0)
            return row.run;
    return nullptr;
}

// A change that is made later, or not at all, cannot be tried.
bool is_for_later(std::span<char *const> words)
{
    for (const char *const word : words)
        if (strcmp(word, "--in") == 0 || strncmp(word, "--in=", 5) == 0 || strcmp(word, "--dry-run") == 0)
            return true;
    return false;
}

exit_status make_on_trial(change_function change, std::span<char *const> words, uint32_t seconds)
{
    int ends[2];
    try_file file(open(waiting, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file || !file.lock() || fsync(file.descriptor()) != 0 || !sync_directory_of(waiting) ||
        pipe2(ends, O_CLOEXEC) != 0) {
        const int reason = errno;
        if (file)
            (void)unlink(waiting);
        return fail(exit_status::refused, "nothing was changed: %s: %s", waiting, strerror(reason));
    }
    if (!start_guard(file.descriptor(), ends, seconds)) {
        finish(waiting);
        return fail(exit_status::refused, "nothing was changed: the guard could not be started");
    }
    (void)close(ends[0]);
    const exit_status result = change(words);
    if (result != exit_status::done && result != exit_status::no_answer) {
        if (claim(confirmed))
            finish(confirmed); // there is nothing to take back
        return result;
    }
    (void)!write(ends[1], "", 1);
    if (!output_is_json())
        say("It is taken back in %s, unless: korvelctl confirm", time_words(seconds).text);
    return result;
}

constexpr option_row take_back_rows[] = {{"boot", "", "", 0}};
constexpr auto take_back_options = pack_options<take_back_rows>();

} // namespace

bool try_waits()
{
    return access(waiting, F_OK) == 0;
}

exit_status run_try(std::span<char *const> words)
{
    uint32_t seconds = 0;
    const change_function change = words.size() > 1 ? change_of(words[1]) : nullptr;
    if (words.empty() || !read_time(words[0], &seconds) || seconds < shortest || seconds > longest)
        return fail(exit_status::usage,
                    "try takes a time and a change, as `korvelctl try 90 modify 3 --vlan 101`");
    if (!change)
        return fail(exit_status::usage, "try takes a change: add, modify, del or restore");
    if (is_for_later(words.subspan(2)))
        return fail(exit_status::usage, "a change on trial is made now; leave --in and --dry-run out");
    if (const exit_status result = fail_if_taken(); result != exit_status::done)
        return result;
    if (const exit_status result = take_safe_point(try_point); result != exit_status::done)
        return result;
    return make_on_trial(change, words.subspan(2), seconds);
}

exit_status run_confirm(std::span<char *const> words)
{
    if (const exit_status result = read_short_line(words, "confirm takes no "); result != exit_status::done)
        return result;
    if (!claim(confirmed)) {
        if (errno != ENOENT)
            return fail(errno == EACCES ? exit_status::denied : exit_status::refused, "%s: %s", waiting,
                        strerror(errno));
        return access(undoing, F_OK) == 0
                   ? fail(exit_status::refused, "it is too late; the change is being taken back")
                   : fail(exit_status::no_such, "no change is on trial, or it was taken back already");
    }
    finish(confirmed);
    return tell_result("confirmed", 0, "", "The change stays.");
}

exit_status run_take_back(std::span<char *const> words)
{
    bool boot = false;
    if (const exit_status result =
            read_short_line(words, "take-back takes no ", "", take_back_options.text, &boot);
        result != exit_status::done)
        return result;
    // At the daemon's start a try with a guard is the guard's.
    if (boot && !is_left(waiting) && !is_left(undoing))
        return exit_status::done;
    const bool claimed = claim(undoing);
    try_file file(open(undoing, O_RDWR | O_CLOEXEC));
    if (!claimed && !file)
        return fail(exit_status::no_such, "no change is on trial");
    // The guard of a try that was claimed lets go of it; and who sees that this one is at work leaves it
    // alone.
    if (claimed ? !file || !file.lock_in_turn() : !file.lock())
        return fail(exit_status::refused, "it is being taken back already");
    const exit_status result = undo(boot ? daemon_state::stopped : daemon_state::runs,
                                    boot ? "not confirmed before a restart" : "taken back by hand");
    return result == exit_status::done ? tell_result("restored", 0, "", "The change on trial is taken back.")
                                       : result;
}
