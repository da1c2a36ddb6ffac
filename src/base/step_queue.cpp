#include "base/step_queue.h"

#include <cerrno>
#include <replace_file.h>
#include <unistd.h>

namespace {

constinit thread_local step_queue *current_queue = nullptr;

} // namespace

step_queue::~step_queue()
{
    if (current_queue == this)
        leave();
}

step_queue *step_queue::current()
{
    return current_queue;
}

void step_queue::make_current()
{
    current_queue = this;
}

void step_queue::leave()
{
    current_queue = nullptr;
}

void step_queue::fail(const char *path, const char *reason)
{
    if (failed())
        return;
    (void)text_ref(failed_path_).format("%s", path);
    (void)text_ref(reason_).format("%s", reason);
}

// Without its marks a step could not be told from one that was taken.
bool step_queue::is_known(const step &added)
{
    const bool known =
        added.before.kind != content_mark::unreadable && added.after.kind != content_mark::unreadable;
    if (!known)
        fail(added.path, strerror(errno));
    return known;
}

void step_queue::add(const step &added)
{
    if (!is_known(added))
        return;
    if (!steps.add(added))
        fail(added.path, strerror(ENOMEM));
}

// What will be at a path once the steps so far are carried out.
content_mark step_queue::expected(const char *path) const
{
    for (size_t i = steps.size(); i > 0; i--) {
        const step &earlier = steps[i - 1];
        if (earlier.kind != step_kind::run && strcmp(earlier.path, path) == 0)
            return earlier.after;
    }
    return mark_of(path);
}

bool step_queue::exists(const char *path) const
{
    return expected(path).kind != content_mark::nothing;
}

size_t step_queue::first_of_stage() const
{
    size_t first = steps.size();
    while (first > 0 && steps[first - 1].stage == stage_)
        first--;
    return first;
}

// A script that this stage was to put and that is put anew or taken back never appears.
void step_queue::cancel_put(const char *path)
{
    for (size_t i = first_of_stage(); i < steps.size(); i++) {
        if (steps[i].kind != step_kind::put || strcmp(steps[i].path, path) != 0)
            continue;
        (void)unlink(steps[i].temporary);
        return steps.erase(i);
    }
}

void step_queue::put(const char *path, const char *temporary)
{
    cancel_put(path);
    step added = {step_kind::put, stage_, expected(path), mark_of(temporary), {}, {}, {}};
    const int reason = errno;
    if (!text_ref(added.path).format("%s", path) || !text_ref(added.temporary).format("%s", temporary))
        fail(path, strerror(ENAMETOOLONG));
    errno = reason;
    const size_t count = steps.size();
    if (!failed())
        add(added);
    if (steps.size() == count)
        (void)unlink(temporary);
}

void step_queue::add_removal(step_kind kind, const char *path, const char *failure)
{
    cancel_put(path);
    step added = {kind, stage_, expected(path), {}, {}, {}, {}};
    if (added.before.kind == content_mark::nothing)
        return;
    if (!text_ref(added.path).format("%s", path) || !text_ref(added.note).format("%s", failure))
        return fail(path, strerror(ENAMETOOLONG));
    add(added);
}

void step_queue::take_back(const char *path, const char *failure)
{
    char directory[sizeof(step::path)];
    const int length = static_cast<int>(strrchr(path, '/') - path);
    if (text_ref(directory).format("%.*s", length, path) && exists(path) && access(directory, W_OK) != 0)
        return fail(path, strerror(errno)); // it would outlive its WAN
    add_removal(step_kind::take_back, path, failure);
}

void step_queue::remove(const char *path, const char *failure)
{
    add_removal(step_kind::remove, path, failure);
}

void step_queue::run(const char *command)
{
    step added = {step_kind::run, stage_, {}, {}, {}, {}, {}};
    if (!text_ref(added.path).format("%s", command))
        return fail(command, strerror(ENAMETOOLONG));
    add(added);
}

void step_queue::replace(const char *config, const char *target, const char *temporary, const char *delta)
{
    const struct {
        step_kind kind;
        const char *path, *temporary;
    } rows[] = {{step_kind::replace, temporary[0] != '\0' ? target : "", temporary},
                {step_kind::empty, delta, ""}};
    for (const auto &row : rows) {
        if (row.path[0] == '\0')
            continue;
        step added = {row.kind, stage_, expected(row.path), {}, {}, {}, {}};
        added.after = row.kind == step_kind::replace ? mark_of(row.temporary) : mark_of_empty_file();
        const bool fits = text_ref(added.path).format("%s", row.path) &&
                          text_ref(added.temporary).format("%s", row.temporary) &&
                          text_ref(added.note).format("%s", config);
        if (!fits || !is_known(added) || !steps.insert(first_of_stage() + replacements_, added)) {
            if (row.temporary[0] != '\0')
                (void)unlink(row.temporary);
            return fail(row.path, strerror(fits ? ENOMEM : ENAMETOOLONG));
        }
        replacements_++;
    }
}

void step_queue::sync_temporaries()
{
    for (size_t i = first_of_stage(); i < steps.size(); i++) {
        const bool is_new = steps[i].kind == step_kind::put || steps[i].kind == step_kind::replace;
        if (is_new && !sync_file(steps[i].temporary))
            return fail(steps[i].path, strerror(errno));
    }
}

bool step_queue::runs_commands() const
{
    for (size_t i = first_of_stage(); i < steps.size(); i++)
        if (steps[i].kind == step_kind::run)
            return true;
    return false;
}

void step_queue::begin_next_stage()
{
    stage_++;
    replacements_ = 0;
}
