#include "base/carry_out.h"

#include "base/log.h"
#include "base/os.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <replace_file.h>
#include <span>
#include <unistd.h>

namespace {

constexpr int most_tries = 3; // of what must not fail for one error of the disk

bool has_temporary(const step &which)
{
    return which.kind == step_kind::replace || which.kind == step_kind::put;
}

// A temporary that is gone was renamed: only the operation itself takes it away.
bool was_renamed(const step &which)
{
    return has_temporary(which) && access(which.temporary, F_OK) != 0 && errno == ENOENT;
}

// What a step's path holds now, compared with what the step expects.
enum class presence { as_before, nothing, changed, unknown };

presence presence_of(const step &which)
{
    for (int i = 0; i < most_tries; i++) {
        const content_mark mark = mark_of(which.path);
        if (mark == which.before)
            return presence::as_before;
        if (mark.kind != content_mark::unreadable)
            return mark.kind == content_mark::nothing ? presence::nothing : presence::changed;
    }
    log_error("Failed to read file: %s: %m", which.path);
    return presence::unknown;
}

void log_left_alone(const step &which)
{
    log_error("Left alone, another program has written it: %s", which.path);
}

bool rename_into_place(const step &which)
{
    if (was_renamed(which))
        return true;
    const presence present = presence_of(which);
    if (present == presence::unknown)
        return false;
    if (present != presence::as_before) {
        log_left_alone(which);
        (void)unlink(which.temporary);
        return true;
    }
    for (int i = 0; i < most_tries; i++)
        if (rename(which.temporary, which.path) == 0)
            return true;
    const int reason = errno;
    log_error("Failed to put into place: %s: %s", which.path, strerror(reason));
    if (!stands_in_the_way(reason))
        return false;
    // The operation would otherwise wait for it, and all later ones for the operation.
    (void)unlink(which.temporary);
    return true;
}

// Synced: what is in the configuration by now must not come back as pending.
bool emptied(const char *path)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    if (file < 0)
        return errno == ENOENT;
    const bool done = ftruncate(file, 0) == 0 && fsync(file) == 0;
    (void)close(file);
    return done;
}

bool empty_file(const step &which)
{
    const presence present = presence_of(which);
    if (present != presence::as_before) // emptied, gone, or grown by what is not part of this operation
        return present != presence::unknown;
    for (int i = 0; i < most_tries; i++)
        if (emptied(which.path))
            return true;
    log_error("Failed to empty: %s: %m", which.path);
    return false;
}

// Whether a later step has brought a file of the same path, which is not what this step was about.
bool is_superseded(const step_list &steps, const step &which)
{
    for (const step *later = &which + 1; later < steps.end(); later++)
        if (strcmp(later->path, which.path) == 0 && was_renamed(*later))
            return true;
    return false;
}

bool remove_what_was_there(const step_list &steps, const step &which)
{
    if (is_superseded(steps, which))
        return true;
    switch (presence_of(which)) {
    case presence::unknown:
        return false;
    case presence::nothing:
        return true;
    case presence::changed:
        log_left_alone(which);
        return true;
    case presence::as_before:
        break;
    }
    if (which.kind == step_kind::take_back)
        take_back_script(which.path, which.note);
    else
        remove_file(which.path, which.note);
    return true;
}

bool carry_out(const step_list &steps, const step &which)
{
    switch (which.kind) {
    case step_kind::replace:
    case step_kind::put:
        return rename_into_place(which);
    case step_kind::empty:
        return empty_file(which);
    case step_kind::take_back:
    case step_kind::remove:
        return remove_what_was_there(steps, which);
    case step_kind::run:
        run_command(which.path);
        return true;
    }
    return true;
}

bool is_replacement(const step &which)
{
    return which.kind == step_kind::replace || which.kind == step_kind::empty;
}

// The first of the commands that a stage ends with; the list's end when it ends with something else.
const step *first_last_command(const step_list &steps, unsigned stage)
{
    const step *first = steps.end();
    for (const step &each : steps) {
        if (each.stage != stage)
            continue;
        if (each.kind != step_kind::run)
            first = steps.end();
        else if (first == steps.end())
            first = &each;
    }
    return first;
}

} // namespace

bool carry_out_replacements(const step_list &steps, unsigned stage)
{
    bool done = true;
    for (const step &each : steps)
        if (each.stage == stage && is_replacement(each))
            done = carry_out(steps, each) && done;
    return done;
}

bool carry_out_files(const step_list &steps, unsigned stage)
{
    bool done = true;
    for (const step *at = steps.begin(), *end = first_last_command(steps, stage); at < end; at++)
        if (at->stage == stage && !is_replacement(*at))
            done = carry_out(steps, *at) && done;
    return done;
}

void carry_out_commands(const step_list &steps, unsigned stage)
{
    for (const step *at = first_last_command(steps, stage); at < steps.end(); at++)
        if (at->stage == stage)
            (void)carry_out(steps, *at);
}

bool stage_has_begun(const step_list &steps, unsigned stage)
{
    for (const step &each : steps)
        if (each.stage == stage && was_renamed(each))
            return true;
    return false;
}

namespace {

std::string_view directory_of(const char *path)
{
    return {path, static_cast<size_t>(strrchr(path, '/') - path)};
}

// Whether a step is about a file that outlives a loss of power.
bool is_lasting(const step &which)
{
    return which.kind != step_kind::run && which.kind != step_kind::empty;
}

bool sync_directory_at_last(const char *path)
{
    for (int i = 0; i < most_tries; i++)
        if (sync_directory_of(path))
            return true;
    return false;
}

// Syncs the directories of the steps that count, but for one that was synced already.
bool sync_directories(std::span<const step> steps, bool (*counts)(const step &), std::string_view done)
{
    bool synced = true;
    for (const step &each : steps) {
        if (!counts(each) || directory_of(each.path) == done)
            continue;
        const step *earlier = steps.data();
        while (earlier < &each &&
               !(counts(*earlier) && directory_of(earlier->path) == directory_of(each.path)))
            earlier++;
        if (earlier == &each)
            synced = sync_directory_at_last(each.path) && synced;
    }
    return synced;
}

} // namespace

bool sync_temporaries(const step_list &steps, const char *other_path)
{
    return sync_directory_of(other_path) &&
           sync_directories({steps.begin(), steps.end()}, has_temporary, directory_of(other_path));
}

bool sync_files(const step_list &steps, unsigned stage)
{
    const step *first = steps.begin();
    while (first < steps.end() && first->stage != stage)
        first++;
    const step *end = first;
    while (end < steps.end() && end->stage == stage)
        end++;
    return sync_directories({first, end}, is_lasting, {});
}
