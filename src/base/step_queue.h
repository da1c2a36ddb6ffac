// The steps that an operation asks for while its work runs. They are carried out together, later; until then
// what is asked about files is answered as if they had been.
#pragma once

#include "base/steps.h"

// What the names of an operation's temporary files end in. Whoever finds such a file beside a configuration
// or a script, and no operation at work, may remove it.
inline constexpr char temporary_mark[] = ".korvel-";
inline constexpr char temporary_ending[] = ".korvel-XXXXXX"; // as mkstemp takes it

class step_queue {
public:
    step_queue() = default;
    ~step_queue();
    step_queue(const step_queue &) = delete;
    step_queue &operator=(const step_queue &) = delete;

    // The queue that the calling thread's work fills; null: steps are to be carried out at once.
    static step_queue *current();
    void make_current();
    static void leave();

    // The script at a path will be the temporary's content, which is written and executable; the file belongs
    // to the queue from now on, which syncs it with the others of its stage.
    void put(const char *path, const char *temporary);
    // The script at a path, if there is one by then, will be run with -r and removed. `failure` is logged
    // when the removal fails.
    void take_back(const char *path, const char *failure);
    void remove(const char *path, const char *failure);
    void run(const char *command);
    // Whether there will be something at a path.
    bool exists(const char *path) const;

    // A configuration will be replaced, before all other steps of this stage, and the pending changes that
    // it contains will be emptied. An empty name: that does not happen.
    void replace(const char *config, const char *target, const char *temporary, const char *delta);
    // Syncs the new files of this stage.
    void sync_temporaries();
    // Whether this stage has commands.
    bool runs_commands() const;
    void begin_next_stage();
    unsigned stage() const { return stage_; }

    // The operation cannot be carried out: this file is why. The first call counts.
    void fail(const char *path, const char *reason);
    bool failed() const { return failed_path_[0] != '\0'; }
    const char *failed_path() const { return failed_path_; }
    const char *reason() const { return reason_; }

    step_list steps;

private:
    content_mark expected(const char *path) const;
    void cancel_put(const char *path);
    bool is_known(const step &added);
    void add(const step &added);
    void add_removal(step_kind kind, const char *path, const char *failure);
    size_t first_of_stage() const;

    unsigned stage_ = 0;
    size_t replacements_ = 0; // of this stage; they stand at its beginning
    char failed_path_[256] = "";
    char reason_[64] = "";
};
