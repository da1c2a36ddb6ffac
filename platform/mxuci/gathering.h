// Configurations that are loaded once, changed in memory, and written together. A single mxuci call is a
// gathering of its own.
#pragma once

#include "context_owner.h"
#include "mxuci_gather.h"
#include "locked_file.h"

#include <optional>

// The generated name of a section, terminator included.
using section_name = char[16];

// One configuration of a gathering.
struct gathered {
    char config[sizeof(mxuci_staged::config)];
    char file_path[128], delta_path[128];
    uci_package *package;    // null: there is no such configuration
    file_state file, delta;  // as they were before it was loaded, or after it was put into place
    bool changed;            // since it was loaded or staged
    bool delta_known;        // whether delta_applies is known
    bool delta_applies;      // the pending changes make it another than its file says
    bool delta_staged;       // what is staged contains the pending changes
    bool is_staged;          // the file will be another when what is staged is in place
    section_name last_added; // what the last section is called by every later load; known once staged
    std::optional<locked_file> file_lock, delta_lock;
};

class gathering {
public:
    gathering() = default;
    gathering(const gathering &) = delete;
    gathering &operator=(const gathering &) = delete;

    uci_context *context() const { return context_.get(); }
    // The configuration, loaded at the first time. Failures are noted but for that it is not there.
    int open(const char *config, gathered **found_out);
    // To be called before each change of a configuration; after one that was made, `changed` is set.
    int prepare_change(gathered &target);
    // Notes a result unless it says that something was not there, and hands it back.
    int note(const char *config, int result);
    const mxuci_failure &failure() const { return failure_; }

    // See mxuci_gather_stage(). An array for all configurations has `most` rows.
    static constexpr int most = 8;
    int stage(const char *suffix, mxuci_staged *staged_out, int room, int *count_out);
    // See mxuci_gather_lock() and mxuci_gather_placed(); the configuration was staged.
    int lock(const char *config, bool *unchanged_out);
    void placed(const char *config);
    // Empties the pending changes of a locked configuration.
    bool empty_delta(const char *config);
    gathered *find(const char *config);

private:
    int load(const char *config, gathered &target);
    int stage_all(const char *suffix, mxuci_staged *staged_out, int room, int *count_out);
    int stage_one(gathered &source, const char *suffix, mxuci_staged &staged_out);
    gathered *changed_after(const char *config);

    context_owner context_;
    gathered all_[most] = {};
    int count_ = 0;
    mxuci_failure failure_ = {};
};
