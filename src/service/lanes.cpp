#include "service/lanes.h"

#include "base/bus_headers.h"
#include "base/lane.h"
#include "base/long_commands.h"
#include "base/operation.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <sys/eventfd.h>
#include <unistd.h>

namespace {

// A lane, its job at work, and those that wait, by their turns and within one turn as they came in.
struct job_lane {
    lane thread;
    lane_job *first;
    uint64_t turn;  // of the job that began last
    uint64_t ended; // how many
};

constinit job_lane lanes[2] = {};
constinit int bell = -1;

// The job of the lane of changes that the other one does, while the commands of the last one run.
constinit lane_job *beside = nullptr;

// The event loop's part.
constinit uloop_fd bell_source = {};
constinit uloop_timeout loop_watch = {};

// Whether the change at work only waits for commands. Its own thread says so.
constinit std::atomic<bool> runs_commands = false;

job_lane &lane_of(lane_name name)
{
    return lanes[static_cast<size_t>(name)];
}

void note_commands(bool run)
{
    runs_commands = run;
    if (run)
        ring(bell);
}

void do_job(void *argument)
{
    lane_job &job = *static_cast<lane_job *>(argument);
    job.work(job);
}

void begin_first(job_lane &from, job_lane &at)
{
    lane_job &job = *from.first;
    from.first = job.next;
    from.turn = std::max(from.turn, job.turn);
    if (loop_watch.cb && !loop_watch.pending)
        (void)uloop_timeout_set(&loop_watch, long_command_milliseconds);
    if (job.begins)
        job.begins(job);
    at.thread.give(do_job, &job);
}

// Begins what may begin. Changes come first: one that is done beside another has the lane of queries for a
// moment only.
void begin_next()
{
    job_lane &changes = lane_of(lane_name::changes), &queries = lane_of(lane_name::queries);
    if (changes.first && !beside) {
        if (changes.thread.is_idle()) {
            begin_first(changes, changes);
        } else if (changes.first->reloads_nothing && runs_commands && queries.thread.is_idle()) {
            beside = changes.first;
            begin_first(changes, queries);
        }
    }
    if (queries.first && queries.thread.is_idle())
        begin_first(queries, queries);
}

// A client that has jobs here has its next turn behind its last one; all others are next.
uint64_t turn_of(const job_lane &at, uint32_t client)
{
    uint64_t turn = at.turn;
    for (const lane_job *each = at.first; each && client != 0; each = each->next)
        if (each->client == client)
            turn = each->turn;
    return turn + 1;
}

void handle_bell(uloop_fd *, unsigned)
{
    lanes_attend();
}

void handle_watch(uloop_timeout *)
{
    const int next = log_long_commands();
    for (const job_lane &each : lanes)
        if (!each.thread.is_idle() && !loop_watch.pending)
            (void)uloop_timeout_set(&loop_watch, next);
}

} // namespace

int lanes_start()
{
    bell = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (bell < 0)
        return errno;
    operation_tell_commands(note_commands);
    for (job_lane &each : lanes)
        if (const int error = each.thread.start(bell); error != 0)
            return error;
    return 0;
}

int lanes_bell()
{
    return bell;
}

bool lanes_join_loop()
{
    bell_source.cb = handle_bell;
    bell_source.fd = bell;
    loop_watch.cb = handle_watch;
    return uloop_fd_add(&bell_source, ULOOP_READ) == 0;
}

void lanes_attend()
{
    uint64_t count = 0;
    (void)!read(bell, &count, sizeof(count)); // it only has to be empty
    for (job_lane &each : lanes) {
        lane_job *const ended = static_cast<lane_job *>(each.thread.take());
        if (!ended)
            continue;
        (ended == beside ? lane_of(lane_name::changes) : each).ended++;
        if (ended == beside)
            beside = nullptr;
        ended->ended(*ended);
    }
    begin_next();
}

void lane_add(lane_name name, lane_job &job)
{
    job_lane &at = lane_of(name);
    job.turn = turn_of(at, job.client);
    lane_job **place = &at.first;
    while (*place && (*place)->turn <= job.turn)
        place = &(*place)->next;
    job.next = *place;
    *place = &job;
    begin_next();
}

bool lane_withdraw(lane_name name, lane_job &job)
{
    lane_job **place = &lane_of(name).first;
    while (*place && *place != &job)
        place = &(*place)->next;
    if (!*place)
        return false;
    *place = job.next;
    return true;
}

bool lane_is_idle(lane_name name)
{
    const job_lane &at = lane_of(name);
    return !at.first && at.thread.is_idle();
}

uint64_t lane_ended(lane_name name)
{
    return lane_of(name).ended;
}

void lane_visit(lane_name name, void (*visit)(lane_job &job, void *context), void *context)
{
    job_lane &at = lane_of(name);
    if (lane_job *const at_work = static_cast<lane_job *>(at.thread.at_work()))
        visit(*at_work, context);
    for (lane_job *each = at.first; each; each = each->next)
        visit(*each, context);
}
