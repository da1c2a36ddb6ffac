// What a power cut leaves. While a program runs, what it changes in the kept files is noted in order; then
// any moment can be looked at: what was synced by then is there, of the rest anything may be or may not be.
//
// A sync of a file covers its content and mode, a sync of a directory the names in it, and nothing else holds
// anything.
#pragma once

#include "faults/calls.h"
#include "faults/file_tree.h"

#include <functional>
#include <optional>
#include <set>
#include <vector>

class disk_log {
public:
    // Starts with these files, all of them synced.
    explicit disk_log(const file_tree &files);

    // What a call made (its result as the kernel gave it). Calls that concern no kept file change nothing.
    void note(const system_call &call, int64_t result);
    // The moment at which the request was answered.
    void note_answer() { answered_at_ = steps_; }

    // A state that a power cut may leave, and whether it lies behind the answer.
    struct remains {
        file_tree files;
        bool answered = false;
        std::string when; // "after 3 of 20 steps, the last: rename …; lost: …"
    };
    // Every different state: for each moment everything, nothing, all but one, one alone and half of a write
    // of what was not synced, and some mixtures.
    std::vector<remains> all_remains() const;

    size_t changes() const { return changes_.size(); }
    size_t syncs() const { return syncs_; }

private:
    using inode = size_t;
    struct change {
        enum { data, size, mode, name, no_name } what;
        inode node = 0;
        std::string path;  // of a name
        size_t offset = 0; // or the size, or the mode
        std::string bytes;
        std::string text;
        size_t step = 0;
        size_t synced_at = ~size_t{0}; // the step that covered it
    };
    struct open_file {
        inode node = 0;
        size_t position = 0;
        bool append = false;
    };
    std::optional<inode> node_of(const system_call &call) const;
    void note_open(const system_call &call, int64_t result);
    void note_write(const system_call &call, size_t count);
    void note_rename(const system_call &call);
    void note_sync(const system_call &call);
    void add(change made, const system_call &call);
    std::vector<size_t> unsynced_at(size_t moment) const;
    file_tree tree_with(const std::function<bool(size_t)> &applied, size_t half) const;

    file_tree base_;
    std::map<std::string, inode> base_names_, names_;
    std::vector<kept_file> base_nodes_;
    std::vector<size_t> sizes_; // of each inode now
    std::map<int, open_file> open_files_;
    std::vector<change> changes_;
    size_t steps_ = 0; // changes and syncs
    size_t syncs_ = 0;
    size_t answered_at_ = ~size_t{0};
};
