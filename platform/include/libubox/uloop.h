/* The event loop: descriptors, timers and children of one thread. All calls belong to the thread that runs
 * the loop.
 *
 * A pass runs the timers that are due, reaps children if SIGCHLD came, waits, and calls back for one
 * descriptor. */
#ifndef LIBUBOX_ULOOP_H
#define LIBUBOX_ULOOP_H

#include <libubox/list.h>
#include <signal.h>

#ifdef __cplusplus
extern "C" {
#endif

struct uloop_fd;
struct uloop_timeout;
struct uloop_process;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);
/* `ret` is the status as waitpid() gives it. */
typedef void (*uloop_process_handler)(struct uloop_process *c, int ret);

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
/* Leave the descriptor's mode alone; without it uloop_fd_add() makes it non-blocking. */
#define ULOOP_BLOCKING (1 << 3)
/* Stay registered after a hang-up or an error. */
#define ULOOP_ERROR_CB (1 << 6)

/* All zero but `cb` and `fd` before the first use. `eof`: the peer has closed its side. `error`: full hang-up
 * or error; the loop has let go of the descriptor (`registered` false) and calls back this once more. */
struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;
    bool error;
    bool registered;
    uint8_t flags;
};

/* One-shot; `time` is on the monotonic clock. */
struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time;
};

struct uloop_process {
    struct list_head list;
    bool pending;
    uloop_process_handler cb;
    pid_t pid;
};

extern bool uloop_cancelled;
/* False before the first uloop_init(): SIGCHLD is left alone and no child is reaped. Otherwise the loop
 * collects every child of the process, those of system() and popen() in other threads too. */
extern bool uloop_handle_sigchld;

/* May be repeated. Takes over SIGINT, SIGTERM, SIGCHLD and SIGPIPE where they have their default action. 0 or
 * -1. */
int uloop_init(void);
/* Negative: runs until ended. Otherwise one pass that waits no longer than this many milliseconds. Returns 0,
 * or the number of the signal that ended the loop through its own handler. */
int uloop_run_timeout(int timeout);
void uloop_done(void);
/* Whether the loop runs and is about to end. */
bool uloop_cancelling(void);

static inline int uloop_run(void)
{
    return uloop_run_timeout(-1);
}

/* Ends the loop after the current callback. No effect before the loop runs, and none on a loop that is
 * waiting. */
static inline void uloop_end(void)
{
    uloop_cancelled = true;
}

/* Also changes the flags of a descriptor; without READ and WRITE it deletes. 0 or -1. */
int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
/* Does not close. 0, also when it was not registered. */
int uloop_fd_delete(struct uloop_fd *sock);

/* Arms at `timeout->time`; -1 when pending. */
int uloop_timeout_add(struct uloop_timeout *timeout);
/* Arms, also anew, in so many milliseconds; 0 and less mean the next pass. */
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
/* -1 when not pending. */
int uloop_timeout_cancel(struct uloop_timeout *timeout);
/* Milliseconds left, negative when overdue; -1 when not pending. */
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);

/* Wants `pid` set. -1 when pending. */
int uloop_process_add(struct uloop_process *p);
/* Forgets the child without ending it. -1 when not pending. */
int uloop_process_delete(struct uloop_process *p);

#ifdef __cplusplus
}
#endif

#endif
