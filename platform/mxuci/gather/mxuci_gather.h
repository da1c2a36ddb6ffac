#ifndef MXUCI_GATHER_H
#define MXUCI_GATHER_H

#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

struct uci_context;
struct uci_package;

/*
 * Many mxuci calls as one change. Between begin and end the calling thread's calls read and change
 * configurations that are loaded once, with what others have left pending, and kept in memory. Their results
 * are those of mxuci.h, and each call sees what those before it did, but nothing is written and the sections'
 * generated names hold until the end. Then the thread
 *
 *   1. stages: each changed configuration is written and proven beside its file, and synced there;
 *   2. locks what it staged, and learns whether somebody has written there since it was loaded;
 *   3. puts the files into place by renaming them, and empties the pending changes that they contain;
 *   4. says so, which lets go of the locks, and either goes on with the calls or ends.
 *
 * Without steps 2 and 3 nothing has happened but that temporary files lie there, which are the caller's.
 * Functions return 0 or a libuci code (UCI_ERR_*) unless said otherwise. Each thread has its own gathering,
 * one at most.
 */

/* Whether this library gathers. If not, begin fails, and calls take effect one by one as mxuci.h says. */
bool mxuci_gathers(void);

int mxuci_gather_begin(void);

/* Forgets everything and lets go of all locks. Without a begin it does nothing. */
void mxuci_gather_end(void);

/*
 * A gathered configuration as it is now. It belongs to the gathering, changes with every call and goes with
 * mxuci_gather_end(). On failure both are null: UCI_ERR_NOTFOUND when there is no such configuration,
 * UCI_ERR_INVAL without a begin.
 */
int mxuci_gather_view(const char *config, struct uci_context **context_out, struct uci_package **package_out);

/* Why the gathering cannot be trusted: the first failure other than that something was not there. */
struct mxuci_failure {
    int code;         /* a libuci code; 0: there was none */
    int reason;       /* errno when the system refused something, else 0 */
    char config[128]; /* the configuration that it happened to */
};
struct mxuci_failure mxuci_gather_failure(void);

/* A configuration file that is ready to be replaced. */
struct mxuci_staged {
    char config[128];
    char target[256];    /* the file, behind all symbolic links */
    char temporary[256]; /* its new content, beside it, with its mode and owner; empty: the file stays */
    char delta[128];     /* the pending changes that the new content contains; empty: none to be emptied */
};

/*
 * Writes what has changed since begin, or since the last stage, beside the files. Every file has then been
 * read back by the parser and found to be what was meant. The caller syncs it before anything relies on it:
 * that takes long, and needs nothing of the library. The temporary files' names end in `suffix`, in which six
 * X are replaced. Configurations come in the order of their names. On failure nothing is left;
 * mxuci_gather_failure() tells why.
 */
int mxuci_gather_stage(const char *suffix, struct mxuci_staged *staged_out, int room, int *count_out);

/*
 * Locks a staged configuration as libuci does. Lock in the order in which they were staged, which keeps two
 * programs from waiting for each other. *unchanged_out tells whether file and pending changes are what they
 * were when they were loaded, or were left by mxuci_gather_placed().
 */
int mxuci_gather_lock(const char *config, bool *unchanged_out);

/* Tells that a locked configuration is in place now, and lets go of its lock. */
void mxuci_gather_placed(const char *config);

/*
 * Hands to the system what the process has freed. Configurations are by far the most that it ever has in
 * memory, in many small pieces, and a C library may keep these for the next ones. What is given back costs
 * the next load about a tenth more, so this is for those after whom none is expected soon.
 */
void mxuci_give_memory_back(void);

/*
 * Has all threads that are started from now on allocate from the heap that there is: one of its own for each
 * costs a third of what an idle daemon takes, and they do not allocate at the same time. What is freed stays
 * in the heap until mxuci_give_memory_back(), or until there are 8 MiB of it: where there are threads, each
 * time that a program gives something back all processors are told, which takes longer than to free a
 * configuration.
 */
void mxuci_arrange_heap(void);

#ifdef __cplusplus
}
#endif

#endif
