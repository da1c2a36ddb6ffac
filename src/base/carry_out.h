// Carries the steps of an operation out, from wherever an earlier attempt has left them: a step that was done
// is not done again, and what somebody else has written meanwhile is left alone and logged.
#pragma once

#include "base/steps.h"

// Renames the configurations of a stage into place and empties the pending changes in them. False: the disk
// refuses that, which is logged.
bool carry_out_replacements(const step_list &steps, unsigned stage);

// The other steps of a stage, in the order in which they were asked for: first those up to the last one that
// is not a command, then the commands behind it.
bool carry_out_files(const step_list &steps, unsigned stage);
void carry_out_commands(const step_list &steps, unsigned stage);

// Whether a step of a stage has been done.
bool stage_has_begun(const step_list &steps, unsigned stage);

// Sync each directory once that the steps' temporaries are in, and the one of another path; or that the files
// of a stage's steps are in.
bool sync_temporaries(const step_list &steps, const char *other_path);
bool sync_files(const step_list &steps, unsigned stage);
