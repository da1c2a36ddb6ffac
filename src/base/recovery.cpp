#include "base/recovery.h"

#include "base/carry_out.h"
#include "base/log.h"
#include "base/record.h"
#include "base/step_queue.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <unistd.h>

namespace {

constexpr char config_directory[] = "/etc/config";

// A stage whose successor has begun is complete, commands included.
bool complete(const step_list &steps)
{
    const unsigned stages = steps.size() == 0 ? 0 : steps[steps.size() - 1].stage + 1;
    unsigned first = stages;
    while (first > 0 && !stage_has_begun(steps, first - 1))
        first--;
    bool done = true;
    for (unsigned stage = first > 0 ? first - 1 : 0; done && stage < stages; stage++) {
        done =
            carry_out_replacements(steps, stage) && carry_out_files(steps, stage) && sync_files(steps, stage);
        if (done)
            carry_out_commands(steps, stage);
    }
    return done;
}

// Returns whether there is nothing left to do for the record at a path.
bool complete_record(const char *path, bool *busy_out)
{
    record_file record;
    if (!record.open_existing(path, busy_out)) {
        if (*busy_out || errno == ENOENT)
            return true;
        log_error("Nothing was changed: %s: %m", path);
        return false;
    }
    step_list steps;
    switch (record.read(steps)) {
    case record_file::undecided:
        return true; // its destructor removes it
    case record_file::unreadable:
        record.keep();
        log_error("Failed to read file: %s", path);
        return false;
    case record_file::whole:
        break;
    }
    log_warning("Complete the change that is recorded in %s", path);
    record.keep();
    if (!complete(steps))
        return false;
    record.finish();
    return true;
}

bool is_temporary(const char *name)
{
    const size_t length = strlen(name), ending = sizeof(temporary_ending) - 1;
    return name[0] == '.' && length > ending &&
           strncmp(name + length - ending, temporary_mark, sizeof(temporary_mark) - 1) == 0;
}

void sweep(const char *path);

// The file behind a link in the directory of the configurations is replaced where it is.
void sweep_behind_link(int directory, const char *name)
{
    char path[sizeof(step::path)];
    char *const target =
        text_ref(path).format("/proc/self/fd/%d/%s", directory, name) ? realpath(path, nullptr) : nullptr;
    if (!target)
        return;
    if (char *const end = strrchr(target, '/'); end != target) {
        *end = '\0';
        if (strcmp(target, config_directory) != 0)
            sweep(target);
    }
    free(target);
}

void sweep(const char *path)
{
    DIR *const directory = opendir(path);
    if (!directory)
        return;
    const bool has_links = strcmp(path, config_directory) == 0;
    while (const dirent *const entry = readdir(directory)) {
        if (is_temporary(entry->d_name))
            (void)unlinkat(dirfd(directory), entry->d_name, 0);
        else if (has_links && entry->d_type == DT_LNK)
            sweep_behind_link(dirfd(directory), entry->d_name);
    }
    (void)closedir(directory);
}

bool complete_records(bool *busy_out)
{
    bool complete = true;
    *busy_out = false;
    for (const char *const path : record_paths) {
        bool busy = false;
        complete = complete_record(path, &busy) && complete;
        *busy_out = *busy_out || busy;
    }
    return complete;
}

} // namespace

bool complete_recorded_operations()
{
    bool busy = false;
    return complete_records(&busy);
}

void recover_operations(std::span<const char *const> script_directories)
{
    bool busy = false;
    const bool complete = complete_records(&busy);
    if (busy)
        log_warning("Another process is changing the configuration");
    // While the record is locked nobody begins to make temporary files.
    record_file record;
    if (busy || !complete || !record.acquire())
        return;
    sweep(config_directory);
    for (const char *const directory : script_directories)
        sweep(directory);
}
