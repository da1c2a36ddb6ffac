// The record of an operation, on the disk from its decision to its end. Once it is there, whole, the
// operation will be completed: by this process, or by the next one that starts.
#pragma once

#include "base/steps.h"

// The records' paths. There may be several operations at once: one whose commands run, others behind it.
constexpr const char *record_paths[] = {"/etc/config/.korvel.record", "/etc/config/.korvel.record-2",
                                        "/etc/config/.korvel.record-3", "/etc/config/.korvel.record-4"};

class record_file {
public:
    record_file() = default;
    ~record_file(); // an undecided record is removed, a decided one stays
    record_file(const record_file &) = delete;
    record_file &operator=(const record_file &) = delete;

    // Makes and locks an empty record. While it is locked nobody takes temporary files away. False: errno
    // says why.
    bool acquire();
    // Locks a record that is there. False: there is none, or an operation is at work on it, which *busy_out
    // tells.
    bool open_existing(const char *path, bool *busy_out);
    enum content { whole, undecided, unreadable };
    content read(step_list &steps_out) const;

    // Writes the steps and syncs them and the names of their temporaries: the decision. False: nothing is
    // decided; errno says why.
    bool decide(const step_list &steps);
    // Lets the record stay when it is closed.
    void keep() { decided_ = true; }
    // Removes the record and syncs that.
    void finish();
    // Removes a record that has not been decided.
    void drop();
    const char *path() const { return path_; }
    void swap(record_file &other);

private:
    bool lock(const char *path, int flags, bool *busy_out);

    const char *path_ = record_paths[0];
    int file_ = -1;
    bool decided_ = false;
};
