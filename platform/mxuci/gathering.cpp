#include "gathering.h"

#include "same_package.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <replace_file.h>
#include <unistd.h>

namespace {

bool is_plain(const char *part)
{
    return part && part[0] != '\0' && !strpbrk(part, ".=/");
}

// Copies a text behind a beginning; false when it does not fit.
template <size_t size> bool join(char (&text_out)[size], const char *beginning, const char *text)
{
    return snprintf(text_out, size, "%s%s", beginning, text) < static_cast<int>(size);
}

template <size_t size> bool copy(char (&text_out)[size], const char *text)
{
    return join(text_out, "", text);
}

// Whether a package differs from what the configuration's file says without pending changes, as far as can
// be told.
bool differs_from_file(const uci_package *package, const char *path)
{
    const context_owner plain;
    uci_package *without = nullptr;
    if (!plain || uci_load(plain.get(), path, &without) != UCI_OK)
        return true;
    return !same_package(package, without);
}

void name_last_section(const uci_package *package, section_name &name_out)
{
    if (!uci_list_empty(&package->sections))
        (void)copy(name_out, list_to_element(package->sections.prev)->name);
}

int write_package(uci_context *context, file_replacement &file, uci_package *package)
{
    FILE *const stream = file.open_writer();
    if (!stream)
        return UCI_ERR_MEM;
    int result = uci_export(context, stream, package, false);
    if (result == UCI_OK && ferror(stream))
        result = UCI_ERR_IO;
    const bool closed = fclose(stream) == 0;
    return file.written() && closed ? result : static_cast<int>(UCI_ERR_IO);
}

// Reads a written package back as every later load will, and compares it with what was meant.
int prove(const file_replacement &file, gathered &meant)
{
    const context_owner context;
    FILE *const stream = context ? file.open_reader() : nullptr;
    if (!stream)
        return context ? UCI_ERR_IO : UCI_ERR_MEM;
    uci_package *written = nullptr;
    const int result = uci_import(context.get(), stream, meant.config, &written, true);
    const bool closed = fclose(stream) == 0;
    if (result != UCI_OK || !closed)
        return result != UCI_OK ? result : static_cast<int>(UCI_ERR_IO);
    if (!written || !same_package(meant.package, written))
        return UCI_ERR_UNKNOWN;
    name_last_section(written, meant.last_added);
    return UCI_OK;
}

} // namespace

gathered *gathering::find(const char *config)
{
    for (int i = 0; i < count_; i++)
        if (strcmp(all_[i].config, config) == 0)
            return &all_[i];
    return nullptr;
}

int gathering::note(const char *config, int result)
{
    const bool was_not_there = result == UCI_ERR_NOTFOUND || result == UCI_ERR_INVAL;
    if (result == UCI_OK || was_not_there || failure_.code != 0)
        return result;
    failure_.code = result;
    failure_.reason = result == UCI_ERR_MEM ? ENOMEM : result == UCI_ERR_IO ? errno : 0;
    (void)copy(failure_.config, config);
    return result;
}

int gathering::load(const char *config, gathered &target)
{
    if (!is_plain(config) || !copy(target.config, config) ||
        !join(target.file_path, UCI_CONFDIR "/", config) || !join(target.delta_path, UCI_SAVEDIR "/", config))
        return UCI_ERR_INVAL;
    if (!context_)
        return UCI_ERR_MEM;
    target.file = state_of(target.file_path);
    target.delta = state_of(target.delta_path);
    target.package = nullptr;
    target.changed = false;
    return uci_load(context(), config, &target.package);
}

int gathering::open(const char *config, gathered **found_out)
{
    *found_out = config ? find(config) : nullptr;
    if (*found_out)
        return (*found_out)->package ? UCI_OK : UCI_ERR_NOTFOUND;
    if (count_ == most)
        return note(config, UCI_ERR_MEM);
    gathered &added = all_[count_];
    const int result = load(config, added);
    if (result != UCI_OK && result != UCI_ERR_NOTFOUND)
        return note(config, result);
    count_++; // also one that is not there: that must not change during a gathering either
    *found_out = &added;
    return result;
}

// What was pending when a configuration was loaded will be emptied along with the change. libuci passes over
// pending changes that it cannot read, so a second reading has to find the same.
int gathering::prepare_change(gathered &target)
{
    if (target.delta_known || target.delta.size == 0)
        return UCI_OK;
    const context_owner again;
    uci_package *package = nullptr;
    const int result = again ? uci_load(again.get(), target.config, &package) : static_cast<int>(UCI_ERR_MEM);
    if (result != UCI_OK)
        return note(target.config, result);
    const bool is_still = same_state(state_of(target.delta_path), target.delta) &&
                          same_state(state_of(target.file_path), target.file);
    if (is_still && !same_package(package, target.package)) {
        (void)note(target.config,
                   UCI_ERR_UNKNOWN); // why one of the readings failed the library does not tell
        return UCI_ERR_IO;
    }
    target.delta_known = true;
    target.delta_applies = differs_from_file(target.package, target.file_path);
    return UCI_OK;
}

int gathering::stage_one(gathered &source, const char *suffix, mxuci_staged &staged_out)
{
    staged_out = {};
    (void)copy(staged_out.config, source.config);
    file_replacement file(source.file_path, suffix);
    if (!file)
        return UCI_ERR_IO;
    if (!copy(staged_out.target, file.target()) || !copy(staged_out.temporary, file.temporary())) {
        errno = ENAMETOOLONG;
        return UCI_ERR_IO;
    }
    int result = write_package(context(), file, source.package);
    if (result == UCI_OK)
        result = prove(file, source);
    if (result != UCI_OK)
        return result;

    // Also when the pending changes cancel each other out: left behind, they would undo ours.
    if (source.delta.size > 0 && !source.delta_staged &&
        (source.delta_applies || differs_from_file(source.package, source.file_path))) {
        (void)copy(staged_out.delta, source.delta_path);
        source.delta_staged = true;
    }
    if (!source.is_staged && file.equals_target()) {
        staged_out.temporary[0] = '\0';
        return UCI_OK;
    }
    // Should the old file vanish meanwhile, the new one is its writer's alone.
    if (!file.finish(look_of(source.file_path, 0600), file_replacement::syncing::later))
        return UCI_ERR_IO;
    file.release();
    source.is_staged = true;
    return UCI_OK;
}

// The changed configuration whose name comes next in order; null: there is none.
gathered *gathering::changed_after(const char *config)
{
    gathered *next = nullptr;
    for (int i = 0; i < count_; i++) {
        gathered &each = all_[i];
        if (each.changed && strcmp(each.config, config) > 0 &&
            (!next || strcmp(each.config, next->config) < 0))
            next = &each;
    }
    return next;
}

int gathering::stage_all(const char *suffix, mxuci_staged *staged_out, int room, int *count_out)
{
    if (failure_.code != 0)
        return failure_.code;
    for (gathered *next = changed_after(""); next; next = changed_after(next->config)) {
        const int result = *count_out < room ? stage_one(*next, suffix, staged_out[*count_out])
                                             : static_cast<int>(UCI_ERR_MEM);
        if (result != UCI_OK)
            return note(next->config, result);
        (*count_out)++;
    }
    return UCI_OK;
}

int gathering::stage(const char *suffix, mxuci_staged *staged_out, int room, int *count_out)
{
    *count_out = 0;
    const int result = stage_all(suffix, staged_out, room, count_out);
    if (result == UCI_OK) {
        for (gathered &each : all_)
            each.changed = false;
        return UCI_OK;
    }
    while (*count_out > 0)
        if (const char *const path = staged_out[--*count_out].temporary; path[0] != '\0')
            (void)unlink(path);
    return result;
}

int gathering::lock(const char *config, bool *unchanged_out)
{
    *unchanged_out = false;
    gathered *const target = config ? find(config) : nullptr;
    if (!target)
        return UCI_ERR_INVAL;
    target->file_lock.emplace(target->file_path, O_RDWR);
    if (!*target->file_lock)
        return note(config, UCI_ERR_IO);
    target->delta_lock.emplace(target->delta_path, O_RDWR);
    *unchanged_out = same_state(target->file_lock->state(), target->file) &&
                     same_state(target->delta_lock->state(), target->delta);
    return UCI_OK;
}

bool gathering::empty_delta(const char *config)
{
    const gathered *const target = find(config);
    return target && target->delta_lock && ftruncate(target->delta_lock->descriptor(), 0) == 0;
}

void gathering::placed(const char *config)
{
    gathered *const target = config ? find(config) : nullptr;
    if (!target)
        return;
    target->file = state_of(target->file_path);
    target->delta = state_of(target->delta_path);
    target->delta_known = target->delta_applies = target->delta_staged = target->is_staged = false;
    target->file_lock.reset();
    target->delta_lock.reset();
}
