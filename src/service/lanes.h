// The threads that do what takes time, and the order in which they do it.
//
// The bus thread takes requests and sends replies, and never waits for a child, a file or a lock that
// somebody holds for long. Work that does is a job for one of two lanes: changes are done one at a time in
// the one, queries in the other. Jobs of one client keep their order; clients with several jobs take turns
// with the others, so that nobody waits longer because somebody else asks often. A client that never has more
// than one job at a time finds the order in which the jobs came in.
//
// Everything here is for the bus thread.
#pragma once

#include <cstddef>
#include <cstdint>

enum class lane_name { changes, queries };

// A job. It belongs to its lane from lane_add() until `ended` is called or it is withdrawn.
struct lane_job {
    void (*work)(lane_job &self);   // on the lane's thread
    void (*ended)(lane_job &self);  // afterwards, on the bus thread
    void (*begins)(lane_job &self); // just before it begins, on the bus thread; may be null
    uint32_t client;                // 0: a client of its own
    bool reloads_nothing;           // a change that need not wait for the commands of the one before it

    lane_job *next; // the lane's own
    uint64_t turn;
};

// Starts the lanes. Returns 0, or an errno.
int lanes_start();
// What becomes readable when there is something for lanes_attend(), which ends the jobs that are done and
// begins the next ones. The event loop, once there is one, does that, and has long commands logged.
int lanes_bell();
void lanes_attend();
bool lanes_join_loop();

void lane_add(lane_name name, lane_job &job);
// Takes a job back that was not begun yet. False: it was, or has ended.
bool lane_withdraw(lane_name name, lane_job &job);
// Whether a lane has neither a job at work nor one that waits.
bool lane_is_idle(lane_name name);
// How many jobs of a lane have ended.
uint64_t lane_ended(lane_name name);
// Calls visit(job, context) for the job at work, if there is one, and for those that wait, in their order.
void lane_visit(lane_name name, void (*visit)(lane_job &job, void *context), void *context);
