#include "faults/trial.h"

#include "tools/programs.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <sys/wait.h>

namespace {

constexpr unsigned no_allocation = ~0U;

// An operation of the start is done again by the next one, with as many calls: of those every so many-th
// meets the second fault, another one after each first fault.
constexpr size_t kills_apart = 10, cuts_apart = 40;

// What is done at the start begins with the opening of this file.
constexpr char import_list[] = "/tmp/wan_list";

bool is_of_memory(const fault &wrong)
{
    return wrong.happens == fault::memory || wrong.happens == fault::memory_onward;
}

// Whether the daemon is left to go on after a call of its own has failed.
bool fails_a_call(const fault &wrong)
{
    return is_of_memory(wrong) || wrong.happens == fault::refused || wrong.happens == fault::refused_onward ||
           wrong.happens == fault::child_fails;
}

// Whether the fault is to end the daemon, by and by.
bool ends_it(const fault &wrong)
{
    return wrong.happens == fault::stopped || wrong.happens == fault::bus_lost;
}

} // namespace

// What is known when the daemon is gone.
struct trial::crash {
    watch watched;
    observation seen;
};

trial::trial(const left_out_call &left_out) : left_out_(left_out), shipped_(take_files()) {}

// Makes one request of a daemon that is started for it, without a fault.
void trial::make(const bus_request &request)
{
    watch watched;
    const auto daemon = ground_.start_daemon(watched);
    (void)daemon->run_unseen(ground::patience);
    ground_.start_client(request);
    (void)daemon->run([&] { return ground_.finished(*daemon); }, ground::patience);
    if (!ground_.end_client(true).succeeded)
        throw std::runtime_error(std::string("a request fails without a fault: ") + request.method);
}

// Lets a daemon that was just started do the operation, under watch, until it is done.
void trial::run_request(traced_program &daemon, watch &watched, const std::function<bool()> &done)
{
    watched.on_begin = [&] {
        watched.armed = true;
        ground_.memory().armed = 1;
    };
    if (at_start()) {
        watched.begins_with = import_list;
    } else {
        if (!daemon.run_unseen(ground::patience) || daemon.ended())
            throw std::runtime_error("the daemon does not start");
        ground_.start_client(operation_->request);
        watched.on_begin();
    }
    (void)daemon.run(done, ground::patience);
    ground_.memory().armed = 0;
    watched.armed = false;
}

void trial::prepare(const operation &tried)
{
    operation_ = &tried;
    cuts_.reset();
    next_starts_.clear();
    faulty_starts_.clear();
    put_files(shipped_);
    ground_.start_bus();
    for (const bus_request &request : tried.made_before)
        make(request);
    if (run_silently({"sh", "-c", tried.prepared_by}) != 0)
        throw std::runtime_error(std::string("cannot prepare: ") + tried.prepared_by);
    if (!at_start())
        (void)ground_.restart();
    states_ = {.before = take_files(), .meaning = tried.meaning};

    ground_.forget_reloads();
    ground_.memory() = {0, 0, no_allocation, no_allocation};
    clean_ = {};
    {
        const auto daemon = ground_.start_daemon(clean_);
        run_request(*daemon, clean_, [&] { return ground_.finished(*daemon); });
    }
    allocations_ = ground_.memory().count;
    const bool answered = at_start() || ground_.end_client(true).succeeded;
    states_.reloads = ground_.reloads();
    const std::string wrong = ground_.restart();
    states_.after = take_files();
    if (!answered || !wrong.empty() || states_.before == states_.after)
        throw std::runtime_error(std::string("does not work without a fault: ") + tried.name);
}

size_t trial::tries(const fault &wrong)
{
    const auto count =
        static_cast<size_t>(std::count_if(clean_.kinds.begin(), clean_.kinds.end(),
                                          [&wrong](call_kind kind) { return contains(wrong.calls, kind); }));
    switch (wrong.happens) {
    case fault::power_cut:
        if (!cuts_)
            record_cuts();
        return cuts_->size();
    case fault::memory:
    case fault::memory_onward:
        return allocations_;
    case fault::killed:
    case fault::killed_twice:
    case fault::killed_and_cut:
        return count + 1; // and when all is done
    default:
        return count * std::max<size_t>(1, wrong.errors.size());
    }
}

verdict trial::attempt(const fault &wrong, size_t number)
{
    switch (wrong.happens) {
    case fault::power_cut:
        return attempt_cut(number);
    case fault::killed_twice:
    case fault::killed_and_cut:
        return attempt_two(wrong, number);
    default:
        return attempt_run(wrong, number);
    }
}

// One run with a fault, up to the end of the daemon.
trial::crash trial::run_with(const fault &wrong, size_t number)
{
    put_files(states_.before);
    ground_.start_bus();
    ground_.forget_reloads();
    ground_.memory() = {0, 0, no_allocation, no_allocation};
    if (is_of_memory(wrong))
        ground_.memory().first = static_cast<unsigned>(number + 1);
    if (wrong.happens == fault::memory)
        ground_.memory().last = ground_.memory().first;

    crash made;
    watch &watched = made.watched;
    const size_t errors = std::max<size_t>(1, wrong.errors.size());
    watched.wrong = &wrong;
    watched.number = number / errors;
    watched.error = wrong.errors.empty() ? ENOMEM : wrong.errors[number % errors];
    watched.left_out = left_out_;
    const auto daemon = ground_.start_daemon(watched);
    watched.on_strike = [&] { wrong.happens == fault::stopped ? daemon->kill(SIGTERM) : ground_.lose_bus(); };
    size_t children = 0;
    if (wrong.happens == fault::child_fails)
        daemon->child_fails = [&] { return watched.armed && children++ == watched.number; };
    // A daemon that starts without a bus goes on without one.
    const bool must_end = ends_it(wrong) && !(at_start() && wrong.happens == fault::bus_lost);
    run_request(*daemon, watched,
                [&] { return must_end && watched.struck ? daemon->ended() : ground_.finished(*daemon); });

    observation &seen = made.seen;
    if (!ground_.finished(*daemon) || (must_end && watched.struck && !daemon->ended()))
        seen.wrong = "hangs";
    else if (daemon->ended() && fails_a_call(wrong) && WIFSIGNALED(daemon->wait_status()))
        seen.wrong = "crashes with signal " + std::to_string(WTERMSIG(daemon->wait_status()));
    // Where it ends by itself, as without memory for its bus, its supervisor tells of that.
    seen.call_failed = fails_a_call(wrong) && !daemon->ended();
    if (!at_start())
        seen.reply = ground_.end_client(watched.sends > 0);
    daemon->kill(SIGKILL);
    (void)daemon->run([&] { return daemon->ended(); }, ground::patience);
    seen.at_once = take_files();
    seen.reloads = ground_.reloads();
    return made;
}

const trial::next_start &trial::start_from(const file_tree &files)
{
    const auto [entry, is_new] = next_starts_.try_emplace(files);
    next_start &started = entry->second;
    if (!is_new)
        return started;
    put_files(files);
    ground_.forget_reloads();
    started.wrong = ground_.restart();
    started.files = take_files();
    started.reloads = ground_.reloads();
    return started;
}

verdict trial::attempt_run(const fault &wrong, size_t number)
{
    auto [watched, seen] = run_with(wrong, number);
    const next_start &next = start_from(seen.at_once);
    seen.present = next.files;
    seen.reloads.insert(seen.reloads.end(), next.reloads.begin(), next.reloads.end());
    if (seen.wrong.empty())
        seen.wrong = next.wrong;
    seen.error = watched.error;
    seen.messages = watched.messages;
    // A service whose reload could not be started, or failed, is not told.
    seen.must_reload = !fails_a_call(wrong) || !contains(wrong.calls, call_kind::child);
    seen.failed_paths = watched.refused_paths;

    verdict given = judge(seen, states_);
    if (is_of_memory(wrong))
        given.struck = "allocation " + std::to_string(number + 1);
    else
        given.struck = watched.struck ? watched.struck->text() : "nothing";
    if (!wrong.errors.empty())
        given.struck += std::string(" (") + strerror(watched.error) + ")";
    return given;
}

// Killed once, and then whatever may go wrong with the next start.
verdict trial::attempt_two(const fault &wrong, size_t number)
{
    auto [watched, seen] = run_with(wrong, number);
    const std::string &second = try_next_start(wrong, seen.at_once, number);
    const next_start &next = start_from(seen.at_once);
    seen.wrong = second.empty() ? next.wrong : second;
    seen.present = next.files;
    verdict given = judge(seen, states_);
    given.struck = watched.struck ? watched.struck->text() : "nothing";
    return given;
}

// Lets whatever there is go wrong with a start from these files. Returns what is wrong after the one that
// follows.
const std::string &trial::try_next_start(const fault &wrong, const file_tree &files, size_t number)
{
    const auto [entry, is_new] = faulty_starts_.try_emplace({wrong.happens, files});
    if (is_new)
        entry->second =
            wrong.happens == fault::killed_twice ? kill_restarts(files, number) : cut_restart(files, number);
    return entry->second;
}

// Kills the next start before each of its calls, too. Returns what is wrong after the one that follows.
std::string trial::kill_restarts(const file_tree &files, size_t number)
{
    const fault killed = {"", fault::killed, changing_calls, {}};
    const size_t step = at_start() ? kills_apart : 1;
    for (size_t second = number % step;; second += step) {
        put_files(files);
        watch watched;
        watched.wrong = &killed;
        watched.number = second;
        watched.armed = true;
        {
            const auto daemon = ground_.start_daemon(watched);
            (void)daemon->run([&] { return ground_.finished(*daemon); }, ground::patience);
        }
        if (!watched.struck)
            return {};
        const next_start &next = start_from(take_files());
        const observation seen{.at_once = files, .present = next.files, .wrong = next.wrong};
        const verdict given = judge(seen, states_);
        if (!given.wrong.empty())
            return "killed again before " + watched.struck->text() + ": " + given.wrong;
    }
}

// Cuts the power during the next start. Returns what is wrong after the one that follows.
std::string trial::cut_restart(const file_tree &files, size_t number)
{
    put_files(files);
    disk_log log(files);
    watch watched;
    watched.log = &log;
    watched.armed = true;
    {
        const auto daemon = ground_.start_daemon(watched);
        (void)daemon->run([&] { return ground_.finished(*daemon); }, ground::patience);
    }
    const std::vector<disk_log::remains> all = log.all_remains();
    const size_t step = at_start() ? cuts_apart : 1;
    for (size_t i = number % step; i < all.size(); i += step) {
        const disk_log::remains &left = all[i];
        const next_start &next = start_from(left.files);
        const observation seen{
            .at_once = left.files, .present = next.files, .memory_lost = true, .wrong = next.wrong};
        const verdict given = judge(seen, states_);
        if (!given.wrong.empty())
            return "power cut " + left.when + ": " + given.wrong;
    }
    return {};
}

void trial::record_cuts()
{
    put_files(states_.before);
    ground_.start_bus();
    disk_log log(states_.before);
    watch watched;
    watched.left_out = left_out_;
    watched.log = &log;
    {
        const auto daemon = ground_.start_daemon(watched);
        run_request(*daemon, watched, [&] { return ground_.finished(*daemon); });
    }
    if (!at_start() && !ground_.end_client(true).answered)
        throw std::runtime_error("no answer while a log of changes was taken");
    cuts_ = log.all_remains();
}

verdict trial::attempt_cut(size_t number)
{
    const disk_log::remains &left = cuts_->at(number);
    const next_start &next = start_from(left.files);
    observation seen{.at_once = left.files, .present = next.files, .memory_lost = true, .wrong = next.wrong};
    seen.reply = {left.answered, left.answered, "before the power cut"};
    verdict given = judge(seen, states_);
    given.struck = left.when;
    return given;
}
