#include "faults/watch.h"

#include <cerrno>
#include <sys/syscall.h>

namespace {

// What the daemon reads elsewhere, the address of the bridge, is a fact of the gateway and no part of the
// operation: a WAN for which it cannot be found is made without it.
bool reads_elsewhere(const system_call &call)
{
    return contains(set_of(call_kind::open_to_read, call_kind::read), call.kind) && !is_kept(call.path);
}

} // namespace

void watch::follow(traced_program &program)
{
    program.before_call = [this](const system_call &call) { return look(call); };
    program.after_call = [this](const system_call &call, int64_t result) { note(call, result); };
}

fate watch::look(const system_call &call)
{
    // A change that waits need not keep everybody waiting.
    if (call.kind == call_kind::sleep) {
        if (call.number == SYS_nanosleep || call.number == SYS_clock_nanosleep)
            return {fate::leave_out};
        if (call.number == SYS_futex)
            return {fate::refuse, ETIMEDOUT};
        on_sleep(static_cast<int>(call.words[3]));
        return {fate::refuse, EINTR};
    }
    if (!begins_with.empty() && call.path == begins_with) {
        begins_with.clear();
        on_begin();
    }
    if (!armed || reads_elsewhere(call))
        return {};
    kinds.push_back(call.kind);
    if (contains(changing_calls, call.kind))
        texts.push_back(call.text());
    if (call.kind == call_kind::message)
        messages.push_back(memory_of(call.thread, call.words[1], call.words[2]));
    if (call.kind == left_out.kind && ++left_out_counted_ == left_out.number)
        return {fate::leave_out};
    const fate decided = wrong && contains(wrong->calls, call.kind) ? meet(call) : fate{};
    if (call.kind == call_kind::send && decided.what == fate::make)
        sends++;
    return decided;
}

// What becomes of a call that counts.
fate watch::meet(const system_call &call)
{
    const size_t at = counted_++;
    if (at < number || (at > number && wrong->happens != fault::refused_onward))
        return {};
    if (at == number)
        struck = call;
    if (wrong->happens == fault::refused || wrong->happens == fault::refused_onward)
        refused_paths.push_back(call.path);
    switch (wrong->happens) {
    case fault::killed:
    case fault::killed_twice:
    case fault::killed_and_cut:
        return {fate::kill};
    case fault::refused:
    case fault::refused_onward:
        return {fate::refuse, error};
    case fault::stopped:
    case fault::bus_lost:
        on_strike();
        return {};
    default:
        return {};
    }
}

void watch::note(const system_call &call, int64_t result)
{
    if (!log)
        return;
    log->note(call, result);
    if (armed && call.kind == call_kind::send)
        log->note_answer();
}
