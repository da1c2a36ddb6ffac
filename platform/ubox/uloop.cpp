// The event loop on epoll. Signal handlers only note what happened and wake the loop through a pipe;
// everything else happens between callbacks, so that no callback is ever interrupted by another.
#include "list_ops.h"

#include <libubox/uloop.h>

#include <atomic>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <time.h>

namespace {

struct taken_signal {
    int number;
    bool taken;
    struct sigaction before;
};

constexpr int64_t us_per_second = 1000000;
constexpr int64_t us_per_ms = 1000;

int epoll_fd = -1;
// [0] is read by the loop, [1] written by signal handlers.
int wake_pipe[2] = {-1, -1};
uloop_fd wake_source = {};

// Ordered by time; equal times in the order of arming.
LIST_HEAD(timers);
// Those whose time has come and whose callbacks this pass still owes.
LIST_HEAD(due_timers);
LIST_HEAD(processes);

int run_depth = 0;
// Written by signal handlers, which may run in several threads at once.
constinit std::atomic<int> end_signal = 0;
constinit std::atomic<int> child_ended = 0;

taken_signal taken_signals[] = {{SIGINT, false, {}}, {SIGTERM, false, {}}, {SIGCHLD, false, {}}};

void wake_loop()
{
    const int error = errno;
    // A full pipe wakes the loop as well.
    (void)!write(wake_pipe[1], "", 1);
    errno = error;
}

void on_end_signal(int number)
{
    end_signal = number;
    uloop_cancelled = true;
    wake_loop();
}

void on_child_signal(int)
{
    child_ended = 1;
    wake_loop();
}

using signal_handler = void (*)(int);

signal_handler handler_of(int number)
{
    return number == SIGCHLD ? on_child_signal : on_end_signal;
}

bool has_default_action(int number, struct sigaction *action)
{
    return sigaction(number, nullptr, action) == 0 && action->sa_handler == SIG_DFL;
}

void set_handler(int number, signal_handler handler)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    sigemptyset(&action.sa_mask);
    sigaction(number, &action, nullptr);
}

void take_signals()
{
    for (taken_signal &signal : taken_signals) {
        struct sigaction current;
        if (signal.number == SIGCHLD && !uloop_handle_sigchld)
            continue;
        if (!has_default_action(signal.number, &current))
            continue;
        signal.before = current;
        signal.taken = true;
        set_handler(signal.number, handler_of(signal.number));
    }
    struct sigaction pipe_action;
    if (has_default_action(SIGPIPE, &pipe_action))
        set_handler(SIGPIPE, SIG_IGN);
}

// Deliberate: SIGPIPE stays ignored; a program that goes on after the loop must not die of a closed
// connection.
void give_signals_back()
{
    for (taken_signal &signal : taken_signals) {
        struct sigaction current;
        if (!signal.taken)
            continue;
        signal.taken = false;
        if (sigaction(signal.number, nullptr, &current) == 0 &&
            current.sa_handler == handler_of(signal.number))
            sigaction(signal.number, &signal.before, nullptr);
    }
}

void drain_wake_pipe(uloop_fd *source, unsigned)
{
    char bytes[64];
    while (read(source->fd, bytes, sizeof(bytes)) > 0)
        continue;
}

bool open_wake_pipe()
{
    if (pipe2(wake_pipe, O_CLOEXEC | O_NONBLOCK) < 0)
        return false;
    wake_source = {.cb = drain_wake_pipe, .fd = wake_pipe[0]};
    return uloop_fd_add(&wake_source, ULOOP_READ) == 0;
}

void close_and_forget(int &fd)
{
    if (fd >= 0)
        close(fd);
    fd = -1;
}

int64_t now_us()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * us_per_second + now.tv_nsec / 1000;
}

int64_t time_us(const uloop_timeout *timer)
{
    return static_cast<int64_t>(timer->time.tv_sec) * us_per_second + timer->time.tv_usec;
}

uloop_timeout *first_timer(const list_head *list)
{
    return list_is_empty(list) ? nullptr : list_entry(list->next, uloop_timeout, list);
}

void run_due_timers()
{
    const int64_t now = now_us();
    for (uloop_timeout *timer = first_timer(&timers); timer && time_us(timer) <= now;
         timer = first_timer(&timers)) {
        list_remove(&timer->list);
        list_insert_before(&timer->list, &due_timers);
    }
    // From a list of its own, so that a callback which arms a timer at once does not hold up the pass.
    while (uloop_timeout *const timer = first_timer(&due_timers)) {
        uloop_timeout_cancel(timer);
        if (timer->cb)
            timer->cb(timer);
    }
}

uloop_process *process_with(pid_t pid)
{
    for (list_head *link = processes.next; link != &processes; link = link->next) {
        uloop_process *const process = list_entry(link, uloop_process, list);
        if (process->pid == pid)
            return process;
    }
    return nullptr;
}

void reap_children()
{
    if (!child_ended)
        return;
    child_ended = 0;
    for (;;) {
        int status = 0;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid < 0 && errno == EINTR)
            continue;
        if (pid <= 0)
            return;
        uloop_process *const process = process_with(pid);
        if (!process)
            continue;
        uloop_process_delete(process);
        process->cb(process, status);
    }
}

// Milliseconds to wait: `limit` or until the next timer, rounded up so that it is due afterwards; -1 for
// ever.
int wait_limit(int limit)
{
    const uloop_timeout *const timer = first_timer(&timers);
    if (!timer)
        return limit;
    int64_t left = (time_us(timer) - now_us() + us_per_ms - 1) / us_per_ms;
    if (left < 0)
        left = 0;
    if (left > INT_MAX)
        left = INT_MAX;
    return limit >= 0 && limit < left ? limit : static_cast<int>(left);
}

unsigned readiness_of(uint32_t events)
{
    unsigned ready = 0;
    if (events & EPOLLIN)
        ready |= ULOOP_READ;
    if (events & EPOLLOUT)
        ready |= ULOOP_WRITE;
    return ready;
}

void call_back(const epoll_event &event)
{
    uloop_fd *const sock = static_cast<uloop_fd *>(event.data.ptr);
    if (event.events & (EPOLLERR | EPOLLHUP)) {
        sock->error = true;
        if (!(sock->flags & ULOOP_ERROR_CB))
            uloop_fd_delete(sock);
    }
    if (event.events & EPOLLRDHUP)
        sock->eof = true;
    if (sock->cb)
        sock->cb(sock, readiness_of(event.events));
}

// One event is fetched at a time: none can be left over for a record that a callback has freed.
void wait_for_descriptor(int limit)
{
    epoll_event event;
    if (epoll_wait(epoll_fd, &event, 1, limit) == 1)
        call_back(event);
}

void run_pass(int limit)
{
    run_due_timers();
    reap_children();
    if (!uloop_cancelled)
        wait_for_descriptor(wait_limit(limit));
}

void drop_timers(list_head *list)
{
    while (uloop_timeout *const timer = first_timer(list))
        uloop_timeout_cancel(timer);
}

} // namespace

extern "C" {

bool uloop_cancelled = false;
bool uloop_handle_sigchld = true;

int uloop_init(void)
{
    if (epoll_fd < 0) {
        epoll_fd = epoll_create1(EPOLL_CLOEXEC);
        if (epoll_fd < 0)
            return -1;
        if (!open_wake_pipe()) {
            uloop_done();
            return -1;
        }
    }
    take_signals();
    return 0;
}

int uloop_run_timeout(int timeout)
{
    if (run_depth++ == 0) {
        uloop_cancelled = false;
        end_signal = 0;
    }
    do
        run_pass(timeout);
    while (timeout < 0 && !uloop_cancelled);
    run_depth--;
    return end_signal;
}

bool uloop_cancelling(void)
{
    return run_depth > 0 && uloop_cancelled;
}

void uloop_done(void)
{
    // First: a handler must not write to a pipe that is closed.
    give_signals_back();
    close_and_forget(wake_pipe[0]);
    close_and_forget(wake_pipe[1]);
    close_and_forget(epoll_fd);
    drop_timers(&due_timers);
    drop_timers(&timers);
    while (!list_is_empty(&processes))
        uloop_process_delete(list_entry(processes.next, uloop_process, list));
}

int uloop_fd_add(uloop_fd *sock, unsigned int flags)
{
    if (!(flags & (ULOOP_READ | ULOOP_WRITE)))
        return uloop_fd_delete(sock);
    if (!sock->registered && !(flags & ULOOP_BLOCKING)) {
        const int mode = fcntl(sock->fd, F_GETFL);
        if (mode < 0 || fcntl(sock->fd, F_SETFL, mode | O_NONBLOCK) < 0)
            return -1;
    }
    epoll_event event = {};
    event.data.ptr = sock;
    if (flags & ULOOP_READ)
        event.events |= EPOLLIN | EPOLLRDHUP;
    if (flags & ULOOP_WRITE)
        event.events |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER)
        event.events |= EPOLLET;
    if (epoll_ctl(epoll_fd, sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, sock->fd, &event) < 0)
        return -1;
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    sock->flags = static_cast<uint8_t>(flags);
    return 0;
}

int uloop_fd_delete(uloop_fd *sock)
{
    if (!sock->registered)
        return 0;
    sock->registered = false;
    sock->flags = 0;
    return epoll_ctl(epoll_fd, EPOLL_CTL_DEL, sock->fd, nullptr);
}

int uloop_timeout_add(uloop_timeout *timeout)
{
    if (timeout->pending)
        return -1;
    list_head *position = &timers;
    while (position->prev != &timers &&
           time_us(list_entry(position->prev, uloop_timeout, list)) > time_us(timeout))
        position = position->prev;
    list_insert_before(&timeout->list, position);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(uloop_timeout *timeout, int msecs)
{
    uloop_timeout_cancel(timeout);
    const int64_t time = now_us() + msecs * us_per_ms;
    timeout->time.tv_sec = static_cast<time_t>(time / us_per_second);
    timeout->time.tv_usec = static_cast<suseconds_t>(time % us_per_second);
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(uloop_timeout *timeout)
{
    if (!timeout->pending)
        return -1;
    list_remove(&timeout->list);
    timeout->pending = false;
    return 0;
}

int64_t uloop_timeout_remaining64(uloop_timeout *timeout)
{
    return timeout->pending ? (time_us(timeout) - now_us()) / us_per_ms : -1;
}

int uloop_process_add(uloop_process *p)
{
    if (p->pending)
        return -1;
    list_insert_before(&p->list, &processes);
    p->pending = true;
    return 0;
}

int uloop_process_delete(uloop_process *p)
{
    if (!p->pending)
        return -1;
    list_remove(&p->list);
    p->pending = false;
    return 0;
}

} // extern "C"
