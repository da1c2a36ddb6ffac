#include "service/request.h"

#include "base/heap.h"
#include "base/log.h"
#include "base/clock.h"

#include <cerrno>
#include <new>

namespace {

constinit size_t held = 0;
constinit bool full = false; // logged, and not empty since

request &request_of(lane_job &job)
{
    return *reinterpret_cast<request *>(&job); // its first member
}

struct free_request {
    void operator()(request *gone) const
    {
        gone->~request();
        free(gone);
    }
};
using request_owner = std::unique_ptr<request, free_request>;

void do_work(lane_job &job)
{
    request &self = request_of(job);
    self.status = self.kind->work(self);
}

void send_answer(request &self)
{
    if (self.reply.buffer()->head) {
        const int sent = self.reply.send(self.bus, &self.origin);
        if (self.status == UBUS_STATUS_OK)
            self.status = sent;
    }
    ubus_complete_deferred_request(self.bus, &self.origin, self.status);
}

void end(lane_job &job)
{
    request &self = request_of(job);
    if (self.kind->answer && !self.kind->answer(self))
        return lane_add(self.lane, job);
    const request_owner owner(&self);
    held--;
    if (held == 0)
        full = false;
    send_answer(self);
}

struct held_count {
    uint32_t client;
    size_t count;
};

void count_own(lane_job &job, void *context)
{
    held_count &own = *static_cast<held_count *>(context);
    own.count += job.client == own.client;
}

// A client alone gets half of all.
bool has_room(uint32_t client)
{
    held_count own = {client, 0};
    for (const lane_name name : {lane_name::changes, lane_name::queries})
        lane_visit(name, count_own, &own);
    return own.count < most_requests - held;
}

void log_full()
{
    if (!full)
        log_error("Refused a request: %zu wait already", held);
    full = true;
}

// Without a request of its own there is nothing to hold the reply but the stack.
int refuse_at_once(const method_kind &kind, ubus_context *bus, ubus_request_data *origin)
{
    request refused = {};
    const int status = kind.refuse(refused);
    if (refused.reply.buffer()->head)
        (void)refused.reply.send(bus, origin);
    return status;
}

struct search {
    const method_kind *kind;
    uint8_t wan_id;
    const wan_config *found;
};

void match(lane_job &job, void *context)
{
    search &wanted = *static_cast<search *>(context);
    if (job.work != do_work)
        return;
    const request &each = request_of(job);
    if (each.kind == wanted.kind && each.wan.wanId == wanted.wan_id)
        wanted.found = &each.wan;
}

} // namespace

int request_defer(const method_kind &kind, lane_name lane, ubus_context *bus, ubus_request_data *origin,
                  const wan_config &asked, uint64_t arguments, uint32_t wait)
{
    if (!has_room(origin->peer)) {
        log_full();
        return refuse_at_once(kind, bus, origin);
    }
    void *const memory = calloc(1, sizeof(request));
    if (!memory) {
        log_error("Refused a request: %m");
        return refuse_at_once(kind, bus, origin);
    }
    request &taken = *new (memory) request{.job = {.work = do_work,
                                                   .ended = end,
                                                   .client = origin->peer,
                                                   .reloads_nothing = kind.reloads_nothing},
                                           .kind = &kind,
                                           .lane = lane,
                                           .bus = bus,
                                           .asked = steady_milliseconds(),
                                           .arguments = arguments,
                                           .wait = wait,
                                           .changes_before = lane_ended(lane_name::changes),
                                           .wan = asked};
    ubus_defer_request(bus, origin, &taken.origin);
    held++;
    lane_add(lane, taken.job);
    return UBUS_STATUS_OK;
}

const wan_config *request_find(const method_kind &kind, uint8_t wan_id)
{
    search wanted = {&kind, wan_id, nullptr};
    lane_visit(lane_name::changes, match, &wanted);
    return wanted.found;
}
